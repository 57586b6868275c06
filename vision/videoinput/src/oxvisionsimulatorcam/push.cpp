// Frames pushed by a simulator. A push copies the frame and returns: it wakes nobody and converts
// nothing, so a frame that nobody asks for costs one copy. The camera's fMutex is held from the
// check of the size to the end of the copy: no other push can declare another size in between.
#include <atomic>
#include <cstring>

#include <oxframework/oxclock.h>
#include <oxframework/oxdefinitions.h>
#include <oxframework/oxlog.h>
#include "camerarecord.h"
#include "oxvisionsimulatorcam.h"

namespace OX {
namespace {

// A refused push is a record and false, never an error: a simulator goes on with the next frame.
bool refuse(const char* pFunction, const std::string& pText) {
  report::log(ki::log::kError, pFunction, pText, kSimulatorCategory);
  return false;
}

// From the low 32 bits of seconds and microseconds, as signed numbers: clients know such stamps.
std::int64_t stampOf(const ::timeval& pTime) {
  return std::int64_t{static_cast<std::int32_t>(pTime.tv_sec)} * 1000000 +
         static_cast<std::int32_t>(pTime.tv_usec);
}

}  // namespace

// Needs no lock: there is a store for each camera from the construction on.
boost::shared_ptr<CameraDriverBuffer> OXVisionSimulatorCam::xStore(int pCameraIndex) const {
  if (!xCamera(pCameraIndex)) return {};
  return fCameraDriverBuffers[static_cast<std::size_t>(pCameraIndex)];
}

// The active camera is read once: the store and the record are of the same one, even if another
// camera is selected meanwhile.
bool OXVisionSimulatorCam::putImage(const OXValue& pImage) {
  const int camera = fActiveCamera;
  const auto store = xStore(camera);
  if (!store)
    return refuse("putImage", report::text("putImage(", camera, ") : invalid Camera index"));
  const OXCriticalSection lock(store->fMutex);
  return xPutImage(pImage, *store);
}

bool OXVisionSimulatorCam::putImage(const int& pCameraIndex, const int& pWidth, const int& pHeight,
                                    const OXValue& pImage) {
  const auto store = xStore(pCameraIndex);
  if (!store)
    return refuse("putImage", report::text("putImage(", pCameraIndex, ") : invalid Camera index"));
  const OXCriticalSection lock(store->fMutex);
  // The size stays declared also when the pixels are refused.
  return xSetSimCamInputSize(pWidth, pHeight, *store) && xPutImage(pImage, *store);
}

// Throws for a wrong camera, unlike the pushes.
bool OXVisionSimulatorCam::setSimCamInputSize(const int& pWidth, const int& pHeight) {
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  const int camera = fActiveCamera;
  xCheckedCamera(camera, "setSimCamInputSize(", "setSimCamInputSize()");
  const auto store = xStore(camera);
  const OXCriticalSection storeLock(store->fMutex);
  return xSetSimCamInputSize(pWidth, pHeight, *store);
}

OXValue OXVisionSimulatorCam::getExpectedImageParameters() {
  const OXCriticalSectionRead lock(fVisionModulesLock);
  return getExpectedImageParameters(fActiveCamera);
}

// What the camera runs at, for a simulator that wants to spare the resampling: it may push any of
// the four resolutions.
OXValue OXVisionSimulatorCam::getExpectedImageParameters(const int& pCameraIndex) {
  const OXCriticalSectionRead lock(fVisionModulesLock);
  const RealCameraProperties& camera =
      xCheckedCamera(pCameraIndex, "getExpectedImageParameters(", "getExpectedImageParameters()");
  return OXValue::array(resolutionToSizes(camera.fResolution), static_cast<int>(camera.fFrameRate));
}

// Both frames change at once: a frame that was pushed before is then read in the new size, within
// its storage, until the next push.
bool OXVisionSimulatorCam::xSetSimCamInputSize(const int& pWidth, const int& pHeight,
                                               CameraDriverBuffer& pStore) {
  const int resolution = getResolutionFromSize(pWidth, pHeight);
  if (resolution < 0) return refuse("xSetSimCamInputSize", "Unknown resolution from simulator!");
  for (const auto& frame : pStore.fInputBuffers) frame->fImage->setResolution(resolution);
  pStore.fInputResolution = resolution;
  return true;
}

// A binary must have exactly the declared size. A string, as old clients send it, is only compared
// with the longest one that any camera has accepted so far, and with the storage there is.
const void* OXVisionSimulatorCam::xAcceptedPixels(const OXValue& pImage,
                                                  const CameraDriverBuffer& pStore) const {
  // One for all cameras, each of which has a lock of its own: hence atomic.
  static std::atomic<std::uint32_t> maxReceivedData{0};
  if (pImage.isBinary()) {
    int width = 0;
    int height = 0;
    setSizeFromResolution(pStore.fInputResolution, width, height);
    if (pImage.getSize() == width * 3 * height) return pImage.GetBinary();
    refuse("xPutImage", "SIMCAM_ERROR_WRONGDATASIZE");
    return nullptr;
  }
  if (pImage.isString()) {
    const auto size = static_cast<std::uint32_t>(pImage.getSize());
    if (size < maxReceivedData) return nullptr;  // without a record: clients know it so
    if (size > pStore.fInputBuffers.front()->fImage->fCapacityBytes) {
      refuse("xPutImage", "SIMCAM_ERROR_WRONGDATASIZE");
      return nullptr;
    }
    report::log(ki::log::kError, "xPutImage", "Image updated", kSimulatorCategory);
    maxReceivedData = size;
    return pImage.toString().data();
  }
  refuse("xPutImage", "xPutImage: Buffer is not a binary nor a string");
  return nullptr;
}

bool OXVisionSimulatorCam::xPutImage(const OXValue& pImage, CameraDriverBuffer& pStore) {
  // First, so that the stamp is the moment of arrival and not the end of the copy.
  ::timeval arrival{};
  ki::os::gettimeofday(&arrival);
  const void* const pixels = xAcceptedPixels(pImage, pStore);
  if (!pixels) return false;
  // Not the newest frame: that one stays whole until this one is complete.
  const int target = pStore.fLastInputBuffer == 0 ? 1 : 0;
  OXImage& image = *pStore.fInputBuffers[static_cast<std::size_t>(target)]->fImage;
  if (!image.fData) return refuse("xPutImage", "xPutImage: memcopy failed");
  std::memcpy(image.fData, pixels, static_cast<std::size_t>(pImage.getSize()));
  image.fTimeStamp = stampOf(arrival);
  // Last: the wait for a first frame reads it without the lock.
  pStore.fLastInputBuffer = target;
  return true;
}

}  // namespace OX
