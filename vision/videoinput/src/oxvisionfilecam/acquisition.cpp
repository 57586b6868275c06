// Lends the current image of the replay to a subscriber and takes it back. A request is what moves
// the replay on: there is no thread for it, so a recording that nobody watches costs nothing.
#include <oxframework/oxclock.h>
#include <oxframework/oxlog.h>
#include "buffers/lending.h"
#include "claim.h"
#include "oxvisionfilecam.h"

namespace OX {
namespace {

std::string notReleased(const std::string&, const std::string&) {
  return "Previous image not released";
}

std::string unknownAtRelease(const std::string& pId) {
  return "ReleaseDirectRawImage(" + pId + ") : module " + pId + " unknown!";
}

constexpr LendingTexts kTexts{kFileCamCategory, ") : ", "ReleaseDirectRawImage", notReleased,
                              unknownAtRelease};

}  // namespace

AcquiredFrame OXVisionFileCam::xAcquireFrame(const Claim& pClaim, const char*) {
  OXBoundedWait wait(kDeliveryPasses, kPassUs);
  for (;;) {
    const std::uint64_t seen = fSlotReleased.count();
    Step step = Step::kNone;
    Slot slot;
    FrameMark mark;
    {
      const TurnScope turn(fReplay, fVisionModulesLock);
      const OXCriticalSectionPause pause(fVisionModulesLock);
      step = xAdvance(pClaim.subscriber->fName);
      if (step == Step::kServe) {
        slot = fFrames[fCurrentFrame];
        ++slot->fLockCount;
        // Streams then share what the request converts. Others than the newest are of no use.
        if (slot == fFrameSlot) mark = fFrame;
      }
    }
    if (step == Step::kNone) return {};
    if (step == Step::kServe) {
      xSelectCameraOf(slot->fImage);
      xCountStep(slot->fImage);
      // The format too: the buffer may have been made when another video was open.
      const OXImage& frame = slot->fImage;
      return {&frame, std::move(slot), frame.fCameraId, true, mark};
    }
    if (!xWaitForSlot(wait, seen)) break;
  }
  xLogRingIsHeld();
  return {};
}

bool OXVisionFileCam::xWaitForSlot(OXBoundedWait& pWait, std::uint64_t pSeen) {
  const OXCriticalSectionPause pause(fVisionModulesLock);
  return pWait.again(fSlotReleased, pSeen);
}

// A frame says which camera took it. The id comes from a file and is ignored when this device has
// no such camera.
void OXVisionFileCam::xSelectCameraOf(const OXImage& pImage) {
  if (xCamera(pImage.fCameraId)) {
    fActiveCamera = pImage.fCameraId;
  } else if (!fStrangeCameraLogged.exchange(true)) {
    report::log(
        ki::log::kError, "xSelectCameraOf",
        report::text("The recording has images of camera ", static_cast<int>(pImage.fCameraId),
                     ", this device has ", fNbCameras, " camera: its own stays active"),
        kFileCamCategory);
  }
}

// A request that finds the same image as the one before is no step.
void OXVisionFileCam::xCountStep(const OXImage& pImage) {
  if (!fFeed.isEmpty() && fFeed.stampUs() == pImage.fTimeStamp) return;
  std::string nobody;
  fFeed.add(OXClock::get().nowUs(), pImage.fTimeStamp, pImage.fWidth, pImage.fHeight, nobody);
}

FeedStatus OXVisionFileCam::xFeedStatus(int /*pCamera*/, std::int64_t pNowUs) const {
  FeedStatus status = fFeed.status(pNowUs);
  status.isReplay = true;
  status.dropped = static_cast<std::uint64_t>(fPassedOver.load());
  return status;
}

OXImage* OXVisionFileCam::xGetDirectRawImage(const std::string& pId, bool /*pDeepCopy*/) {
  return xLendNewestFrame(pId, kTexts);
}

std::vector<OXImage*> OXVisionFileCam::xGetDirectRawImages(const std::string& pId) {
  report::log(
      ki::log::kError, "xGetDirectRawImages",
      "xGetDirectRawImages(" + pId + ") : FileCam doesn't provide MultiStream Management yet",
      kFileCamCategory);
  return {};
}

bool OXVisionFileCam::xReleaseDirectRawImageDeep(const std::string& pId, const int& pCameraIndex) {
  return xReleaseFrame(pId, pCameraIndex, kTexts);
}

// The stamp of the image stays, unlike the simulator's. Converted images point at no slot.
void OXVisionFileCam::xReturnRawSource(int, OXVisionBuffer& pBuffer) {
  if (!pBuffer.fRawSource) return;
  --static_cast<CamBuffer*>(pBuffer.fRawSource.get())->fLockCount;
  pBuffer.fRawSource.reset();
  fSlotReleased.notify();
}

}  // namespace OX
