// How a subscriber gets the newest pushed frame: converted once, lent without a copy, given back.
// All of it runs with fVisionModulesLock held for writing.
#include <oxframework/oxclock.h>
#include <oxframework/oxlog.h>
#include "oxvisionsimulatorcam.h"

namespace OX {
namespace {

constexpr int kFirstFramePasses = 2000;  // one second
constexpr unsigned int kFirstFramePassUs = 500;

void logError(const char* pFunction, const std::string& pText,
              const char* pCategory = kSimulatorCategory) {
  report::log(ki::log::kError, pFunction, pText, pCategory);
}

OXImage* refuseToLend(const std::string& pId) {
  logError("xGetDirectRawImage",
           "xGetDirectRawImage(" + pId + "): error trying to find available buffer.");
  return nullptr;
}

}  // namespace

bool OXVisionSimulatorCam::xWaitForFirstFrame(const CameraDriverBuffer& pStore,
                                              const std::string& pId) {
  for (int pass = 0; pass < kFirstFramePasses && pStore.fLastInputBuffer == -1; ++pass)
    ki::os::usleep(kFirstFramePassUs);
  if (pStore.fLastInputBuffer != -1) return true;
  logError("xGetDirectRawImage", getName() + ": Could not get image for subscriber \"" + pId +
                                     "\". Check that the simulator is running.");
  return false;
}

// The index of the newest frame, converted, with its count raised; -1 after a record.
// fMutex covers this and nothing else: the comparison of stamps lets one conversion serve all.
int OXVisionSimulatorCam::xMakeRawFrame(int pCamera, CameraDriverBuffer& pStore,
                                        const char* pOperation, const std::string& pId) {
  const OXCriticalSection lock(pStore.fMutex);
  const int newest = pStore.fLastInputBuffer;
  if (newest < 0) return -1;
  const OXImage& input = *pStore.fInputBuffers[static_cast<std::size_t>(newest)]->fImage;
  auto& frames = pStore.fDriverBuffers;
  const int last = pStore.fLastDriverBuffer;
  if (last >= 0 && frames[static_cast<std::size_t>(last)]->fImage->fTimeStamp == input.fTimeStamp) {
    ++frames[static_cast<std::size_t>(last)]->fReadLockCount;
    return last;
  }
  std::size_t target = 0;
  while (target < frames.size() && frames[target]->fReadLockCount > 0) ++target;
  if (target == frames.size()) {
    logError(pOperation,
             report::text(pOperation, "(", pId, "): no available raw buffer for writing image"));
    return -1;
  }
  OXVisionBuffer& frame = *frames[target];
  if (!xReSize(pCamera, input, *frame.fImage)) {
    logError(pOperation, report::text(pOperation, "(", pId, "): resizing error"));
    return -1;
  }
  frame.fImage->fTimeStamp = input.fTimeStamp;
  ++frame.fReadLockCount;
  pStore.fLastDriverBuffer = static_cast<int>(target);
  return pStore.fLastDriverBuffer;
}

// Null when all the camera's buffers are in use. The count of the frame stays raised then.
OXImage* OXVisionSimulatorCam::xLend(int pCamera, const boost::shared_ptr<OXVisionBuffer>& pFrame,
                                     RequestedCameraProperties& pWish) {
  OXVisionBuffer* const buffer = xLendFrame(pCamera, *pFrame->fImage, pFrame, pWish);
  if (!buffer) return nullptr;
  buffer->fImage->fCameraId = static_cast<std::int8_t>(pCamera);
  return buffer->fImage.get();
}

OXImage* OXVisionSimulatorCam::xGetDirectRawImage(const std::string& pId, bool /*pDeepCopy*/) {
  const VisionModuleInfo& module = *fVisionModules.at(pId);
  const int camera = xCurrentCamera(module);
  const auto store = xStore(camera);
  if (!store) {
    logError("xGetDirectRawImage",
             report::text("xGetDirectRawImage(", pId, "): invalid Camera index ", camera));
    return nullptr;
  }
  RequestedCameraProperties& wish = *module.fRequestedProperties[static_cast<std::size_t>(camera)];
  if (wish.fLockedImage) {
    logError("xGetDirectRawImage", getName() + ": Previous image for subscriber \"" + pId +
                                       "\" was  not released. Returning null image.");
    return nullptr;
  }
  // Who brought no buffers to this camera has nothing to be lent by: no frame is counted as held.
  if (!wish.fHasBuffers) return refuseToLend(pId);
  if (!xWaitForFirstFrame(*store, pId)) return nullptr;
  const int frame = xMakeRawFrame(camera, *store, "xGetDirectRawImage", pId);
  if (frame < 0) return nullptr;
  OXImage* const image =
      xLend(camera, store->fDriverBuffers[static_cast<std::size_t>(frame)], wish);
  return image ? image : refuseToLend(pId);
}

std::vector<OXImage*> OXVisionSimulatorCam::xGetDirectRawImages(const std::string& pId) {
  const VisionModuleInfo& module = *fVisionModules.at(pId);
  for (const int camera : module.fActiveCameras) {
    if (!module.fRequestedProperties[static_cast<std::size_t>(camera)]->fLockedImage) continue;
    logError("xGetDirectRawImages", report::text("Previous image ", camera, " was not released"),
             "vision.oxvisionatomcam");
    return {};
  }
  std::vector<OXImage*> images;
  for (const int camera : module.fActiveCameras) {
    const auto store = xStore(camera);
    if (!xWaitForFirstFrame(*store, pId)) break;
    const int frame = xMakeRawFrame(camera, *store, "xGetDirectRawImages", pId);
    if (frame < 0) break;
    images.push_back(xLend(camera, store->fDriverBuffers[static_cast<std::size_t>(frame)],
                           *module.fRequestedProperties[static_cast<std::size_t>(camera)]));
    if (!images.back())
      logError("xGetDirectRawImages",
               "OXVisionVideoInput::xGetDirectRawImages(" + pId +
                   ") : error trying to find available buffer.",
               "vision.oxvisionsimulator");
  }
  return images;
}

bool OXVisionSimulatorCam::xReleaseDirectRawImageDeep(const std::string& pId,
                                                      const int& pCameraIndex) {
  const auto found = fVisionModules.find(pId);
  if (found == fVisionModules.end()) {
    logError("xReleaseDirectRawImageDeep", "Module " + pId + " unknown!");
    return false;
  }
  if (!xCamera(pCameraIndex)) {
    logError("xReleaseDirectRawImageDeep", report::text("xReleaseDirectRawImageDeep(", pId,
                                                        "): invalid Camera index ", pCameraIndex));
    return false;
  }
  RequestedCameraProperties& wish =
      *found->second->fRequestedProperties[static_cast<std::size_t>(pCameraIndex)];
  if (wish.fLockedImage) xEndHold(pCameraIndex, wish);
  return true;
}

void OXVisionSimulatorCam::xReturnRawSource(int pCameraIndex, OXVisionBuffer& pBuffer) {
  pBuffer.fImage->fTimeStamp = -1;
  for (const auto& frame : xStore(pCameraIndex)->fDriverBuffers)
    if (frame == pBuffer.fRawSource) --frame->fReadLockCount;
  pBuffer.fRawSource.reset();
}

}  // namespace OX
