// What a subscriber may change of its wishes while it is subscribed, and what it may ask of them.
#include <functional>

#include <oxframework/oxclock.h>
#include <oxframework/oxlog.h>
#include "oxvisionvideoinput.h"

namespace OX {
namespace {

constexpr int kReleasePasses = 100000;  // of 50 us: the 5 s of the message
constexpr unsigned int kReleasePassUs = 50;

constexpr report::SubscriberTexts kSetResolution{
    "setResolution", "setResolution()", "setResolution(",
    "Multi stream module can't call this method, use setResolutions instead"};
constexpr report::SubscriberTexts kSetColorSpace{
    "setColorSpace", "setColorSpace()", "setColorSpace(",
    "Multi stream module can't call this method, use setColorSpaces instead"};
constexpr report::SubscriberTexts kSetFrameRate{"setFrameRate", "setFrameRate()", "setFrameRate(",
                                                nullptr};
constexpr report::SubscriberTexts kSetActiveCamera{
    "setActiveCamera", "setActiveCamera()", "setActiveCamera(",
    "Multi stream module can't call this method use setActiveCameras instead"};
// The two names that begin with a capital, one of them another operation's, are what clients know.
constexpr report::SubscriberTexts kGetResolution{
    "getResolution", "getResolution()", "GetActiveCamera(",
    "Multi stream module can't call this method, use getResolutions instead"};
constexpr report::SubscriberTexts kGetColorSpace{
    "getColorSpace", "getColorSpace()", "GetColorSpace(",
    "Multi stream module can't call this method, use getColorSpaces instead"};
constexpr report::SubscriberTexts kGetFrameRate{"getFrameRate", "getFrameRate()", "GetFrameRate(",
                                                nullptr};
constexpr report::SubscriberTexts kGetActiveCamera{
    "getActiveCamera", "getActiveCamera()", "getActiveCamera(",
    "Multi stream module can't call this method, use getActiveCameras instead"};

}  // namespace

/// One of the setters that wait for a held image.
struct OXVisionVideoInput::SettingChange {
  const report::SubscriberTexts& texts;
  Family family;
  const char* invalidText;
  const char* whatChanges;  ///< "resolution", for the record of a change
  const char* giveUpEnd;    ///< behind the text of a wait that was given up
  int newValue;
  std::function<bool(int)> isValid;                                                 ///< on a camera
  std::function<int(const VisionModuleInfo&, int)> oldValue;                        ///< on a camera
  std::function<bool(const boost::shared_ptr<VisionModuleInfo>&, int, int)> apply;  ///< old value
};

bool OXVisionVideoInput::xChangeSetting(const std::string& pName, const SettingChange& pChange) {
  {
    const OXCriticalSectionRead lock(fVisionModulesLock);
    xSubscriber(pName, pChange.family, pChange.texts);
  }
  for (int pass = 0; pass < kReleasePasses; ++pass) {
    if (pass > 0) ki::os::usleep(kReleasePassUs);  // without the lock: the release needs it
    const OXCriticalSectionWrite lock(fVisionModulesLock);
    const auto module = xSubscriber(pName, pChange.family, pChange.texts);
    const int camera = xCheckedCurrentCamera(*module, pChange.texts.function);
    if (!pChange.isValid(camera))
      report::fail(getName(), pChange.texts.function, pChange.texts.method, pChange.invalidText,
                   __LINE__);
    if (module->fRequestedProperties[static_cast<std::size_t>(camera)]->fLockedImage) continue;
    const int oldValue = pChange.oldValue(*module, camera);
    report::log(ki::log::kInfo, pChange.texts.function,
                report::text(getName(), ": Changed ", pChange.whatChanges, " for subscriber \"",
                             pName, "\" from ", oldValue, " to ", pChange.newValue));
    return oldValue == pChange.newValue || pChange.apply(module, camera, oldValue);
  }
  report::log(ki::log::kError, pChange.texts.function,
              report::text(": ", pChange.texts.function, "(", pName,
                           "), video module didn't release the image for 5s",
                           ", so cancel the modification!", pChange.giveUpEnd));
  return false;
}

// The camera follows when the new wish is its highest, or the old one was.
bool OXVisionVideoInput::xFollowChange(int pCamera, int pOld, int pNew, int pReal) {
  if (pNew > pReal || (pNew < pReal && pOld == pReal)) return xUpdateParam(pCamera);
  return true;
}

bool OXVisionVideoInput::setResolution(const std::string& pName, const int& pResolution) {
  const auto apply = [&](const boost::shared_ptr<VisionModuleInfo>& pModule, int pCamera,
                         int pOld) {
    if (pModule->fIsRecording) xCloseVideo(pModule);
    RequestedCameraProperties& wish =
        *pModule->fRequestedProperties[static_cast<std::size_t>(pCamera)];
    wish.fResolution = static_cast<std::uint8_t>(pResolution);
    OXImage* const image = xImageToReformat(pCamera, pOld, wish.fColorSpace);
    if (!image) return true;
    image->setResolution(pResolution);
    return xFollowChange(pCamera, pOld, pResolution, xCamera(pCamera)->fResolution);
  };
  return xChangeSetting(
      pName,
      {kSetResolution, Family::Mono, ": setResolution(): invalid resolution", "resolution", "",
       pResolution, [&](int pCamera) { return xIsResolutionValid(pResolution, pCamera); },
       [](const VisionModuleInfo& pModule, int pCamera) -> int {
         return pModule.fRequestedProperties[static_cast<std::size_t>(pCamera)]->fResolution;
       },
       apply});
}

bool OXVisionVideoInput::setColorSpace(const std::string& pName, const int& pColorSpace) {
  const auto apply = [&](const boost::shared_ptr<VisionModuleInfo>& pModule, int pCamera,
                         int pOld) {
    if (pModule->fIsRecording) xCloseVideo(pModule);
    RequestedCameraProperties& wish =
        *pModule->fRequestedProperties[static_cast<std::size_t>(pCamera)];
    wish.fColorSpace = static_cast<std::uint8_t>(pColorSpace);
    if (OXImage* const image = xImageToReformat(pCamera, wish.fResolution, pOld))
      image->setColorSpace(pColorSpace);
    return true;
  };
  return xChangeSetting(
      pName,
      {kSetColorSpace, Family::Mono, ": setColorSpace(): invalid color space", "color space", "",
       pColorSpace, [&](int pCamera) { return xIsColorSpaceValid(pColorSpace, pCamera); },
       [](const VisionModuleInfo& pModule, int pCamera) -> int {
         return pModule.fRequestedProperties[static_cast<std::size_t>(pCamera)]->fColorSpace;
       },
       apply});
}

bool OXVisionVideoInput::setFrameRate(const std::string& pName, const int& pFrameRate) {
  const auto apply = [&](const boost::shared_ptr<VisionModuleInfo>& pModule, int pCamera,
                         int pOld) {
    pModule->fFrameRate = static_cast<std::uint8_t>(pFrameRate);
    return xFollowChange(pCamera, pOld, pFrameRate, xCamera(pCamera)->fFrameRate);
  };
  return xChangeSetting(
      pName,
      {kSetFrameRate, Family::Any, "setFrameRate(: setFrameRate(): invalid frame rate", "framerate",
       "\n", pFrameRate, [&](int pCamera) { return xIsFrameRateValid(pFrameRate, pCamera); },
       [](const VisionModuleInfo& pModule, int) -> int { return pModule.fFrameRate; }, apply});
}

bool OXVisionVideoInput::setActiveCamera(const std::string& pName, const int& pCameraIndex) {
  if (!xCamera(pCameraIndex))
    report::fail(getName(), kSetActiveCamera.function, kSetActiveCamera.method,
                 "setActiveCamera(" + pName + ") : invalid Camera index", __LINE__);
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  const auto module = xSubscriber(pName, Family::Mono, kSetActiveCamera);
  const int camera = xCurrentCamera(*module);
  if (xCamera(camera) &&
      module->fRequestedProperties[static_cast<std::size_t>(camera)]->fLockedImage) {
    report::log(ki::log::kError, kSetActiveCamera.function,
                "setActiveCamera(): Buffer must release before changing camera");
    return false;
  }
  module->fActiveCamera = pCameraIndex;
  xUpdateParam(camera);
  xUpdateParam(pCameraIndex);
  return true;
}

int OXVisionVideoInput::getResolution(const std::string& pName) {
  const OXCriticalSectionRead lock(fVisionModulesLock);
  const auto module = xSubscriber(pName, Family::Mono, kGetResolution);
  const int camera = xCheckedCurrentCamera(*module, kGetResolution.function);
  return module->fRequestedProperties[static_cast<std::size_t>(camera)]->fResolution;
}

int OXVisionVideoInput::getColorSpace(const std::string& pName) {
  const OXCriticalSectionRead lock(fVisionModulesLock);
  const auto module = xSubscriber(pName, Family::Mono, kGetColorSpace);
  const int camera = xCheckedCurrentCamera(*module, kGetColorSpace.function);
  return module->fRequestedProperties[static_cast<std::size_t>(camera)]->fColorSpace;
}

int OXVisionVideoInput::getFrameRate(const std::string& pName) {
  const OXCriticalSectionRead lock(fVisionModulesLock);
  return xSubscriber(pName, Family::Any, kGetFrameRate)->fFrameRate;
}

int OXVisionVideoInput::getActiveCamera(const std::string& pName) {
  const OXCriticalSectionRead lock(fVisionModulesLock);
  return xCurrentCamera(*xSubscriber(pName, Family::Mono, kGetActiveCamera));
}

}  // namespace OX
