// The settings of a mono-stream subscriber, and the frame rate of any. A change waits for a held
// image, whose buffer it may reformat. The wait is without the lock and the subscriber's turn,
// which the release needs; after it everything is looked up again, because the subscriber may be
// gone.
#include <functional>

#include <oxframework/oxclock.h>
#include <oxframework/oxlog.h>
#include "subscriberturn.h"

namespace OX {
namespace {

constexpr int kReleasePasses = 100000;  // of 50 us: the 5 s in the record
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
// Two of the names begin with a capital, and one is another operation's: clients know them so.
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

/// A change of one of the settings that wait for a held image.
struct OXVisionVideoInput::SettingChange {
  const report::SubscriberTexts& texts;
  Family family;
  const char* invalidText;
  const char* whatChanges;  ///< "resolution", for the record of a change
  const char* timeoutEnd;   ///< ends the record of a wait that timed out
  int newValue;
  std::function<bool(int)> isValid;  ///< on a camera
  std::function<int(const Claim&)> oldValue;
  std::function<bool(const Claim&, int)> apply;  ///< is passed the old value
};

bool OXVisionVideoInput::xChangeSetting(const std::string& pId, const SettingChange& pChange,
                                        OXSourceLocation pWhere) {
  {
    // Misuse throws first, without having kept readers out.
    const OXCriticalSectionRead lock(fVisionModulesLock);
    xSubscriber(pId, pChange.family, pChange.texts, pWhere);
  }
  OXBoundedWait wait(kReleasePasses, kReleasePassUs);
  for (bool waits = true; waits;) {
    const OXCriticalSectionWrite lock(fVisionModulesLock);
    boost::shared_ptr<VisionModuleInfo> subscriber;
    std::uint64_t seen = 0;
    {
      const SubscriberTurn turn(*this, pId, pChange.family, pChange.texts, pWhere);
      const Claim claim = xCurrentClaim(turn, pChange.texts, pWhere);
      // In each pass, since the current camera may be another one by now.
      if (!pChange.isValid(claim.index))
        report::fail(getName(), pChange.texts.function, pChange.texts.method, pChange.invalidText,
                     pWhere);
      if (!claim.wish.fLockedImage) return xApplySetting(claim, pChange);
      subscriber = turn.subscriber();
      seen = subscriber->fReleased.count();
    }
    const OXCriticalSectionPause pause(fVisionModulesLock);
    waits = wait.again(subscriber->fReleased, seen);
  }
  report::log(ki::log::kError, pChange.texts.function,
              report::text(": ", pChange.texts.function, "(", pId,
                           "), video module didn't release the image for 5s",
                           ", so cancel the modification!", pChange.timeoutEnd));
  return false;
}

// The turn of the cameras first: a change that can't have it changes nothing.
bool OXVisionVideoInput::xApplySetting(const Claim& pClaim, const SettingChange& pChange) {
  const TurnScope change(fCamerasTurn, fVisionModulesLock);
  const int oldValue = pChange.oldValue(pClaim);
  // Logged also if the value is the same: clients know it so.
  report::log(
      ki::log::kInfo, pChange.texts.function,
      report::text(getName(), ": Changed ", pChange.whatChanges, " for subscriber \"",
                   pClaim.subscriber->fName, "\" from ", oldValue, " to ", pChange.newValue));
  return oldValue == pChange.newValue || pChange.apply(pClaim, oldValue);
}

bool OXVisionVideoInput::setResolution(const std::string& pId, const int& pResolution) {
  const auto apply = [&](const Claim& pClaim, int pOld) OX_REQUIRES(fVisionModulesLock) {
    if (pClaim.subscriber->fIsRecording)
      xCloseVideo(pClaim.subscriber, "its subscriber changed its resolution");
    pClaim.wish.fResolution = static_cast<std::uint8_t>(pResolution);
    OXImage* const image = xImageToReformat(pClaim, pOld, pClaim.wish.fColorSpace);
    if (!image) return true;  // the wish counts, but the camera does not follow: clients know it so
    image->setResolution(pResolution);
    return xFollowChange(pClaim.index, pOld, pResolution, pClaim.camera.fResolution);
  };
  return xChangeSetting(
      pId, {kSetResolution, Family::Mono, ": setResolution(): invalid resolution", "resolution", "",
            pResolution, [&](int pCamera) { return xIsResolutionValid(pResolution, pCamera); },
            [](const Claim& pClaim) -> int { return pClaim.wish.fResolution; }, apply});
}

bool OXVisionVideoInput::setColorSpace(const std::string& pId, const int& pColorSpace) {
  const auto apply = [&](const Claim& pClaim, int pOld) OX_REQUIRES(fVisionModulesLock) {
    if (pClaim.subscriber->fIsRecording)
      xCloseVideo(pClaim.subscriber, "its subscriber changed its color space");
    pClaim.wish.fColorSpace = static_cast<std::uint8_t>(pColorSpace);
    if (OXImage* const image = xImageToReformat(pClaim, pClaim.wish.fResolution, pOld))
      image->setColorSpace(pColorSpace);
    return true;
  };
  return xChangeSetting(
      pId, {kSetColorSpace, Family::Mono, ": setColorSpace(): invalid color space", "color space",
            "", pColorSpace, [&](int pCamera) { return xIsColorSpaceValid(pColorSpace, pCamera); },
            [](const Claim& pClaim) -> int { return pClaim.wish.fColorSpace; }, apply});
}

bool OXVisionVideoInput::setFrameRate(const std::string& pId, const int& pFrameRate) {
  const auto apply = [&](const Claim& pClaim, int pOld) OX_REQUIRES(fVisionModulesLock) {
    pClaim.subscriber->fFrameRate = static_cast<std::uint8_t>(pFrameRate);
    return xFollowChange(pClaim.index, pOld, pFrameRate, pClaim.camera.fFrameRate);
  };
  return xChangeSetting(
      pId,
      {kSetFrameRate, Family::Any, "setFrameRate(: setFrameRate(): invalid frame rate", "framerate",
       "\n", pFrameRate, [&](int pCamera) { return xIsFrameRateValid(pFrameRate, pCamera); },
       [](const Claim& pClaim) -> int { return pClaim.subscriber->fFrameRate; }, apply});
}

// Unlike the settings above this does not wait for a held image. No buffers are made: a mono-stream
// subscriber has them on every camera.
bool OXVisionVideoInput::setActiveCamera(const std::string& pId, const int& pCameraIndex) {
  if (!xCamera(pCameraIndex))
    report::fail(getName(), kSetActiveCamera.function, kSetActiveCamera.method,
                 "setActiveCamera(" + pId + ") : invalid Camera index");
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  const SubscriberTurn turn(*this, pId, Family::Mono, kSetActiveCamera);
  const TurnScope change(fCamerasTurn, fVisionModulesLock);
  VisionModuleInfo& subscriber = *turn.subscriber();
  const int camera = xCurrentCamera(subscriber);
  if (xCamera(camera) && subscriber.wish(camera).fLockedImage) {
    report::log(ki::log::kError, kSetActiveCamera.function,
                "setActiveCamera(): Buffer must release before changing camera");
    return false;
  }
  subscriber.fActiveCamera = pCameraIndex;
  // Both, since each may run at what no wish asks for any more.
  xUpdateParam(camera);
  xUpdateParam(pCameraIndex);
  return true;
}

int OXVisionVideoInput::getResolution(const std::string& pId) {
  const OXCriticalSectionRead lock(fVisionModulesLock);
  return xClaim(pId, Family::Mono, kGetResolution).wish.fResolution;
}

int OXVisionVideoInput::getColorSpace(const std::string& pId) {
  const OXCriticalSectionRead lock(fVisionModulesLock);
  return xClaim(pId, Family::Mono, kGetColorSpace).wish.fColorSpace;
}

int OXVisionVideoInput::getFrameRate(const std::string& pId) {
  const OXCriticalSectionRead lock(fVisionModulesLock);
  return xSubscriber(pId, Family::Any, kGetFrameRate)->fFrameRate;
}

int OXVisionVideoInput::getActiveCamera(const std::string& pId) {
  const OXCriticalSectionRead lock(fVisionModulesLock);
  return xCurrentCamera(*xSubscriber(pId, Family::Mono, kGetActiveCamera));
}

}  // namespace OX
