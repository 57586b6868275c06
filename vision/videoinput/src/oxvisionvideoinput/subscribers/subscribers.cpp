// Subscribing and unsubscribing. A subscriber in the map has a wish for every camera of the device,
// and a pair of buffers on each camera where fHasBuffers says so: the pools hold exactly those
// pairs, which is why a lack of memory must leave none behind.
#include <algorithm>
#include <boost/make_shared.hpp>
#include <new>
#include <numeric>

#include <oxframework/oxclock.h>
#include <oxframework/oxdefinitions.h>
#include <oxframework/oxerror.h>
#include <oxframework/oxlog.h>
#include "claim.h"
#include "oxvisionvideoinput.h"

namespace OX {
namespace {

constexpr int kMinFrameRate = 5;
constexpr int kMaxFrameRate = 255;  // the record has a byte
constexpr int kInstances = 8;       // of one name
// 10 s in all, although the record says one second: clients know it so.
constexpr int kUnsubscribePasses = 20000;
constexpr unsigned int kUnsubscribePassUs = 500;

// A list as the messages show it: every entry followed by a blank.
std::string listText(const std::vector<int>& pNumbers) {
  std::string list;
  for (const int number : pNumbers) list += std::to_string(number) + " ";
  return list;
}

// A larger rate would wrap to a smaller one, even to 0.
std::uint8_t fitIntoRecord(int pFps, const char* pFunction) {
  if (pFps > kMaxFrameRate)
    report::log(ki::log::kWarning, pFunction,
                report::text("Fps ", pFps, " is more than a subscriber can have, force fps to ",
                             kMaxFrameRate));
  return static_cast<std::uint8_t>(std::min(pFps, kMaxFrameRate));
}

}  // namespace

int OXVisionVideoInput::xRaiseToMinimum(int pFps, const char* pFunction) {
  if (pFps >= kMinFrameRate) return pFps;
  report::log(ki::log::kWarning, pFunction, "Fps must be superior to 5, force fps to 5");
  return kMinFrameRate;
}

// Refusals of one stream are only thrown, those of several are logged too: clients know it so.
void OXVisionVideoInput::xFailSubscription(const char* pMethod, const std::string& pName,
                                           const std::string& pText, bool pLog) const {
  const std::string message = "Could not subscribe module: " + pName + "\n" + pText;
  if (pLog) report::fail(getName(), pMethod, pMethod, message);
  report::raise(getName(), pMethod, message);
}

// The lowest free suffix: ids of subscribers that are gone are used again.
std::string OXVisionVideoInput::xFindFreeId(const std::string& pName, bool pIsMultiStream) {
  std::string id = pName;
  int next = 2;
  for (; fVisionModules.count(id); ++next) {
    if (next > kInstances)
      xFailSubscription(pIsMultiStream ? "subscribeCameras" : "subscribeCamera", pName,
                        "8 instance of : " + pName +
                            " have already subscribe to the video.\n"
                            "Please unsubscribe before subscribing again this module.",
                        pIsMultiStream);
    id = pName + "_" + std::to_string(next);
  }
  if (next > 2) {
    const std::string changed = "Name already in use. Id changed to \"" + id + "\"";
    // Text and category differ between the families: clients know them so.
    if (pIsMultiStream)
      report::log(ki::log::kInfo, "subscribeCameras", getName() + ": subscribe: " + changed,
                  "vision.oxvisionatomcam");
    else
      report::log(ki::log::kInfo, "subscribeCamera",
                  getName() + ": subscribeVideoModule: " + changed);
  }
  return id;
}

// What is asked for frames is noted apart from the wishes, which others may change. A service that
// delivers frames owns its subscribers by itself, and not by the call that is under way.
boost::shared_ptr<VisionModuleInfo> OXVisionVideoInput::xAddSubscriber(
    const std::string& pId, const char* pMethod, int pFrameRate, int pResolution, int pColorSpace,
    Purpose pPurpose) {
  try {
    // The limit is reported as exhausted memory, an error that clients know.
    if (fVisionModules.size() >= static_cast<std::size_t>(std::max(fSubscriberLimit, 0)))
      throw std::bad_alloc();
    auto subscriber = boost::make_shared<VisionModuleInfo>();
    subscriber->fName = pId;
    subscriber->fFrameRate = fitIntoRecord(pFrameRate, pMethod);
    if (pPurpose == Purpose::kImages) subscriber->fAcquisition = getAcquisition();
    if (pPurpose == Purpose::kFrames) subscriber->fStreamRate = subscriber->fFrameRate;
    for (int i = 0; i < fNbCameras; ++i) {
      const auto wish = boost::make_shared<RequestedCameraProperties>();
      wish->fResolution = static_cast<std::uint8_t>(pResolution);
      wish->fColorSpace = static_cast<std::uint8_t>(pColorSpace);
      subscriber->fRequestedProperties.push_back(wish);
    }
    fVisionModules[pId] = subscriber;
    return subscriber;
  } catch (const std::bad_alloc&) {
    fVisionModules.erase(pId);
    report::raise(getName(), pMethod, "Memory allocation failed.");
  }
}

// The subscriber is in the map already, so an update of the camera counts it. If the grabber does
// not start, the subscriber stays, without buffers, until it unsubscribes.
void OXVisionVideoInput::xStartForSubscriber(int pCamera, int pResolution, int pFrameRate,
                                             const char* pMethod) {
  const RealCameraProperties& camera = *xCamera(pCamera);
  if (pResolution > camera.fResolution || pFrameRate > camera.fFrameRate) xUpdateParam(pCamera);
  if (!xStartFrameGrabber(pCamera))
    report::raise(getName(), pMethod, "Could not launch the startFrameGrabber function.");
}

// A client of images ends what it failed to subscribe, or its connection does. Of a stream nobody
// knows the id.
void OXVisionVideoInput::xAbandon(const boost::shared_ptr<VisionModuleInfo>& pSubscriber,
                                  Purpose pPurpose) {
  if (pPurpose == Purpose::kFrames && !pSubscriber->fIsUnsubscribed) xEndSubscriber(pSubscriber);
}

// All or nothing: without memory for every buffer, the subscription fails and those that were made
// are removed. They are the last of their pools, since the lock is held.
void OXVisionVideoInput::xCreateBuffers(VisionModuleInfo& pSubscriber,
                                        const std::vector<int>& pCameras, const char* pMethod) {
  for (std::size_t made = 0; made < pCameras.size(); ++made) {
    RequestedCameraProperties& wish = pSubscriber.wish(pCameras[made]);
    wish.fHasBuffers =
        xCreateBuffersForStoringImages(pCameras[made], wish.fResolution, wish.fColorSpace);
    if (wish.fHasBuffers) continue;
    while (made-- > 0) {
      RealCameraProperties& camera = *xCamera(pCameras[made]);
      camera.fImageBuffers.pop_back();
      camera.fRawBuffers.pop_back();
    }
    xForget(pSubscriber);  // shared by the caller
    report::raise(getName(), pMethod, "Memory allocation failed.");
  }
}

void OXVisionVideoInput::xForget(VisionModuleInfo& pSubscriber) {
  pSubscriber.fIsUnsubscribed = true;
  fVisionModules.erase(pSubscriber.fName);
  xTellSubscriberEnded();
}

std::string OXVisionVideoInput::subscribe(const std::string& pName, const int& pResolution,
                                          const int& pColorSpace, const int& pFps) {
  return subscribeCamera(pName, -1, pResolution, pColorSpace, pFps);
}

std::string OXVisionVideoInput::subscribeCamera(const std::string& pName, const int& pCameraIndex,
                                                const int& pResolution, const int& pColorSpace,
                                                const int& pFps) {
  constexpr const char* kMethod = "subscribeCamera";
  int frameRate = xRaiseToMinimum(pFps, kMethod);
  if (pResolution == k4VGA) {
    report::log(ki::log::kInfo, kMethod,
                "FPS is decreased to 5 in HD. Use setFrameRate to increase it");
    frameRate = kMinFrameRate;
  }
  return xSubscribeCamera(pName, pCameraIndex, pResolution, pColorSpace, frameRate,
                          Purpose::kImages)
      ->fName;
}

boost::shared_ptr<VisionModuleInfo> OXVisionVideoInput::xSubscribeCamera(
    const std::string& pName, int pCameraIndex, int pResolution, int pColorSpace, int pFrameRate,
    Purpose pPurpose) {
  constexpr const char* kMethod = "subscribeCamera";
  const int camera = pCameraIndex < 0 ? fActiveCamera.load() : pCameraIndex;
  // In this order: the first thing that is wrong is what the error says.
  if (!xIsResolutionValid(pResolution, camera)) {
    // The camera's current resolution, as a raw character: clients know the text so.
    const RealCameraProperties* const real = xCamera(camera);
    xFailSubscription(kMethod, pName,
                      report::text(pResolution, " is an invalid Resolution; ",
                                   "current device max resolution is ",
                                   static_cast<char>(real ? real->fResolution.load() : 0)),
                      false);
  }
  if (!xIsColorSpaceValid(pColorSpace, camera))
    xFailSubscription(kMethod, pName, report::text(pColorSpace, "is not a valid color space"),
                      false);
  if (!xCamera(camera))
    xFailSubscription(kMethod, pName, report::text(camera, "is not a valid camera index"), false);

  const OXCriticalSectionWrite lock(fVisionModulesLock);
  xFreeRetired();
  const TurnScope change(fCamerasTurn, fVisionModulesLock);
  auto subscriber = xAddSubscriber(xFindFreeId(pName, false), kMethod, pFrameRate, pResolution,
                                   pColorSpace, pPurpose);
  const TurnScope turn(subscriber->fTurn,
                       fVisionModulesLock);  // it is in the map, but not yet whole
  if (pPurpose == Purpose::kFrames) subscriber->wish(camera).demandAsWished();
  try {
    xStartForSubscriber(camera, pResolution, pFrameRate, kMethod);
    // On every camera, since setActiveCamera moves the subscriber without making any.
    std::vector<int> all(static_cast<std::size_t>(fNbCameras));
    std::iota(all.begin(), all.end(), 0);
    xCreateBuffers(*subscriber, all, kMethod);
  } catch (...) {
    xAbandon(subscriber, pPurpose);
    throw;
  }
  // -1 for every negative index, since other operations compare with that.
  subscriber->fActiveCamera = std::max(pCameraIndex, -1);
  return subscriber;
}

void OXVisionVideoInput::xCheckSubscribeCameras(const std::string& pName,
                                                const std::vector<int>& pCameras,
                                                const std::vector<int>& pResolutions,
                                                const std::vector<int>& pColorSpaces) const {
  constexpr const char* kMethod = "subscribeCameras";
  if (pCameras.empty() || pResolutions.empty() || pColorSpaces.empty())
    xFailSubscription(kMethod, pName, "Some input parameters are empty", true);
  if (pCameras.size() != pResolutions.size() || pCameras.size() != pColorSpaces.size())
    xFailSubscription(kMethod, pName, "Input parameters have not the same size", true);
  std::vector<int> distinct = pCameras;
  std::sort(distinct.begin(), distinct.end());
  distinct.erase(std::unique(distinct.begin(), distinct.end()), distinct.end());
  if (distinct.size() < pCameras.size())
    xFailSubscription(kMethod, pName,
                      report::text("Invalid input parameters, list contains ", pCameras.size(),
                                   " elements but only ", distinct.size(), " different elements",
                                   " (using several time the same camera is forbidden)"),
                      true);
}

void OXVisionVideoInput::xCheckStreams(const std::string& pName, const std::vector<int>& pCameras,
                                       const std::vector<int>& pResolutions,
                                       const std::vector<int>& pColorSpaces) const {
  constexpr const char* kMethod = "subscribeCameras";
  const std::string begin = "Could not subscribe module: " + pName;
  for (std::size_t i = 0; i < pCameras.size(); ++i) {
    if (!xCamera(pCameras[i])) report::raise(getName(), kMethod, "Unknown camera ID");
    if (!xIsResolutionValid(pResolutions[i], pCameras[i]))
      report::fail(getName(), kMethod, kMethod,
                   begin + listText(pResolutions) + " is an invalid Resolution; ");
    if (!xIsColorSpaceValid(pColorSpaces[i], pCameras[i]))
      report::fail(getName(), kMethod, kMethod,
                   begin + listText(pColorSpaces) + "is not a valid color space");
  }
}

std::string OXVisionVideoInput::subscribeCameras(const std::string& pName,
                                                 const OXValue& pCameraIndexes,
                                                 const OXValue& pResolutions,
                                                 const OXValue& pColorSpaces, const int& pFps) {
  constexpr const char* kMethod = "subscribeCameras";
  const std::vector<int> cameras = pCameraIndexes.toIntVector();
  const std::vector<int> resolutions = pResolutions.toIntVector();
  const std::vector<int> colorSpaces = pColorSpaces.toIntVector();
  xCheckSubscribeCameras(pName, cameras, resolutions, colorSpaces);
  int frameRate = xRaiseToMinimum(pFps, kMethod);
  for (const int resolution : resolutions) {
    if (resolution != k4VGA) continue;
    report::log(ki::log::kInfo, kMethod,
                "FPS is decreased to 5 in HD. Use setFrameRate to increase it");
    frameRate = kMinFrameRate;
  }
  return xSubscribeCameras(pName, cameras, resolutions, colorSpaces, frameRate, Purpose::kImages)
      ->fName;
}

boost::shared_ptr<VisionModuleInfo> OXVisionVideoInput::xSubscribeCameras(
    const std::string& pName, const std::vector<int>& pCameras,
    const std::vector<int>& pResolutions, const std::vector<int>& pColorSpaces, int pFrameRate,
    Purpose pPurpose) {
  constexpr const char* kMethod = "subscribeCameras";
  xCheckStreams(pName, pCameras, pResolutions, pColorSpaces);

  const OXCriticalSectionWrite lock(fVisionModulesLock);
  xFreeRetired();
  const TurnScope change(fCamerasTurn, fVisionModulesLock);
  auto subscriber =
      xAddSubscriber(xFindFreeId(pName, true), kMethod, pFrameRate, kQVGA, kYUV422, pPurpose);
  const TurnScope turn(subscriber->fTurn, fVisionModulesLock);
  subscriber->fIsMultiStream = true;
  subscriber->fActiveCameras = pCameras;
  try {
    for (std::size_t i = 0; i < pCameras.size(); ++i) {
      RequestedCameraProperties& wish = subscriber->wish(pCameras[i]);
      wish.fResolution = static_cast<std::uint8_t>(pResolutions[i]);
      wish.fColorSpace = static_cast<std::uint8_t>(pColorSpaces[i]);
      if (pPurpose == Purpose::kFrames) wish.demandAsWished();
      subscriber->fActiveCamera = pCameras[i];
      xStartForSubscriber(pCameras[i], pResolutions[i], pFrameRate, kMethod);
    }
    // What both families may do, such as setFrameRate, works on the first camera.
    subscriber->fActiveCamera = pCameras.front();
    xCreateBuffers(*subscriber, pCameras, kMethod);
  } catch (...) {
    xAbandon(subscriber, pPurpose);
    throw;
  }
  return subscriber;
}

// The current camera becomes the one whose buffers were removed last: clients know it so.
void OXVisionVideoInput::xRemoveBuffers(const Claim& pClaim) {
  pClaim.subscriber->fActiveCamera = pClaim.index;
  if (!pClaim.wish.fHasBuffers) return;
  pClaim.wish.fHasBuffers = false;
  xFindAndEraseTheOldestBuffer(pClaim.camera.fImageBuffers, pClaim.wish);
  xFindAndEraseTheOldestBuffer(pClaim.camera.fRawBuffers);
}

// Holds end before buffers are removed: a held buffer is not free, and another one would go in its
// place. The camera is lowered while the subscriber is still in the map, where its wishes count.
void OXVisionVideoInput::xUnsubscribeMono(const boost::shared_ptr<VisionModuleInfo>& pSubscriber,
                                          int pCamera) {
  xFreeRetired();
  xReleaseAllConverted(pSubscriber);
  if (pSubscriber->fIsRecording) xCloseVideo(pSubscriber, "its subscriber left");
  for (int i = 0; i < fNbCameras; ++i) xRemoveBuffers(xClaim(pSubscriber, i));
  if (xCamera(pCamera)) xLowerCamera(xClaim(pSubscriber, pCamera));
}

void OXVisionVideoInput::xUnsubscribeMulti(const boost::shared_ptr<VisionModuleInfo>& pSubscriber) {
  xFreeRetired();
  xReleaseAllConverted(pSubscriber);
  for (const int camera : pSubscriber->fActiveCameras) {
    const Claim claim = xClaim(pSubscriber, camera);
    xLowerCamera(claim);
    xRemoveBuffers(claim);
  }
}

// A caller that has the lock is in the middle of a change of its own: a wait of seconds for a
// client doesn't belong there.
void OXVisionVideoInput::unsubscribe(const std::string& pId) {
  const bool mayWait = !fVisionModulesLock->isHeldForWriting();
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  xUnsubscribe(pId, mayWait);
}

void OXVisionVideoInput::xUnsubscribe(const std::string& pId, bool pMayWait) {
  OXBoundedWait wait(kUnsubscribePasses, kUnsubscribePassUs);
  for (;;) {
    if (!xFind(pId))
      report::raise("OXVideoDevice", "unsubscribeVideoModule()",
                    "Cannot unsubscribe \"" + pId + "\": module unknown from OXVideoDevice.");
    const boost::shared_ptr<VisionModuleInfo> subscriber = *xFind(pId);
    const std::uint64_t seen = subscriber->fReleased.count();
    {
      const TurnScope turn(subscriber->fTurn, fVisionModulesLock);
      if (subscriber->fIsUnsubscribed) continue;  // by another thread, meanwhile
      const bool holds = xHoldsCurrentImage(*subscriber);
      if (holds && !pMayWait) xForceRelease(pId);
      if (!holds || !pMayWait) return xRemove(subscriber);
    }
    const OXCriticalSectionPause pause(fVisionModulesLock);
    pMayWait = wait.again(subscriber->fReleased, seen);
  }
}

void OXVisionVideoInput::xForceRelease(const std::string& pId) {
  xForceReleaseBuffer(pId);
  report::log(ki::log::kWarning, "unsubscribe",
              getName() + ": Forced release of image by \"" + pId +
                  "\" because it did not release the image after one second.");
}

// Only a subscriber of one stream is waited for.
bool OXVisionVideoInput::xHoldsCurrentImage(const VisionModuleInfo& pSubscriber) const {
  const int camera = xCurrentCamera(pSubscriber);
  return !pSubscriber.fIsMultiStream && xCamera(camera) && pSubscriber.wish(camera).fLockedImage;
}

void OXVisionVideoInput::xRemove(const boost::shared_ptr<VisionModuleInfo>& pSubscriber) {
  // First, like all that can fail here: a subscriber that can't be removed stays as it is.
  const TurnScope change(fCamerasTurn, fVisionModulesLock);
  if (pSubscriber->fIsMultiStream)
    xUnsubscribeMulti(pSubscriber);
  else
    xUnsubscribeMono(pSubscriber, xCurrentCamera(*pSubscriber));
  xForget(*pSubscriber);
}

void OXVisionVideoInput::unsubscribeAllInstances(const std::string& pName) {
  constexpr int kLastSuffix = kInstances - 1;  // the eighth one stays: clients rely on it
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  for (int n = 1; n <= kLastSuffix; ++n) {
    const std::string id = n == 1 ? pName : pName + "_" + std::to_string(n);
    if (!xFind(id)) continue;
    try {
      xUnsubscribe(id, false);
    } catch (const OXError&) {
      // One that has left by itself while its turn was waited for is what was asked for.
      if (xFind(id)) throw;
    }
  }
}

void OXVisionVideoInput::onClientDisconnected(const std::string& pEventName, const OXValue& pValue,
                                              const std::string& /*pSubscriberId*/) {
  // Only this client is cleaned up after: all others keep their subscriptions.
  if (pEventName != "ClientDisconnected") return;
  if (pValue.toString() != "Gestura") return;
  {
    // Without any subscriber its absence is not worth a record.
    const OXCriticalSectionRead lock(fVisionModulesLock);
    if (fVisionModules.empty()) return;
  }
  try {
    unsubscribe("VideoMonitorGestura");
  } catch (const OXError& error) {
    report::log(ki::log::kWarning, "onClientDisconnected", error.what());
  }
}

}  // namespace OX
