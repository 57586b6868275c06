// Records the raw frames that a subscriber's own requests take. There is no thread for it: a frame
// is considered only when the subscriber asks for an image. Whether a frame is due is counted down
// and not computed, since clients rely on what a period of 0 or less does.
//
// The file is opened, written and closed while the device's lock is paused: a slow disk delays the
// subscriber that records, whose turn keeps its other calls away meanwhile, and nobody else.
#include <cstdint>

#include <oxframework/oxvideo.h>
#include "subscriberturn.h"

namespace OX {
namespace {

constexpr int kPixelDepth = 8;  // bits a channel

constexpr report::SubscriberTexts kRecordVideo{"recordVideo", "recordVideo()", "recordVideo(",
                                               "Multi stream module can't call this method"};
constexpr report::SubscriberTexts kStopVideo{"stopVideo", "stopVideo()", "stopVideo(",
                                             "Multi stream module can't call this method",
                                             ", ...) : module "};

// One less, wrapping from the smallest number to the largest.
std::int32_t oneLess(std::int32_t pNumber) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(pNumber) - 1u);
}

}  // namespace

bool OXVisionVideoInput::recordVideo(const std::string& pId, const std::string& pPath,
                                     const int& pTotalNumber, const int& pPeriod) {
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  const SubscriberTurn turn(*this, pId, Family::Mono, kRecordVideo);
  const Claim claim = xCurrentClaim(turn, kRecordVideo);
  // What can fail comes first, so that a failure changes nothing.
  const OXValue size = resolutionToSizes(claim.camera.fResolution);
  const streamHeader header{size[0].toInt(), size[1].toInt(), claim.camera.fColorSpace,
                            kPixelDepth};
  auto video = std::make_unique<OXVideo>();
  bool opened = false;
  {
    const OXCriticalSectionPause pause(fVisionModulesLock);
    // Before the new file is opened: it may be the same one.
    claim.subscriber->fVideo.reset();
    opened = video->recordVideo(pPath, 0, {header});
  }
  VisionModuleInfo& subscriber = *claim.subscriber;
  subscriber.fVideo = std::move(video);
  subscriber.fRecordPeriod = pPeriod > 0 ? pPeriod : 1;
  subscriber.fRecordedCount = 0;
  subscriber.fRecordTotal = pTotalNumber > 0 ? pTotalNumber : 1;
  // From the period as it was passed: with 0 or less the countdown never reaches the next image.
  subscriber.fRecordCountdown = oneLess(pPeriod);
  // Also if the file could not be opened: writing does nothing then.
  subscriber.fIsRecording = true;
  return opened;
}

bool OXVisionVideoInput::stopVideo(const std::string& pId) {
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  const SubscriberTurn turn(*this, pId, Family::Mono, kStopVideo);
  return xCloseVideo(turn.subscriber());
}

bool OXVisionVideoInput::xCloseVideo(const boost::shared_ptr<VisionModuleInfo>& pSubscriber) {
  pSubscriber->fIsRecording = false;
  if (!pSubscriber->fVideo) return true;
  const OXCriticalSectionPause pause(fVisionModulesLock);
  pSubscriber->fVideo->closeVideo();
  pSubscriber->fVideo.reset();
  return true;
}

void OXVisionVideoInput::xRecord(const boost::shared_ptr<VisionModuleInfo>& pSubscriber,
                                 const OXImage& pRawImage, bool pApplyPatch) {
  if (pSubscriber->fRecordedCount >= pSubscriber->fRecordTotal) {
    xCloseVideo(pSubscriber);
    return;
  }
  if (pSubscriber->fRecordCountdown == 0) {
    pSubscriber->fRecordCountdown = pSubscriber->fRecordPeriod;
    {
      const OXImage raw(pRawImage, OXImage::ViewTag());
      const OXCriticalSectionPause pause(fVisionModulesLock);
      if (pApplyPatch && raw.getSizeBytes() > 0) xApplyPatchForKernelMemcopy(&raw);
      if (pSubscriber->fVideo)
        pSubscriber->fVideo->write(raw.fData, static_cast<int>(raw.getSizeBytes()), raw.fTimeStamp,
                                   raw.fCameraId, 0.f, 0.f, 0.f, 0.f);
    }
    ++pSubscriber->fRecordedCount;
  }
  pSubscriber->fRecordCountdown = oneLess(pSubscriber->fRecordCountdown);
}

}  // namespace OX
