// Who subscribes, under which id, and how one goes.
#include <algorithm>
#include <boost/make_shared.hpp>
#include <new>

#include <oxframework/oxclock.h>
#include <oxframework/oxdefinitions.h>
#include <oxframework/oxerror.h>
#include <oxframework/oxlog.h>
#include <oxframework/oxvideo.h>
#include "oxvisionvideoinput.h"

namespace OX {
namespace {

constexpr int kMinFrameRate = 5;
constexpr int kMaxFrameRate = 255;  // what the record's byte holds
constexpr int kInstances = 8;       // of one name
constexpr int kLeavePasses = 20000;
constexpr unsigned int kLeavePassUs = 500;
constexpr unsigned int kWriteInProgressUs = 5000;

// How a list stands in a message: every entry with a blank behind it.
std::string listText(const std::vector<int>& pNumbers) {
  std::string list;
  for (const int number : pNumbers) list += std::to_string(number) + " ";
  return list;
}

int raiseToMinimum(int pFps, const char* pFunction) {
  if (pFps >= kMinFrameRate) return pFps;
  report::log(ki::log::kWarning, pFunction, "Fps must be superior to 5, force fps to 5");
  return kMinFrameRate;
}

std::uint8_t fitIntoRecord(int pFps, const char* pFunction) {
  if (pFps > kMaxFrameRate)
    report::log(ki::log::kWarning, pFunction,
                report::text("Fps ", pFps, " is more than a subscriber can have, force fps to ",
                             kMaxFrameRate));
  return static_cast<std::uint8_t>(std::min(pFps, kMaxFrameRate));
}

}  // namespace

void OXVisionVideoInput::xFailSubscription(const char* pMethod, const std::string& pName,
                                           const std::string& pText, bool pLog) const {
  const std::string message = "Could not subscribe module: " + pName + "\n" + pText;
  if (pLog) report::fail(getName(), pMethod, pMethod, message, __LINE__);
  report::raise(getName(), pMethod, message, __LINE__);
}

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
    if (pIsMultiStream)
      report::log(ki::log::kInfo, "subscribeCameras", getName() + ": subscribe: " + changed,
                  "vision.oxvisionatomcam");
    else
      report::log(ki::log::kInfo, "subscribeCamera",
                  getName() + ": subscribeVideoModule: " + changed);
  }
  return id;
}

boost::shared_ptr<VisionModuleInfo> OXVisionVideoInput::xAddSubscriber(
    const std::string& pId, const char* pMethod, int pFrameRate, int pResolution, int pColorSpace) {
  fRetired.clear();
  try {
    if (fVisionModules.size() >= static_cast<std::size_t>(std::max(fSubscriberLimit, 0)))
      throw std::bad_alloc();
    const auto module = boost::make_shared<VisionModuleInfo>();
    module->fName = pId;
    module->fFrameRate = fitIntoRecord(pFrameRate, pMethod);
    for (int i = 0; i < fNbCameras; ++i) {
      const auto wish = boost::make_shared<RequestedCameraProperties>();
      wish->fResolution = static_cast<std::uint8_t>(pResolution);
      wish->fColorSpace = static_cast<std::uint8_t>(pColorSpace);
      module->fRequestedProperties.push_back(wish);
    }
    fVisionModules[pId] = module;
    return module;
  } catch (const std::bad_alloc&) {
    fVisionModules.erase(pId);
    report::raise(getName(), pMethod, "Memory allocation failed.", __LINE__);
  }
}

void OXVisionVideoInput::xStartForSubscriber(int pCamera, int pResolution, int pFrameRate,
                                             const char* pMethod) {
  const RealCameraProperties& camera = *xCamera(pCamera);
  if (pResolution > camera.fResolution || pFrameRate > camera.fFrameRate) xUpdateParam(pCamera);
  if (!xStartFrameGrabber(pCamera))
    report::raise(getName(), pMethod, "Could not launch the startFrameGrabber function.", __LINE__);
}

// Without memory for all of the buffers the subscriber is not taken, and none are left behind.
void OXVisionVideoInput::xGiveBuffers(VisionModuleInfo& pModule, const std::vector<int>& pCameras,
                                      const char* pMethod) {
  for (std::size_t given = 0; given < pCameras.size(); ++given) {
    RequestedCameraProperties& wish =
        *pModule.fRequestedProperties[static_cast<std::size_t>(pCameras[given])];
    wish.fHasBuffers =
        xCreateBuffersForStoringImages(pCameras[given], wish.fResolution, wish.fColorSpace);
    if (wish.fHasBuffers) continue;
    while (given-- > 0) {
      RealCameraProperties& camera = *xCamera(pCameras[given]);
      camera.fImageBuffers.pop_back();
      camera.fRawBuffers.pop_back();
    }
    fVisionModules.erase(std::string(pModule.fName));
    report::raise(getName(), pMethod, "Memory allocation failed.", __LINE__);
  }
}

std::string OXVisionVideoInput::subscribe(const std::string& pName, const int& pResolution,
                                          const int& pColorSpace, const int& pFps) {
  return subscribeCamera(pName, -1, pResolution, pColorSpace, pFps);
}

std::string OXVisionVideoInput::subscribeCamera(const std::string& pName, const int& pCameraIndex,
                                                const int& pResolution, const int& pColorSpace,
                                                const int& pFps) {
  constexpr const char* kMethod = "subscribeCamera";
  int frameRate = raiseToMinimum(pFps, kMethod);
  if (pResolution == k4VGA) {
    report::log(ki::log::kInfo, kMethod,
                "FPS is decreased to 5 in HD. Use setFrameRate to increase it");
    frameRate = kMinFrameRate;
  }
  const int camera = pCameraIndex < 0 ? fActiveCamera.load() : pCameraIndex;
  if (!xIsResolutionValid(pResolution, camera)) {
    // The camera's present resolution, as a raw character: that is the text that clients know.
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
  const std::string id = xFindFreeId(pName, false);
  const auto module = xAddSubscriber(id, kMethod, frameRate, pResolution, pColorSpace);
  xStartForSubscriber(camera, pResolution, frameRate, kMethod);
  std::vector<int> all;
  for (int i = 0; i < fNbCameras; ++i) all.push_back(i);
  xGiveBuffers(*module, all, kMethod);
  module->fActiveCamera = std::max(pCameraIndex, -1);
  return id;
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
    if (!xCamera(pCameras[i])) report::raise(getName(), kMethod, "Unknown camera ID", __LINE__);
    if (!xIsResolutionValid(pResolutions[i], pCameras[i]))
      report::fail(getName(), kMethod, kMethod,
                   begin + listText(pResolutions) + " is an invalid Resolution; ", __LINE__);
    if (!xIsColorSpaceValid(pColorSpaces[i], pCameras[i]))
      report::fail(getName(), kMethod, kMethod,
                   begin + listText(pColorSpaces) + "is not a valid color space", __LINE__);
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
  int frameRate = raiseToMinimum(pFps, kMethod);
  for (const int resolution : resolutions) {
    if (resolution != k4VGA) continue;
    report::log(ki::log::kInfo, kMethod,
                "FPS is decreased to 5 in HD. Use setFrameRate to increase it");
    frameRate = kMinFrameRate;
  }
  xCheckStreams(pName, cameras, resolutions, colorSpaces);

  const OXCriticalSectionWrite lock(fVisionModulesLock);
  const std::string id = xFindFreeId(pName, true);
  const auto module = xAddSubscriber(id, kMethod, frameRate, kQVGA, kYUV422);
  module->fIsMultiStream = true;
  module->fActiveCameras = cameras;
  for (std::size_t i = 0; i < cameras.size(); ++i) {
    RequestedCameraProperties& wish =
        *module->fRequestedProperties[static_cast<std::size_t>(cameras[i])];
    wish.fResolution = static_cast<std::uint8_t>(resolutions[i]);
    wish.fColorSpace = static_cast<std::uint8_t>(colorSpaces[i]);
    module->fActiveCamera = cameras[i];
    xStartForSubscriber(cameras[i], resolutions[i], frameRate, kMethod);
  }
  module->fActiveCamera = cameras.front();
  xGiveBuffers(*module, cameras, kMethod);
  return id;
}

// The camera may come down if this subscriber was the one who kept it high.
void OXVisionVideoInput::xLowerCamera(const VisionModuleInfo& pModule, int pCamera) {
  const RealCameraProperties* const camera = xCamera(pCamera);
  if (!camera) return;
  const auto& wish = *pModule.fRequestedProperties[static_cast<std::size_t>(pCamera)];
  if (wish.fResolution == camera->fResolution || pModule.fFrameRate == camera->fFrameRate)
    xUpdateParam(pCamera);
}

void OXVisionVideoInput::xTakeBuffers(const boost::shared_ptr<VisionModuleInfo>& pModule,
                                      int pCamera) {
  RequestedCameraProperties& wish =
      *pModule->fRequestedProperties[static_cast<std::size_t>(pCamera)];
  pModule->fActiveCamera = pCamera;
  if (!wish.fHasBuffers) return;
  wish.fHasBuffers = false;
  xFindAndEraseTheOldestBuffer(xCamera(pCamera)->fImageBuffers, pModule);
  xFindAndEraseTheOldestBuffer(xCamera(pCamera)->fRawBuffers);
}

void OXVisionVideoInput::xLeaveMono(const boost::shared_ptr<VisionModuleInfo>& pModule,
                                    int pCamera) {
  fRetired.clear();
  xForceReleaseBuffer(pModule->fName);
  if (pModule->fIsRecording) xCloseVideo(pModule);
  for (int i = 0; i < fNbCameras; ++i) xTakeBuffers(pModule, i);
  xLowerCamera(*pModule, pCamera);
}

void OXVisionVideoInput::xLeaveMulti(const boost::shared_ptr<VisionModuleInfo>& pModule) {
  fRetired.clear();
  xForceReleaseBuffer(pModule->fName);
  for (const int camera : pModule->fActiveCameras) {
    xLowerCamera(*pModule, camera);
    xTakeBuffers(pModule, camera);
  }
}

void OXVisionVideoInput::unsubscribe(const std::string& pName) {
  // When the caller holds the lock already nobody could release meanwhile: no use in waiting.
  const bool mayWait = !fVisionModulesLock->isHeldForWriting();
  for (int passesLeft = kLeavePasses; passesLeft > 0; --passesLeft) {
    if (passesLeft < kLeavePasses) ki::os::usleep(kLeavePassUs);
    const OXCriticalSectionWrite lock(fVisionModulesLock);
    const auto found = fVisionModules.find(pName);
    if (found == fVisionModules.end())
      report::raise("OXVideoDevice", "unsubscribeVideoModule()",
                    "Cannot unsubscribe \"" + pName + "\": module unknown from OXVideoDevice.",
                    __LINE__);
    const boost::shared_ptr<VisionModuleInfo> module = found->second;
    const int camera = xCurrentCamera(*module);
    const bool holds = !module->fIsMultiStream && xCamera(camera) &&
                       module->fRequestedProperties[static_cast<std::size_t>(camera)]->fLockedImage;
    if (holds && (passesLeft == 2 || !mayWait)) {
      xForceReleaseBuffer(pName);
      report::log(ki::log::kWarning, "unsubscribe",
                  getName() + ": Forced release of image by \"" + pName +
                      "\" because it did not release the image after one second.");
    }
    if (holds && mayWait) continue;
    if (module->fIsMultiStream)
      xLeaveMulti(module);
    else
      xLeaveMono(module, camera);
    fVisionModules.erase(pName);
    return;
  }
  report::log(ki::log::kInfo, "unsubscribe", getName() + ": unregistered \"" + pName + "\"");
}

void OXVisionVideoInput::unsubscribeAllInstances(const std::string& pName) {
  constexpr int kLastSuffix = kInstances - 1;  // the eighth instance stays: clients rely on it
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  if (fVisionModules.count(pName)) unsubscribe(pName);
  for (int n = 2; n <= kLastSuffix; ++n) {
    const std::string id = pName + "_" + std::to_string(n);
    if (fVisionModules.count(id)) unsubscribe(id);
  }
}

void OXVisionVideoInput::onClientDisconnected(const std::string& pEventName, const OXValue& pValue,
                                              const std::string& /*pSubscriberId*/) {
  if (pEventName != "ClientDisconnected") return;
  if (pValue.toString() != "Gestura") return;
  {
    const OXCriticalSectionRead lock(fVisionModulesLock);
    if (fVisionModules.empty()) return;
  }
  try {
    unsubscribe("VideoMonitorGestura");
  } catch (const OXError& error) {
    report::log(ki::log::kWarning, "onClientDisconnected", error.what());
  }
}

bool OXVisionVideoInput::xCloseVideo(const boost::shared_ptr<VisionModuleInfo>& pInfo) {
  pInfo->fIsRecording = false;
  ki::os::usleep(kWriteInProgressUs);  // lets a write in progress end
  if (pInfo->fVideo) pInfo->fVideo->closeVideo();
  pInfo->fVideo.reset();
  return true;
}

}  // namespace OX
