// Converts the newest pushed frame, once for all subscribers, and lends the result without a copy.
// Conversion is left to the first request, since most pushed frames are never asked for. The wait
// for a frame and the conversion run without a lock: the counts of the frames keep what is read and
// what is filled.
#include <algorithm>
#include <boost/make_shared.hpp>
#include <chrono>
#include <new>
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
                                   const OXImage& pTarget) {
  const OXDurationScope duration(fStages.resample);
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
// Two pushes may have the same stamp, so streams, which must get both, go by the number of the
// frame instead.
OXVisionSimulatorCam::Conversion OXVisionSimulatorCam::xBeginConversion(CameraDriverBuffer& pStore,
                                                                        Asker pAsker) const {
  const int newest = pStore.fLastInputBuffer;
  if (newest < 0) return {Conversion::kNoInput};
  const auto& input = pStore.fInputBuffers[static_cast<std::size_t>(newest)];
  const auto& frames = pStore.fDriverBuffers;
  const auto shows = [&](const OXVisionBuffer& pFrame) {
    return pFrame.fImage->fTimeStamp == input->fImage->fTimeStamp &&
           (pAsker == Asker::kRequest || pFrame.fFrame.number == input->fFrame.number);
  };
  const int last = pStore.fLastDriverBuffer;
  if (last >= 0 && frames[static_cast<std::size_t>(last)]->fWriteLockCount == 0 &&
      shows(*frames[static_cast<std::size_t>(last)])) {
    xCountReader(*frames[static_cast<std::size_t>(last)], pAsker);
    return {Conversion::kReady, last, frames[static_cast<std::size_t>(last)]};
  }
  for (const auto& frame : frames)
    if (frame->fWriteLockCount > 0 && shows(*frame)) return {Conversion::kUnderWay};
  const int free = xFindFreeFrame(pStore);
  if (free < 0) return {Conversion::kNoFrame};
  const auto& target = frames[static_cast<std::size_t>(free)];
  OXVisionBuffer& frame = *target;
  Conversion work{Conversion::kBegun,       free,         target, input,
                  frame.fImage->fTimeStamp, frame.fFrame, 0};
  ++input->fReadLockCount;
  ++frame.fWriteLockCount;
  frame.fImage->fTimeStamp = input->fImage->fTimeStamp;
  frame.fFrame = input->fFrame;
  return work;
}

// Any frame that is lent to nobody: the last converted one too, since it is out of date. One that
// streams keep is replaced, so that nobody waits for their clients.
int OXVisionSimulatorCam::xFindFreeFrame(CameraDriverBuffer& pStore) {
  auto& frames = pStore.fDriverBuffers;
  const auto isFree = [](const auto& pFrame) { return pFrame->isFree(); };
  const auto free = std::find_if(frames.begin(), frames.end(), isFree);
  if (free != frames.end()) return static_cast<int>(free - frames.begin());
  const auto lent = std::find_if(frames.begin(), frames.end(),
                                 [](const auto& pFrame) { return pFrame->isLentOnly(); });
  if (lent == frames.end()) return -1;
  boost::shared_ptr<OXVisionBuffer> fresh;
  for (auto& spare : pStore.fSpareFrames)
    if (spare && !fresh) fresh.swap(spare);
  if (!fresh) {
    try {
      fresh = boost::make_shared<OXVisionBuffer>(k4VGA, kYUV422, false);
    } catch (const std::bad_alloc&) {
      return -1;
    }
  }
  fresh->fImage->fWidth = (*lent)->fImage->fWidth;
  fresh->fImage->fHeight = (*lent)->fImage->fHeight;
  fresh->fImage->fTimeStamp = -1;
  (*lent)->fIsOutside = true;
  lent->swap(fresh);
  return static_cast<int>(lent - frames.begin());
}

void OXVisionSimulatorCam::xCountReader(OXVisionBuffer& pFrame, Asker pAsker) {
  ++pFrame.fReadLockCount;
  if (pAsker == Asker::kStream) ++pFrame.fLentCount;
}

// Returns the frame with its read count raised, or null.
boost::shared_ptr<OXVisionBuffer> OXVisionSimulatorCam::xEndConversion(CameraDriverBuffer& pStore,
                                                                       const Conversion& pWork,
                                                                       const Opening& pOpening,
                                                                       Asker pAsker, bool pGood) {
  OXVisionBuffer& frame = *pWork.frame;
  boost::shared_ptr<OXVisionBuffer> result;
  {
    const OXCriticalSection lock(pStore.fMutex);
    --pWork.input->fReadLockCount;
    --frame.fWriteLockCount;
    const bool isOfThisOpening = pStore.fOpenings == pOpening.number;
    // A refusal has written nothing, so the frame is what it was.
    if (!pGood) {
      frame.fImage->fTimeStamp = pWork.oldStamp;
      frame.fFrame = pWork.oldMark;
    }
    if (!isOfThisOpening) {
      frame.fImage->fTimeStamp = -1;
      frame.fFrame = {};
    }
    if (pGood && isOfThisOpening) {
      frame.fContent = pWork.push;
      xCountReader(frame, pAsker);
      result = pWork.frame;
      // The newest one, also when an older one was converted for longer.
      const int last = pStore.fLastDriverBuffer;
      if (last < 0 || pStore.fDriverBuffers[static_cast<std::size_t>(last)]->fContent <= pWork.push)
        pStore.fLastDriverBuffer = pWork.index;
    }
  }
  pStore.fChanged.notify();
  return result;
}

// A converted frame with the time stamp of the newest pushed one is that frame, so one conversion
// serves all.
OXVisionSimulatorCam::RawFrame OXVisionSimulatorCam::xMakeRawFrame(const Opening& pOpening,
                                                                   CameraDriverBuffer& pStore,
                                                                   const std::string& pId,
                                                                   const char* pOperation,
                                                                   Asker pAsker) {
  const auto deadline = std::chrono::steady_clock::now() + kLongestConversion;
  for (;;) {
    const std::uint64_t seen = pStore.fChanged.count();
    Conversion work;
    // The fields as they are now: a change of size writes to those of every frame.
    std::optional<OXImage> source;
    std::optional<OXImage> target;
    {
      const OXCriticalSection lock(pStore.fMutex);
      work = xBeginConversion(pStore, pAsker);
      if (work.state == Conversion::kBegun) {
        work.push = work.input->fContent;
        source.emplace(*work.input->fImage, OXImage::ViewTag());
        target.emplace(*work.frame->fImage, OXImage::ViewTag());
      }
    }
    switch (work.state) {
      case Conversion::kReady:
        return {work.frame};
      case Conversion::kNoInput:
        return {};
      case Conversion::kBegun: {
        const bool good = xReSize(pOpening, *source, *target);
        RawFrame made{xEndConversion(pStore, work, pOpening, pAsker, good), !good};
        if (!good) logError(pOperation, report::text(pOperation, "(", pId, "): resizing error"));
        return made;
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
        return {{}, true};
    }
  }
}

AcquiredFrame OXVisionSimulatorCam::xAcquireFrame(const Claim& pClaim, const char* pOperation) {
  CameraDriverBuffer& store = *fCameraDriverBuffers[static_cast<std::size_t>(pClaim.index)];
  const std::string& id = pClaim.subscriber->fName;
  // Once more when the camera was opened meanwhile, in another size: nobody opens it from the end
  // of the pause until the frame is lent.
  for (int attempt = 0; attempt < kOpeningsAtMost; ++attempt) {
    const Opening opening = xOpening(store, pClaim.index);
    boost::shared_ptr<OXVisionBuffer> frame;
    {
      const OXCriticalSectionPause pause(fVisionModulesLock);
      if (!xWaitForFirstFrame(store, id)) return {};
      frame = xMakeRawFrame(opening, store, id, pOperation, Asker::kRequest).frame;
    }
    if (store.fOpenings == opening.number) {
      if (!frame) return {};
      return {frame->fImage.get(), frame, static_cast<std::int8_t>(pClaim.index), false,
              frame->fFrame};
    }
    if (frame) xReturnFrame(store, *frame);
  }
  xLogNoFrame(id);
  return {};
}

OXVisionSimulatorCam::Opening OXVisionSimulatorCam::xOpening(const CameraDriverBuffer& pStore,
                                                             int pCamera) const {
  const RealCameraProperties* const active = xCamera(fActiveCamera);
  return {pStore.fOpenings, xCamera(pCamera)->fResolution,
          active ? active->fResolution.load() : -1};
}

// A camera that is opened meanwhile has no frame any more, so there is no second attempt.
void OXVisionSimulatorCam::xLendNewest(int pCamera, const std::string& pId, std::uint64_t pAfter,
                                       LentFrame& pFrame) {
  CameraDriverBuffer& store = *fCameraDriverBuffers[static_cast<std::size_t>(pCamera)];
  const Opening opening = xOpening(store, pCamera);
  const OXCriticalSectionPause pause(fVisionModulesLock);
  const RawFrame made = xMakeRawFrame(opening, store, pId, "take", Asker::kStream);
  pFrame.isFailed = made.isFailed;
  if (!made.frame) return;
  pFrame.source = made.frame;
  {
    const OXCriticalSection lock(store.fMutex);  // an opening writes to the fields
    pFrame.image.emplace(*made.frame->fImage, OXImage::ViewTag());
    pFrame.mark = made.frame->fFrame;
  }
  pFrame.image->fCameraId = static_cast<std::int8_t>(pCamera);
  if (store.fOpenings == opening.number && pFrame.mark.number > pAfter) return;
  xReturnLent(pCamera, pFrame.source);
  pFrame.source.reset();
}

void OXVisionSimulatorCam::xReturnFrame(const CameraDriverBuffer& pStore, OXVisionBuffer& pFrame) {
  const OXCriticalSection lock(pStore.fMutex);
  --pFrame.fReadLockCount;
}

void OXVisionSimulatorCam::xReturnLent(int pCamera,
                                       const boost::shared_ptr<void>& pSource) noexcept {
  CameraDriverBuffer& store = *fCameraDriverBuffers[static_cast<std::size_t>(pCamera)];
  const auto frame = boost::static_pointer_cast<OXVisionBuffer>(pSource);
  const OXCriticalSection lock(store.fMutex);
  --frame->fLentCount;
  if (--frame->fReadLockCount > 0 || !frame->fIsOutside) return;
  frame->fIsOutside = false;
  frame->fFrame = {};
  frame->fContent = 0;
  for (auto& spare : store.fSpareFrames) {
    if (spare) continue;
    spare = frame;
    return;
  }
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
