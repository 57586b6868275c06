// Converts the newest pushed frame, once for all subscribers, and lends the result without a copy.
// Conversion is left to the first request, since most pushed frames are never asked for. All of it
// runs with fVisionModulesLock held for writing, which guards the read counts of the frames.
#include <oxframework/oxclock.h>
#include <oxframework/oxdefinitions.h>
#include <oxframework/oxlog.h>
#include "buffers/lending.h"
#include "claim.h"
#include "oxvisionsimulatorcam.h"
#include "pixels/resample/resampling.h"

namespace OX {
namespace {

constexpr int kFirstFramePasses = 2000;  // one second
constexpr unsigned int kFirstFramePassUs = 500;

void logError(const char* pFunction, const std::string& pText,
              const char* pCategory = kSimulatorCategory) {
  report::log(ki::log::kError, pFunction, pText, pCategory);
}

std::string notReleased(const std::string& pModule, const std::string& pId) {
  return pModule + ": Previous image for subscriber \"" + pId +
         "\" was  not released. Returning null image.";
}

std::string unknownAtRelease(const std::string& pId) { return "Module " + pId + " unknown!"; }

constexpr LendingTexts kTexts{kSimulatorCategory, "): ", "xReleaseDirectRawImageDeep", notReleased,
                              unknownAtRelease};

}  // namespace

// Polled, because a push wakes nobody. The lock that is held meanwhile keeps out other requests,
// but not the push that ends the wait.
bool OXVisionSimulatorCam::xWaitForFirstFrame(const CameraDriverBuffer& pStore,
                                              const std::string& pId) {
  for (int pass = 0; pass < kFirstFramePasses && pStore.fLastInputBuffer == -1; ++pass)
    ki::os::usleep(kFirstFramePassUs);
  if (pStore.fLastInputBuffer != -1) return true;
  logError("xGetDirectRawImage", getName() + ": Could not get image for subscriber \"" + pId +
                                     "\". Check that the simulator is running.");
  return false;
}

// Converts a pushed RGB frame to a YUV422 frame of the camera's resolution.
bool OXVisionSimulatorCam::xReSize(const RealCameraProperties& pCamera,
                                   const CameraDriverBuffer& pStore, const OXImage& pSource,
                                   OXImage& pTarget) {
  const int in = pStore.fInputResolution;
  const int width = pSource.fWidth;
  const int height = pSource.fHeight;
  if (in == pCamera.fResolution) {
    resampling::rgbToYuv422(pSource.fData, width, height, pTarget.fData);
    return true;
  }
  // The target size is that of the device's active camera, not of pCamera: on purpose. If that
  // makes source and target equal in size, the frame is refused.
  const RealCameraProperties* const active = xCamera(fActiveCamera);
  const int out = active ? active->fResolution.load() : -1;
  if (in < kQQVGA || in > k4VGA) {
    report::log(ki::log::kError, "xReSize", "Simulator native resolution unsupported",
                kSimulatorCategory);
    return false;
  }
  if (out < kQQVGA || out > k4VGA || out == in) return false;
  int outWidth = 0;
  int outHeight = 0;
  setSizeFromResolution(out, outWidth, outHeight);
  const std::size_t needed =
      static_cast<std::size_t>(outWidth) * static_cast<std::size_t>(outHeight) * 2;
  if (needed > pTarget.fCapacityBytes) return false;
  return out < in
             ? resampling::subSample(1 << (in - out), width, height, pSource.fData, pTarget.fData)
             : resampling::overSample(1 << (out - in), width, height, pSource.fData, pTarget.fData);
}

// Of a request, only this holds fMutex. A converted frame with the time stamp of the newest
// pushed one is that frame, so one conversion serves all.
int OXVisionSimulatorCam::xMakeRawFrame(const Claim& pClaim, CameraDriverBuffer& pStore,
                                        const char* pOperation) {
  const std::string& id = pClaim.subscriber->fName;
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
  // Any frame that is lent to nobody: the last converted one too, since it is out of date.
  std::size_t target = 0;
  while (target < frames.size() && frames[target]->fReadLockCount > 0) ++target;
  if (target == frames.size()) {
    logError(pOperation,
             report::text(pOperation, "(", id, "): no available raw buffer for writing image"));
    return -1;
  }
  OXVisionBuffer& frame = *frames[target];
  if (!xReSize(pClaim.camera, pStore, input, *frame.fImage)) {
    logError(pOperation, report::text(pOperation, "(", id, "): resizing error"));
    return -1;
  }
  frame.fImage->fTimeStamp = input.fTimeStamp;
  ++frame.fReadLockCount;
  pStore.fLastDriverBuffer = static_cast<int>(target);
  return pStore.fLastDriverBuffer;
}

AcquiredFrame OXVisionSimulatorCam::xAcquireFrame(const Claim& pClaim, const char* pOperation) {
  const std::string& id = pClaim.subscriber->fName;
  CameraDriverBuffer& store = *fCameraDriverBuffers[static_cast<std::size_t>(pClaim.index)];
  if (!xWaitForFirstFrame(store, id)) return {};
  const int frame = xMakeRawFrame(pClaim, store, pOperation);
  if (frame < 0) return {};
  const auto& buffer = store.fDriverBuffers[static_cast<std::size_t>(frame)];
  return {buffer->fImage.get(), buffer, static_cast<std::int8_t>(pClaim.index)};
}

OXImage* OXVisionSimulatorCam::xGetDirectRawImage(const std::string& pId, bool /*pDeepCopy*/) {
  return xLendNewestFrame(pId, kTexts);
}

std::vector<OXImage*> OXVisionSimulatorCam::xGetDirectRawImages(const std::string& pId) {
  const boost::shared_ptr<VisionModuleInfo>* const subscriber = xFind(pId);
  if (!subscriber) {
    logError("xGetDirectRawImages",
             "xGetDirectRawImages(" + pId + "): module " + pId + " unknown!");
    return {};
  }
  const std::vector<int>& cameras = (*subscriber)->fActiveCameras;
  for (const int camera : cameras) {
    if (!(*subscriber)->wish(camera).fLockedImage) continue;
    logError("xGetDirectRawImages", report::text("Previous image ", camera, " was not released"),
             "vision.oxvisionatomcam");
    return {};
  }
  std::vector<OXImage*> images;
  for (const int camera : cameras) {
    const Claim claim = xClaim(*subscriber, camera);
    const AcquiredFrame frame = xAcquireFrame(claim, "xGetDirectRawImages");
    if (!frame.image) break;  // the shorter list says which camera failed
    images.push_back(xLendFrame(claim, frame));
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
  return xReleaseFrame(pId, pCameraIndex, kTexts);
}

// The buffer's stamp is cleared too: it must not pass for a young frame without pixels.
void OXVisionSimulatorCam::xReturnRawSource(int, OXVisionBuffer& pBuffer) {
  pBuffer.fImage->fTimeStamp = -1;
  if (pBuffer.fRawSource) --static_cast<OXVisionBuffer*>(pBuffer.fRawSource.get())->fReadLockCount;
  pBuffer.fRawSource.reset();
}

}  // namespace OX
