// get and set share one grammar: what get prints, set accepts.
#include "device/settingoptions.h"

#include <oxframework/oxdefinitions.h>
#include "device/vocabulary.h"
#include "terminal/exitstatus.h"
#include "terminal/json.h"

namespace OX::cli {

void addSettingOptions(OXVerb& pVerb, SettingOptions& pOptions) {
  // One list for setting and value: which word is which depends on --parameter, and so is known
  // only after parsing.
  pVerb.option("SETTING", pOptions.words,
               "resolution, colorspace, fps or camera (the active one); set takes a value after "
               "it, or \"default\"");
  pVerb
      .option("--parameter", pOptions.parameter,
              "a camera parameter instead: resolution, frame-rate, buffers, select, colorspace, "
              "or any number")
      .valueName("NAME");
  const OXOption subscriber =
      pVerb.option("--subscriber", pOptions.subscriber, "id of a subscriber").valueName("ID");
  pVerb.option("--camera", pOptions.camera, "camera index (default: the active camera)")
      .valueName("N")
      .range(0, 255)
      .excludes(subscriber);
  pVerb.flag("--json", pOptions.asJson, "print JSON");
}

const SettingName* takeSetting(SettingOptions& pOptions, std::size_t pRest) {
  const bool isNamed = !pOptions.parameter.empty();
  if (pOptions.words.size() != pRest + (isNamed ? 0 : 1))
    throw OXUsageError(
        "give one setting (resolution, colorspace, fps, camera) or --parameter NAME" +
        std::string(pRest ? ", and one value" : ""));
  if (isNamed) return nullptr;
  const SettingName* setting = &settingNamed(pOptions.words.front());
  pOptions.words.erase(pOptions.words.begin());
  // Refused, or --camera would be read as the camera to activate.
  if (setting->parameter == kCameraSelectID && pOptions.camera)
    throw OXUsageError(
        "the active camera is a setting of the device or a subscriber: leave out --camera");
  return setting;
}

std::string valueLine(const SettingOptions& pOptions, const SettingName* pName, int pValue) {
  std::string text =
      valueText(pName ? pName->parameter : parseParameter(pOptions.parameter), pValue);
  if (!pOptions.asJson) return text;
  const std::string name = pName ? pName->word : pOptions.parameter;
  return OXJson({{"name", name}, {"value", pValue}, {"text", text}}).text();
}

}  // namespace OX::cli
