// The JSON library is used for the difficult parts, escaping and printing doubles; brackets and
// commas are simple.
#include "terminal/json.h"

#include <nlohmann/json.hpp>

namespace OX::cli {

namespace {

std::string jsonText(const nlohmann::json& pValue) {
  return pValue.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace

OXJson::OXJson(std::initializer_list<Member> pMembers) : OXJson('{') {
  for (const Member& member : pMembers) add(member.name, member.value);
}

OXJson::OXJson(double pValue) : fText(jsonText(pValue)) {}

OXJson::OXJson(const std::string& pText) : fText(jsonText(pText)) {}

void OXJson::add(const std::string& pName, const OXJson& pValue) {
  xSeparate();
  fText += jsonText(pName) + ":" + pValue.text();
}

void OXJson::append(const OXJson& pValue) {
  xSeparate();
  fText += pValue.text();
}

void OXJson::xSeparate() {
  if (fText.size() > 1) fText += ',';
}

std::string OXJson::text() const {
  // Only objects and arrays begin with a bracket: strings begin with a quote.
  if (fText.front() == '{') return fText + '}';
  if (fText.front() == '[') return fText + ']';
  return fText;
}

}  // namespace OX::cli
