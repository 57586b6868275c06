// Converts the newest pushed frame, once for all subscribers, and lends the result without a copy.
// Conversion is left to the first request, since most pushed frames are never asked for. The wait
// for a frame and the conversion run without a lock: the counts of the frames keep what is read and
// what is filled.
#include <chrono>
#include <optional>

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
constexpr int kOpeningsAtMost = 16;  // during one request: a bound, for which nobody has a use
constexpr std::chrono::seconds kLongestConversion(1);  // of another request

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

bool OXVisionSimulatorCam::xWaitForFirstFrame(CameraDriverBuffer& pStore, const std::string& pId) {
  if (pStore.fLastInputBuffer != -1) return true;
  OXBoundedWait wait(kFirstFramePasses + 1, kFirstFramePassUs);
  for (;;) {
    const std::uint64_t seen = pStore.fChanged.count();
    if (pStore.fLastInputBuffer != -1) return true;
    if (!wait.again(pStore.fChanged, seen)) break;
  }
  xLogNoFrame(pId);
  return false;
}

void OXVisionSimulatorCam::xLogNoFrame(const std::string& pId) const {
  logError("xGetDirectRawImage", getName() + ": Could not get image for subscriber \"" + pId +
                                     "\". Check that the simulator is running.");
}

bool OXVisionSimulatorCam::xSubSample(int pRatio, int pWidth, int pHeight,
                                      const unsigned char* pSource, unsigned char* pTarget) {
  return resampling::subSample(pRatio, pWidth, pHeight, pSource, pTarget);
}

bool OXVisionSimulatorCam::xOverSample(int pRatio, int pWidth, int pHeight,
                                       const unsigned char* pSource, unsigned char* pTarget) {
  return resampling::overSample(pRatio, pWidth, pHeight, pSource, pTarget);
}

// Converts a pushed RGB frame to a YUV422 frame of the camera's resolution.
bool OXVisionSimulatorCam::xReSize(const Opening& pOpening, const OXImage& pSource,
                                   const OXImage& pTarget) const {
  const int in = getResolutionFromSize(pSource.fWidth, pSource.fHeight);
  const int width = pSource.fWidth;
  const int height = pSource.fHeight;
  if (in == pOpening.resolution) {
    resampling::rgbToYuv422(pSource.fData, width, height, pTarget.fData);
    return true;
  }
  // The target size is that of the device's active camera, not of this one: on purpose. If that
  // makes source and target equal in size, the frame is refused.
  const int out = pOpening.activeResolution;
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
  return out < in ? xSubSample(1 << (in - out), width, height, pSource.fData, pTarget.fData)
                  : xOverSample(1 << (out - in), width, height, pSource.fData, pTarget.fData);
}

// A frame that is being filled has its stamp already: those who want the same one wait for it.
OXVisionSimulatorCam::Conversion OXVisionSimulatorCam::xBeginConversion(
    CameraDriverBuffer& pStore) const {
  const int newest = pStore.fLastInputBuffer;
  if (newest < 0) return {Conversion::kNoInput};
  const auto& input = pStore.fInputBuffers[static_cast<std::size_t>(newest)];
  const auto& frames = pStore.fDriverBuffers;
  const auto shows = [&](const OXVisionBuffer& pFrame) {
    return pFrame.fImage->fTimeStamp == input->fImage->fTimeStamp;
  };
  const int last = pStore.fLastDriverBuffer;
  if (last >= 0 && frames[static_cast<std::size_t>(last)]->fWriteLockCount == 0 &&
      shows(*frames[static_cast<std::size_t>(last)])) {
    ++frames[static_cast<std::size_t>(last)]->fReadLockCount;
    return {Conversion::kReady, last};
  }
  for (const auto& frame : frames)
    if (frame->fWriteLockCount > 0 && shows(*frame)) return {Conversion::kUnderWay};
  // Any frame that is lent to nobody: the last converted one too, since it is out of date.
  for (std::size_t i = 0; i < frames.size(); ++i) {
    OXVisionBuffer& frame = *frames[i];
    if (!frame.isFree()) continue;
    Conversion work{Conversion::kBegun, static_cast<int>(i), input, frame.fImage->fTimeStamp};
    ++input->fReadLockCount;
    ++frame.fWriteLockCount;
    frame.fImage->fTimeStamp = input->fImage->fTimeStamp;
    return work;
  }
  return {Conversion::kNoFrame};
}

// Returns the frame's index with its read count raised, or -1.
int OXVisionSimulatorCam::xEndConversion(CameraDriverBuffer& pStore, const Conversion& pWork,
                                         const Opening& pOpening, bool pGood) {
  OXVisionBuffer& frame = *pStore.fDriverBuffers[static_cast<std::size_t>(pWork.frame)];
  int result = -1;
  {
    const OXCriticalSection lock(pStore.fMutex);
    --pWork.input->fReadLockCount;
    --frame.fWriteLockCount;
    const bool isOfThisOpening = pStore.fOpenings == pOpening.number;
    // A refusal has written nothing, so the frame is what it was.
    if (!pGood) frame.fImage->fTimeStamp = pWork.oldStamp;
    if (!isOfThisOpening) frame.fImage->fTimeStamp = -1;
    if (pGood && isOfThisOpening) {
      frame.fContent = pWork.push;
      ++frame.fReadLockCount;
      result = pWork.frame;
      // The newest one, also when an older one was converted for longer.
      const int last = pStore.fLastDriverBuffer;
      if (last < 0 || pStore.fDriverBuffers[static_cast<std::size_t>(last)]->fContent <= pWork.push)
        pStore.fLastDriverBuffer = pWork.frame;
    }
  }
  pStore.fChanged.notify();
  return result;
}

// A converted frame with the time stamp of the newest pushed one is that frame, so one conversion
// serves all.
int OXVisionSimulatorCam::xMakeRawFrame(const Opening& pOpening, CameraDriverBuffer& pStore,
                                        const std::string& pId, const char* pOperation) {
  const auto deadline = std::chrono::steady_clock::now() + kLongestConversion;
  for (;;) {
    const std::uint64_t seen = pStore.fChanged.count();
    Conversion work;
    // The fields as they are now: a change of size writes to those of every frame.
    std::optional<OXImage> source;
    std::optional<OXImage> target;
    {
      const OXCriticalSection lock(pStore.fMutex);
      work = xBeginConversion(pStore);
      if (work.state == Conversion::kBegun) {
        work.push = work.input->fContent;
        source.emplace(*work.input->fImage, OXImage::ViewTag());
        target.emplace(*pStore.fDriverBuffers[static_cast<std::size_t>(work.frame)]->fImage,
                       OXImage::ViewTag());
      }
    }
    switch (work.state) {
      case Conversion::kReady:
        return work.frame;
      case Conversion::kNoInput:
        return -1;
      case Conversion::kBegun: {
        const bool good = xReSize(pOpening, *source, *target);
        const int frame = xEndConversion(pStore, work, pOpening, good);
        if (!good) logError(pOperation, report::text(pOperation, "(", pId, "): resizing error"));
        return frame;
      }
      case Conversion::kUnderWay:
        if (const auto left = deadline - std::chrono::steady_clock::now(); left > left.zero()) {
          pStore.fChanged.wait(seen, std::chrono::duration_cast<std::chrono::microseconds>(left));
          continue;
        }
        [[fallthrough]];
      case Conversion::kNoFrame:
        logError(pOperation, report::text(pOperation, "(", pId,
                                          "): no available raw buffer for writing image"));
        return -1;
    }
  }
}

AcquiredFrame OXVisionSimulatorCam::xAcquireFrame(const Claim& pClaim, const char* pOperation) {
  CameraDriverBuffer& store = *fCameraDriverBuffers[static_cast<std::size_t>(pClaim.index)];
  const std::string& id = pClaim.subscriber->fName;
  // Once more when the camera was opened meanwhile, in another size: nobody opens it from the end
  // of the pause until the frame is lent.
  for (int attempt = 0; attempt < kOpeningsAtMost; ++attempt) {
    const RealCameraProperties* const active = xCamera(fActiveCamera);
    const Opening opening{store.fOpenings, pClaim.camera.fResolution,
                          active ? active->fResolution.load() : -1};
    int frame = -1;
    {
      const OXCriticalSectionPause pause(fVisionModulesLock);
      if (!xWaitForFirstFrame(store, id)) return {};
      frame = xMakeRawFrame(opening, store, id, pOperation);
    }
    if (store.fOpenings == opening.number) {
      if (frame < 0) return {};
      const auto& buffer = store.fDriverBuffers[static_cast<std::size_t>(frame)];
      return {buffer->fImage.get(), buffer, static_cast<std::int8_t>(pClaim.index)};
    }
    if (frame >= 0) xReturnFrame(store, *store.fDriverBuffers[static_cast<std::size_t>(frame)]);
  }
  xLogNoFrame(id);
  return {};
}

void OXVisionSimulatorCam::xReturnFrame(const CameraDriverBuffer& pStore, OXVisionBuffer& pFrame) {
  const OXCriticalSection lock(pStore.fMutex);
  --pFrame.fReadLockCount;
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
  images.reserve(cameras.size());
  for (const int camera : cameras) {
    const Claim claim = xClaim(*subscriber, camera);
    // Without buffers nothing can be lent: a frame that was taken then could not be given back.
    if (claim.wish.fHasBuffers) {
      const AcquiredFrame frame = xAcquireFrame(claim, "xGetDirectRawImages");
      if (!frame.image) break;  // the shorter list says which camera failed
      images.push_back(xLendFrame(claim, frame));
    } else {
      images.push_back(nullptr);
    }
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
void OXVisionSimulatorCam::xReturnRawSource(int pCamera, OXVisionBuffer& pBuffer) {
  pBuffer.fImage->fTimeStamp = -1;
  if (pBuffer.fRawSource)
    xReturnFrame(*xStore(pCamera), *static_cast<OXVisionBuffer*>(pBuffer.fRawSource.get()));
  pBuffer.fRawSource.reset();
}

}  // namespace OX
