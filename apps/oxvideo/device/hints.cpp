// Errors are recognised by their texts, which clients rely on and which therefore stay. An error
// that isn't recognised, or a broker that doesn't answer, only costs the hint.
#include "device/hints.h"

#include <fmt/format.h>

#include <string_view>
#include <vector>

#include <oxframework/oxerror.h>
#include "device/session.h"
#include "terminal/suggestion.h"
#include "terminal/text.h"

namespace OX::cli {

namespace {

constexpr const char* kVerb = "hint";

std::string aboutCameras(const std::string& pBroker) {
  const int count = OXSession(pBroker, kVerb).countCameras();
  if (count == 0) return "this device has no cameras";
  if (count == 1) return "this device has camera 0 only";
  return fmt::format("this device has cameras 0 {} {}", count == 2 ? "and" : "to", count - 1);
}

/// The text between the first pair of quotation marks.
std::string quoted(std::string_view pText) {
  const std::size_t begin = pText.find('"');
  if (begin == std::string_view::npos) return {};
  return std::string(pText.substr(begin + 1, pText.find('"', begin + 1) - begin - 1));
}

std::string aboutModules(const std::string& pBroker, const std::string& pWord) {
  OXSession session(pBroker, kVerb);
  std::vector<std::string> modules;
  const OXValue list = session.call("OXBroker", "getModuleList", OXValue(OXValue::Array()));
  for (const OXValue& module : list.toArray()) modules.push_back(module.toString());
  return "this broker has " + join(modules) + didYouMean(pWord, modules);
}

std::string aboutMethods(const std::string& pBroker, const std::string& pModule,
                         const std::string& pWord) {
  OXSession session(pBroker, kVerb);
  std::vector<std::string> methods;
  const OXValue list = session.call("OXBroker", "getMethodList", OXValue::array(pModule));
  for (const OXValue& method : list.toArray()) methods.push_back(method[0].toString());
  return fmt::format("oxvideo methods {} lists its methods{}", pModule, didYouMean(pWord, methods));
}

std::string hint(const OXError& pError, const std::string& pBroker) {
  const std::string_view text = pError.what();
  if (text.ends_with("invalid Camera index") || text == "Invalid camera parameter input reference.")
    return aboutCameras(pBroker);
  if (text.starts_with("There is no module \"")) return aboutModules(pBroker, quoted(text));
  if (text.find(" has no method \"") != text.npos)
    return aboutMethods(pBroker, pError.getModuleName(), quoted(text));
  if (text.find("odule ") != text.npos && text.ends_with(" unknown!"))
    return "no subscriber has this id; oxvideo subscribers lists those there are";
  if (text == "Bad input parameter ID")
    return "the parameters that cameras have: resolution, frame-rate, buffers, select, colorspace";
  if (text == "Invalid parameter input reference.")
    return "a camera takes resolution, frame-rate and select; a colour space is a subscriber's";
  if (text.ends_with("invalid frame rate")) return "a subscriber takes 1 to 30 frames a second";
  if (text == "unable to open the video file")
    return "the file camera has no recording yet, or can't open it on the broker's machine; choose "
           "one: oxvideo play drive.oxv";
  return {};
}

}  // namespace

std::string hintFor(const OXError& pError, const std::string& pBroker) {
  try {
    return printable(hint(pError, pBroker));
  } catch (const std::exception&) {
    return {};
  }
}

}  // namespace OX::cli
