// Reads the tables of this folder. They are JSON so that script/docs can show them to users too;
// what JSON can't express is an object with one key.
#include "tables.h"

#include <fstream>
#include <limits>
#include <stdexcept>

namespace OX::test {
namespace {

OXValue frame(int pWidth, int pHeight) {
  const std::vector<char> pixels(static_cast<std::size_t>(pWidth * pHeight * 3), 90);
  OXValue value;
  value.SetBinary(pixels.data(), static_cast<int>(pixels.size()));
  return value;
}

OXValue specialValue(const Json& pJson, const std::string& pFolder) {
  if (pJson.contains("frame")) return frame(pJson["frame"][0], pJson["frame"][1]);
  if (pJson.contains("file")) return pFolder + "/" + pJson["file"].get<std::string>();
  if (pJson.contains("float")) return std::numeric_limits<float>::quiet_NaN();
  throw std::runtime_error("no value: " + pJson.dump());
}

}  // namespace

Json table(const std::string& pName) {
  std::ifstream file(std::string(OX_PUBLISHED_TABLES) + "/" + pName);
  return Json::parse(file);
}

OXValue valueOf(const Json& pJson, const std::string& pFolder) {
  if (pJson.is_object()) return specialValue(pJson, pFolder);
  if (pJson.is_string()) return pJson.get<std::string>();
  if (pJson.is_boolean()) return pJson.get<bool>();
  if (pJson.is_number_float()) return pJson.get<float>();
  if (pJson.is_number()) return pJson.get<int>();
  OXValue::Array values;
  for (const Json& element : pJson) values.push_back(valueOf(element, pFolder));
  return values;
}

std::string signatureOf(const Json& pPublication) {
  std::string types;
  for (const Json& parameter : pPublication["parameters"])
    types += (types.empty() ? "" : ", ") + parameter[2].get<std::string>();
  return pPublication["name"].get<std::string>() + "(" + types + ")";
}

}  // namespace OX::test
