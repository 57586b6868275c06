// Records the raw frames that a subscriber's own requests take. There is no thread for it: a frame
// is considered only when the subscriber asks for an image. Whether a frame is due is counted down
// and not computed, since clients rely on what a period of 0 or less does.
#include <cstdint>

#include <oxframework/oxclock.h>
#include <oxframework/oxvideo.h>
#include "claim.h"
#include "oxvisionvideoinput.h"

namespace OX {
namespace {

constexpr int kPixelDepth = 8;  // bits a channel
constexpr unsigned int kWriteInProgressUs = 5000;

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
  // Held for reading, the lock keeps delivery away; fRecordingLock excludes a second recordVideo or
  // stopVideo of the subscriber.
  const OXCriticalSectionRead lock(fVisionModulesLock);
  const OXCriticalSection recorders(fRecordingLock);
  const Claim claim = xClaim(pId, Family::Mono, kRecordVideo);
  // What can fail comes first, so that a failure changes nothing.
  const OXValue size = resolutionToSizes(claim.camera.fResolution);
  const streamHeader header{size[0].toInt(), size[1].toInt(), claim.camera.fColorSpace,
                            kPixelDepth};
  VisionModuleInfo& subscriber = *claim.subscriber;
  subscriber.fRecordPeriod = pPeriod > 0 ? pPeriod : 1;
  subscriber.fRecordedCount = 0;
  subscriber.fRecordTotal = pTotalNumber > 0 ? pTotalNumber : 1;
  // From the period as it was passed: with 0 or less the countdown never reaches the next image.
  subscriber.fRecordCountdown = oneLess(pPeriod);
  subscriber.fVideo = std::make_unique<OXVideo>();
  const bool opened = subscriber.fVideo->recordVideo(pPath, 0, {header});
  // Also if the file could not be opened: writing does nothing then.
  subscriber.fIsRecording = true;
  return opened;
}

bool OXVisionVideoInput::stopVideo(const std::string& pId) {
  const OXCriticalSectionRead lock(fVisionModulesLock);
  const OXCriticalSection recorders(fRecordingLock);
  return xCloseVideo(xSubscriber(pId, Family::Mono, kStopVideo));
}

bool OXVisionVideoInput::xCloseVideo(const boost::shared_ptr<VisionModuleInfo>& pSubscriber) {
  pSubscriber->fIsRecording = false;
  ki::os::usleep(kWriteInProgressUs);  // a write in progress may finish
  if (pSubscriber->fVideo) pSubscriber->fVideo->closeVideo();
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
    if (pApplyPatch && pRawImage.getSizeBytes() > 0) xApplyPatchForKernelMemcopy(&pRawImage);
    if (pSubscriber->fVideo)
      pSubscriber->fVideo->write(pRawImage.fData, static_cast<int>(pRawImage.getSizeBytes()),
                                 pRawImage.fTimeStamp, pRawImage.fCameraId, 0.f, 0.f, 0.f, 0.f);
    ++pSubscriber->fRecordedCount;
  }
  pSubscriber->fRecordCountdown = oneLess(pSubscriber->fRecordCountdown);
}

}  // namespace OX
