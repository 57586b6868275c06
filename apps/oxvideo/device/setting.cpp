// The device has different operations for a subscriber's, a camera's and its own settings; this is
// the one place that chooses between them.
#include "device/setting.h"

#include <fmt/format.h>

#include <vector>

#include "device/vocabulary.h"
#include "terminal/arguments.h"
#include "terminal/exitstatus.h"
#include "terminal/suggestion.h"
#include "terminal/text.h"

namespace OX::cli {

namespace {

constexpr SettingName kSettings[] = {
    {"resolution", kCameraResolutionID, "getResolution", "setResolution"},
    {"colorspace", kCameraColorSpaceID, "getColorSpace", "setColorSpace"},
    {"fps", kCameraFrameRateID, "getFrameRate", "setFrameRate"},
    {"camera", kCameraSelectID, "getActiveCamera", "setActiveCamera"},
};

/// The file camera publishes getParam(int, int) a second time with the arguments exchanged, and the
/// later publication is the one called.
bool getParamTakesCameraFirst(OXSession& pSession) {
  bool isCameraFirst = false;
  const OXValue methods =
      pSession.call("OXBroker", "getMethodList", OXValue::array("OXVideoDevice"));
  for (const OXValue& method : methods.toArray())
    if (method[0].toString() == "getParam" && method[4].getSize() == 2)
      isCameraFirst = method[4][0][0].toString() == "camID";
  return isCameraFirst;
}

[[noreturn]] void throwRefused() {
  throw OXFailure("the device refused the value; the log of the broker may say why");
}

}  // namespace

const SettingName& settingNamed(const std::string& pWord) {
  std::vector<std::string> words;
  for (const SettingName& setting : kSettings) {
    if (pWord == setting.word) return setting;
    words.emplace_back(setting.word);
  }
  throw OXUsageError(fmt::format("\"{}\" is not a setting: use one of {}, or --parameter NAME{}",
                                 printable(pWord), join(words), didYouMean(pWord, words)));
}

int parseValue(int pParameter, const std::string& pText) {
  if (pParameter == kCameraResolutionID) return parseResolution(pText);
  if (pParameter == kCameraColorSpaceID) return parseColorSpace(pText);
  const auto value = parseInt(pText);
  if (!value)
    throw OXUsageError(fmt::format("\"{}\" is not a value: expected a whole number, or default{}",
                                   printable(pText), didYouMean(pText, {"default"})));
  return *value;
}

std::string valueText(int pParameter, int pValue) {
  if (pParameter == kCameraResolutionID) return resolutionName(pValue);
  if (pParameter == kCameraColorSpaceID) return colorSpaceName(pValue);
  return std::to_string(pValue);
}

OXSetting::OXSetting(OXSession& pSession, int pParameter, const SettingName* pName,
                     const std::string& pId, std::optional<int> pCamera)
    : fSession(pSession),
      fParameter(pParameter),
      fName(pName),
      fId(pId),
      fIsCameraNamed(pCamera.has_value()) {
  // Resolved once, so that reading and setting concern the same camera even if another client
  // activates a different one in between.
  if (fId.empty()) fCamera = pCamera ? *pCamera : pSession.device("getActiveCamera").toInt();
}

int OXSetting::get() {
  if (!fId.empty())
    return (fName ? fSession.device(fName->getter, fId)
                  : fSession.device("getCameraParameter", fId, fParameter))
        .toInt();
  if (xIsActiveCamera()) return fSession.device("getActiveCamera").toInt();
  if (fName) return fSession.device(fName->getter, fCamera).toInt();
  if (getParamTakesCameraFirst(fSession))
    return fSession.device("getParam", fCamera, fParameter).toInt();
  return fSession.device("getParam", fParameter, fCamera).toInt();
}

void OXSetting::set(int pValue) {
  if (!fId.empty()) {
    const OXValue done = fName ? fSession.device(fName->setter, fId, pValue)
                               : fSession.device("setCameraParameter", fId, fParameter, pValue);
    if (!done.toBool()) throwRefused();
    return;
  }
  if (xIsActiveCamera()) {
    if (!fSession.device("setActiveCamera", pValue).toBool()) throwRefused();
    return;
  }
  // setParam returns nothing: only the value afterwards tells whether it was accepted.
  const int before = get();
  fSession.device("setParam", fParameter, pValue, fCamera);
  if (before != pValue && get() == before)
    throw OXFailure(fmt::format("asked for {}, camera {} stays at {}",
                                valueText(fParameter, pValue), fCamera,
                                valueText(fParameter, before)));
}

void OXSetting::setDefault() {
  if (!fId.empty()) {
    if (!fSession.device("setCameraParameterToDefault", fId, fParameter).toBool()) throwRefused();
  } else if (!fIsCameraNamed) {
    fSession.device("setParamDefault", fParameter);
  } else {
    throw OXUsageError(
        "defaults can be set only for a subscriber (--subscriber ID) or the active camera (no "
        "--camera)");
  }
}

}  // namespace OX::cli
