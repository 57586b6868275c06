#include <fmt/format.h>

#include <memory>
#include <optional>

#include <oxframework/oxdefinitions.h>
#include "commands/commands.h"
#include "device/session.h"
#include "device/vocabulary.h"
#include "terminal/exitstatus.h"
#include "terminal/json.h"

namespace OX::cli {

namespace {

struct Options {
  std::vector<std::string> words;  ///< get: [WHAT]; set: [WHAT, VALUE], or [VALUE] of a parameter
  std::string parameter;
  std::string subscriber;
  std::optional<int> camera;
  bool asJson = false;
};

/// A setting under the name that people use, with the operations that serve it.
struct Setting {
  const char* word;
  int parameter;  ///< identifier behind it where a camera's own is meant
  const char* getter;
  const char* setter;
};
constexpr Setting kSettings[] = {
    {"resolution", kCameraResolutionID, "getResolution", "setResolution"},
    {"colorspace", kCameraColorSpaceID, "getColorSpace", "setColorSpace"},
    {"fps", kCameraFrameRateID, "getFrameRate", "setFrameRate"},
    {"camera", kCameraSelectID, "getActiveCamera", "setActiveCamera"},
};

const Setting& settingOf(const std::string& pWord) {
  std::vector<std::string> words;
  for (const Setting& setting : kSettings) {
    if (pWord == setting.word) return setting;
    words.emplace_back(setting.word);
  }
  throw OXUsageError(fmt::format("\"{}\" is no setting; there are {}, or --parameter NAME",
                                 printable(pWord), joined(words)));
}

int parseValue(int pParameter, const std::string& pText) {
  if (pParameter == kCameraResolutionID) return parseResolution(pText);
  if (pParameter == kCameraColorSpaceID) return parseColorSpace(pText);
  const auto value = parseInt(pText);
  if (!value) throw OXUsageError(fmt::format("\"{}\" is no number", printable(pText)));
  return *value;
}

std::string valueText(int pParameter, int pValue) {
  if (pParameter == kCameraResolutionID) return resolutionName(pValue);
  if (pParameter == kCameraColorSpaceID) return colorSpaceName(pValue);
  return std::to_string(pValue);
}

/// The file camera publishes getParam for two ints once more, the other way round, and that is the
/// one that answers then.
bool getParamTakesCameraFirst(OXSession& pSession) {
  bool isCameraFirst = false;
  const OXValue methods =
      pSession.call("OXBroker", "getMethodList", OXValue::array("OXVideoDevice"));
  for (const OXValue& method : methods.toArray())
    if (method[0].toString() == "getParam" && method[4].getSize() == 2)
      isCameraFirst = method[4][0][0].toString() == "camID";
  return isCameraFirst;
}

/// One setting or parameter of one subscriber or camera.
class Place {
 public:
  Place(OXSession& pSession, const Options& pOptions, const Setting* pSetting)
      : fSession(pSession),
        fSubscriber(pOptions.subscriber),
        fSetting(pSetting),
        fParameter(pSetting ? pSetting->parameter : parseParameter(pOptions.parameter)),
        fIsActiveCamera(!pOptions.camera) {
    if (fSubscriber.empty())
      fCamera = pOptions.camera ? *pOptions.camera : pSession.device("getActiveCamera").toInt();
  }

  int parameter() const { return fParameter; }
  int get();
  /// Throws OXFailure when the value is refused.
  void set(int pValue);
  void setDefault();

 private:
  [[noreturn]] static void xRefused() { throw OXFailure("the device refused; its log says why"); }
  bool xIsSelection() const { return fSetting && fParameter == kCameraSelectID; }

  OXSession& fSession;
  const std::string fSubscriber;
  const Setting* fSetting;  ///< null for a parameter
  const int fParameter;
  const bool fIsActiveCamera;
  int fCamera = 0;
};

int Place::get() {
  if (!fSubscriber.empty())
    return (fSetting ? fSession.device(fSetting->getter, fSubscriber)
                     : fSession.device("getCameraParameter", fSubscriber, fParameter))
        .toInt();
  if (xIsSelection()) return fSession.device("getActiveCamera").toInt();
  if (fSetting) return fSession.device(fSetting->getter, fCamera).toInt();
  if (getParamTakesCameraFirst(fSession))
    return fSession.device("getParam", fCamera, fParameter).toInt();
  return fSession.device("getParam", fParameter, fCamera).toInt();
}

void Place::set(int pValue) {
  if (!fSubscriber.empty()) {
    const OXValue done =
        fSetting ? fSession.device(fSetting->setter, fSubscriber, pValue)
                 : fSession.device("setCameraParameter", fSubscriber, fParameter, pValue);
    if (!done.toBool()) xRefused();
    return;
  }
  if (xIsSelection()) {
    if (!fSession.device("setActiveCamera", pValue).toBool()) xRefused();
    return;
  }
  // It answers nothing: whether the value was taken is seen by what the camera has afterwards.
  const int before = get();
  fSession.device("setParam", fParameter, pValue, fCamera);
  if (before != pValue && get() == before) xRefused();
}

void Place::setDefault() {
  if (!fSubscriber.empty()) {
    if (!fSession.device("setCameraParameterToDefault", fSubscriber, fParameter).toBool())
      xRefused();
  } else if (fIsActiveCamera) {
    fSession.device("setParamDefault", fParameter);
  } else {
    throw OXUsageError(
        "the device sets defaults for a subscriber (--subscriber ID) or its active camera (no "
        "--camera)");
  }
}

void report(Context& pContext, const Options& pOptions, Place& pPlace, const std::string& pName) {
  const int value = pPlace.get();
  const std::string text = valueText(pPlace.parameter(), value);
  pContext.out.line(
      pOptions.asJson ? OXJson({{"name", pName}, {"value", value}, {"text", text}}).text() : text);
}

/// Takes WHAT off the words, unless a parameter is named; pRest words are to be left.
const Setting* takeSetting(Options& pOptions, std::size_t pRest) {
  const bool isNamed = !pOptions.parameter.empty();
  if (pOptions.words.size() != pRest + (isNamed ? 0 : 1))
    throw OXUsageError(
        "give one setting (resolution, colorspace, fps, camera) or --parameter NAME" +
        std::string(pRest ? ", and one value" : ""));
  if (isNamed) return nullptr;
  const Setting* setting = &settingOf(pOptions.words.front());
  pOptions.words.erase(pOptions.words.begin());
  if (setting->parameter == kCameraSelectID && pOptions.camera)
    throw OXUsageError("the active camera is the device's or a subscriber's, not a camera's");
  return setting;
}

void runGet(Context& pContext, Options pOptions) {
  const Setting* setting = takeSetting(pOptions, 0);
  if (!setting) parseParameter(pOptions.parameter);
  OXSession session(pContext.broker, "get");
  Place place(session, pOptions, setting);
  report(pContext, pOptions, place, setting ? setting->word : pOptions.parameter);
}

void runSet(Context& pContext, Options pOptions) {
  const Setting* setting = takeSetting(pOptions, 1);
  const int parameter = setting ? setting->parameter : parseParameter(pOptions.parameter);
  const bool isDefault = pOptions.words.front() == "default";
  const int value = isDefault ? 0 : parseValue(parameter, pOptions.words.front());
  OXSession session(pContext.broker, "set");
  Place place(session, pOptions, setting);
  if (isDefault)
    place.setDefault();
  else
    place.set(value);
  report(pContext, pOptions, place, setting ? setting->word : pOptions.parameter);
}

void addOptions(OXVerb& pVerb, Options& pOptions, const char* pWords) {
  pVerb.option(pWords, pOptions.words,
               "resolution, colorspace, fps or camera (the active one); for set a value behind it, "
               "or \"default\"");
  pVerb
      .option("--parameter", pOptions.parameter,
              "a camera parameter instead: resolution, frame-rate, buffers, select, colorspace, "
              "or any number")
      .valueName("NAME");
  const OXOption subscriber =
      pVerb.option("--subscriber", pOptions.subscriber, "of this subscriber").valueName("ID");
  pVerb.option("--camera", pOptions.camera, "of this camera (default: the active one)")
      .valueName("N")
      .range(0, 255)
      .excludes(subscriber);
  pVerb.flag("--json", pOptions.asJson, "as JSON");
}

}  // namespace

void addGetAndSet(OXCommandLine& pLine, Context& pContext) {
  OXVerb get = addVerb(pLine, pContext,
                       {"get", "reads a setting of a camera or a subscriber",
                        "oxvideo get resolution --camera 0\n"
                        "  oxvideo get --parameter buffers --camera 0\n"
                        "  oxvideo get fps --subscriber myModule"});
  const auto getOptions = std::make_shared<Options>();
  addOptions(get, *getOptions, "SETTING");
  get.onRun([&pContext, getOptions] { runGet(pContext, *getOptions); });

  OXVerb set = addVerb(pLine, pContext,
                       {"set", "changes a setting and prints what it is now",
                        "oxvideo set resolution kVGA --camera 0\n"
                        "  oxvideo set --parameter frame-rate 15 --camera 0\n"
                        "  oxvideo set colorspace kHSY --subscriber myModule"});
  const auto setOptions = std::make_shared<Options>();
  addOptions(set, *setOptions, "SETTING");
  set.onRun([&pContext, setOptions] { runSet(pContext, *setOptions); });
}

}  // namespace OX::cli
