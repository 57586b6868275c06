// Records the raw frames that a subscriber's own requests take. There is no thread for it: a frame
// is considered only when the subscriber asks for an image. Whether a frame is due is counted down
// and not computed, since clients rely on what a period of 0 or less does.
//
// The file is opened, written and closed while the device's lock is paused: a slow disk delays the
// subscriber that records, whose turn keeps its other calls away meanwhile, and nobody else.
#include <boost/make_shared.hpp>
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
  RecordingStatus begin;
  begin.id = pId;
  begin.path = pPath;
  begin.wanted = pTotalNumber > 0 ? pTotalNumber : 1;
  begin.period = pPeriod > 0 ? pPeriod : 1;
  begin.frameRate = claim.subscriber->fFrameRate;
  const auto record = boost::make_shared<RecordingRecord>(std::move(begin));
  fRecordings.add(record);
  bool opened = false;
  {
    const OXCriticalSectionPause pause(fVisionModulesLock);
    // Before the new file is opened: it may be the same one.
    claim.subscriber->fVideo.reset();
    opened = video->recordVideo(pPath, 0, {header});
  }
  xEndRecord(*claim.subscriber, RecordingState::kStopped,
             "another recording of its subscriber began");
  if (opened)
    claim.subscriber->fRecording = record;
  else
    record->end(RecordingState::kFailed, video->getLastError());
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
  return xCloseVideo(turn.subscriber(), "stopped");
}

void OXVisionVideoInput::xEndRecord(VisionModuleInfo& pSubscriber, RecordingState pState,
                                    std::string_view pReason) {
  if (!pSubscriber.fRecording) return;
  pSubscriber.fRecording->end(pState, pReason);
  pSubscriber.fRecording.reset();
}

// Told to have ended once the file is whole, so that nobody reads it too early.
bool OXVisionVideoInput::xCloseVideo(const boost::shared_ptr<VisionModuleInfo>& pSubscriber,
                                     const char* pReason) {
  pSubscriber->fIsRecording = false;
  if (pSubscriber->fVideo) {
    const OXCriticalSectionPause pause(fVisionModulesLock);
    pSubscriber->fVideo->closeVideo();
    pSubscriber->fVideo.reset();
  }
  xEndRecord(*pSubscriber, RecordingState::kStopped, pReason);
  return true;
}

void OXVisionVideoInput::xRecord(const boost::shared_ptr<VisionModuleInfo>& pSubscriber,
                                 const OXImage& pRawImage, bool pApplyPatch) {
  if (pSubscriber->fRecordedCount >= pSubscriber->fRecordTotal) {
    xCloseVideo(pSubscriber, "complete");
    return;
  }
  if (pSubscriber->fRecordCountdown == 0) {
    pSubscriber->fRecordCountdown = pSubscriber->fRecordPeriod;
    const OXImage raw(pRawImage, OXImage::ViewTag());
    bool written = false;
    {
      const OXCriticalSectionPause pause(fVisionModulesLock);
      if (pApplyPatch && raw.getSizeBytes() > 0) xApplyPatchForKernelMemcopy(&raw);
      if (pSubscriber->fVideo)
        written = pSubscriber->fVideo->write(raw.fData, static_cast<int>(raw.getSizeBytes()),
                                             raw.fTimeStamp, raw.fCameraId, 0.f, 0.f, 0.f, 0.f);
    }
    // Counted as recorded also when the file takes no more: clients rely on when it is closed.
    ++pSubscriber->fRecordedCount;
    if (written && pSubscriber->fRecording)  // null after a write that failed
      pSubscriber->fRecording->add(raw.fTimeStamp, raw.getSizeBytes(), pSubscriber->fFrameRate);
    else if (pSubscriber->fVideo)
      xEndRecord(*pSubscriber, RecordingState::kFailed, pSubscriber->fVideo->getLastError());
  }
  pSubscriber->fRecordCountdown = oneLess(pSubscriber->fRecordCountdown);
}

}  // namespace OX
