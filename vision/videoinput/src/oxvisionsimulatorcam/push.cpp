// Frames pushed by a simulator. A push copies the frame, wakes those who wait for one, and returns:
// it converts nothing, so a frame that nobody asks for costs one copy. The copy is made without a
// lock into a frame that nobody reads, so a push waits for no conversion and no request for a push.
#include <atomic>
#include <cstring>

#include <oxframework/oxclock.h>
#include <oxframework/oxdefinitions.h>
#include <oxframework/oxlog.h>
#include "camerarecord.h"
#include "oxvisionsimulatorcam.h"

namespace OX {
namespace {

// For a buffer, which takes more pushes at once than there are buffers: one second.
constexpr int kBufferPasses = 2000;
constexpr unsigned int kBufferPassUs = 500;

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
  return xPutImage(pImage, *store, nullptr);
}

bool OXVisionSimulatorCam::putImage(const int& pCameraIndex, const int& pWidth, const int& pHeight,
                                    const OXValue& pImage) {
  const auto store = xStore(pCameraIndex);
  if (!store)
    return refuse("putImage", report::text("putImage(", pCameraIndex, ") : invalid Camera index"));
  // The size stays declared also when the pixels are refused.
  const DeclaredSize size{pWidth, pHeight};
  return xPutImage(pImage, *store, &size);
}

// Throws for a wrong camera, unlike the pushes.
bool OXVisionSimulatorCam::setSimCamInputSize(const int& pWidth, const int& pHeight) {
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  const int camera = fActiveCamera;
  xCheckedCamera(camera, "setSimCamInputSize(", "setSimCamInputSize()");
  const auto store = xStore(camera);
  const OXCriticalSection storeLock(store->fMutex);
  if (!xDeclareInputSize(pWidth, pHeight, *store)) return false;
  xApplyInputSize(*store);
  return true;
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

bool OXVisionSimulatorCam::xDeclareInputSize(int pWidth, int pHeight, CameraDriverBuffer& pStore) {
  const int resolution = getResolutionFromSize(pWidth, pHeight);
  if (resolution < 0) return refuse("xSetSimCamInputSize", "Unknown resolution from simulator!");
  pStore.fInputResolution = resolution;
  return true;
}

// All frames change at once: a frame that was pushed before is then read in the new size, within
// its storage, until the next push.
void OXVisionSimulatorCam::xApplyInputSize(CameraDriverBuffer& pStore) {
  for (const auto& frame : pStore.fInputBuffers)
    frame->fImage->setResolution(pStore.fInputResolution);
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

bool OXVisionSimulatorCam::xPutImage(const OXValue& pImage, CameraDriverBuffer& pStore,
                                     const DeclaredSize* pSize) {
  Push push;
  // Before anything is taken: it may find no memory.
  push.feeder = describeCaller();
  {
    const OXCriticalSection lock(pStore.fMutex);
    if (pSize && !xDeclareInputSize(pSize->width, pSize->height, pStore)) return false;
    // First, so that the stamp is the moment of arrival and not the end of the copy.
    ::timeval arrival{};
    ki::os::gettimeofday(&arrival);
    push.stamp = stampOf(arrival);
    push.arrivedUs = std::int64_t{arrival.tv_sec} * 1000000 + arrival.tv_usec;
    push.pixels = xAcceptedPixels(pImage, pStore);
    if (!push.pixels) {
      if (pSize) xApplyInputSize(pStore);
      return false;
    }
    // The frame before stays the newest during the copy, in the size that its pixels have.
    push.resolution = pStore.fInputResolution;
    push.number = ++pStore.fPushCount;
  }
  OXVisionBuffer* const target = xTakeInputBuffer(pStore, push);
  if (!target) {
    {
      const OXCriticalSection lock(pStore.fMutex);
      pStore.fFeed.drop();
    }
    return refuse("xPutImage", "xPutImage: all buffers are in use by other pushes");
  }
  if (target->fImage->fData) {
    const OXDurationScope duration(fStages.push);
    std::memcpy(target->fImage->fData, push.pixels, static_cast<std::size_t>(pImage.getSize()));
  }
  xEndPush(pStore, push, *target);
  return target->fImage->fData || refuse("xPutImage", "xPutImage: memcopy failed");
}

// The two first frames in turns, as clients know them, and others only while those are in use.
OXVisionBuffer* OXVisionSimulatorCam::xTakeInputBuffer(CameraDriverBuffer& pStore, Push& pPush) {
  OXBoundedWait wait(kBufferPasses, kBufferPassUs);
  for (;;) {
    const std::uint64_t seen = pStore.fChanged.count();
    {
      const OXCriticalSection lock(pStore.fMutex);
      const int newest = pStore.fLastInputBuffer;
      const int count = static_cast<int>(pStore.fInputBuffers.size());
      const int first = newest == 0 ? 1 : 0;
      for (int i = 0; i < count; ++i) {
        const int index = (first + i) % count;
        OXVisionBuffer& buffer = *pStore.fInputBuffers[static_cast<std::size_t>(index)];
        // Not the newest frame: that one stays whole until this one is complete.
        if (index == newest || !buffer.isFree()) continue;
        ++buffer.fWriteLockCount;
        pPush.index = index;
        return &buffer;
      }
    }
    if (!wait.again(pStore.fChanged, seen)) return nullptr;
  }
}

void OXVisionSimulatorCam::xEndPush(CameraDriverBuffer& pStore, Push& pPush,
                                    OXVisionBuffer& pBuffer) {
  const std::int64_t now = OXClock::get().nowUs();
  bool isNewest = false;
  {
    const OXCriticalSection lock(pStore.fMutex);
    --pBuffer.fWriteLockCount;
    // Of two pushes at once, the one that arrived last is the newest, whichever copy took longer.
    isNewest = pBuffer.fImage->fData && pPush.number > pStore.fNewestPush;
    if (isNewest) {
      // That of its own pixels, also if another size was declared during the copy.
      pBuffer.fImage->setResolution(pPush.resolution);
      pBuffer.fImage->fTimeStamp = pPush.stamp;
      pBuffer.fContent = pPush.number;
      NewestFrame& newest = xCamera(pStore.fCamera)->fNewestFrame;
      pBuffer.fFrame = {++newest.count, pPush.arrivedUs};
      newest.set(pBuffer.fFrame);
      pStore.fNewestPush = pPush.number;
      pStore.fLastInputBuffer = pPush.index;
      pStore.fFeed.add(now, pPush.stamp, pBuffer.fImage->fWidth, pBuffer.fImage->fHeight,
                       pPush.feeder);
    } else {
      pStore.fFeed.drop();
    }
  }
  pStore.fChanged.notify();
  if (isNewest) xTellFrame(pStore.fCamera);
}

FeedStatus OXVisionSimulatorCam::xFeedStatus(int pCamera, std::int64_t pNowUs) const {
  const auto store = xStore(pCamera);
  const OXCriticalSection lock(store->fMutex);
  return store->fFeed.status(pNowUs);
}

}  // namespace OX
