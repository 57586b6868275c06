// Recording of the raw frames that pass through a subscriber's own requests. There is no thread
// for it: a frame is considered only when the subscriber asks for an image.
#include <cstdint>

#include <oxframework/oxerror.h>
#include <oxframework/oxlog.h>
#include <oxframework/oxvideo.h>
#include "oxvisionvideoinput.h"

namespace OX {
namespace {

constexpr int kPixelDepth = 8;

constexpr report::SubscriberTexts kRecordVideo{"recordVideo", "recordVideo()", "recordVideo(",
                                               "Multi stream module can't call this method"};
constexpr report::SubscriberTexts kStopVideo{"stopVideo", "stopVideo()", "stopVideo(",
                                             "Multi stream module can't call this method",
                                             ", ...) : module "};

// One less, and round from the smallest number to the largest.
std::int32_t oneLess(std::int32_t pNumber) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(pNumber) - 1u);
}

}  // namespace

bool OXVisionVideoInput::recordVideo(const std::string& pName, const std::string& pPath,
                                     const int& pTotalNumber, const int& pPeriod) {
  // Reading keeps delivery away; fParametersLock keeps two recorders of one subscriber apart.
  const OXCriticalSectionRead lock(fVisionModulesLock);
  const OXCriticalSection recorders(fParametersLock);
  const auto module = xSubscriber(pName, Family::Mono, kRecordVideo);
  const RealCameraProperties& camera =
      *xCamera(xCheckedCurrentCamera(*module, kRecordVideo.function));
  // What can fail comes first: nothing of the record has changed then.
  const OXValue size = resolutionToSizes(camera.fResolution);
  const streamHeader header{size[0].toInt(), size[1].toInt(), camera.fColorSpace, kPixelDepth};
  module->fRecordPeriod = pPeriod > 0 ? pPeriod : 1;
  module->fRecordedCount = 0;
  module->fRecordTotal = pTotalNumber > 0 ? pTotalNumber : 1;
  // From the period as given: 0 or less never reaches the next image.
  module->fRecordCountdown = oneLess(pPeriod);
  module->fVideo = std::make_unique<OXVideo>();
  const bool opened = module->fVideo->recordVideo(pPath, 0, {header});
  module->fIsRecording = true;  // also when the file could not be opened: writing is harmless
  return opened;
}

bool OXVisionVideoInput::stopVideo(const std::string& pName) {
  const OXCriticalSectionRead lock(fVisionModulesLock);
  const OXCriticalSection recorders(fParametersLock);
  return xCloseVideo(xSubscriber(pName, Family::Mono, kStopVideo));
}

void OXVisionVideoInput::xRecord(const boost::shared_ptr<VisionModuleInfo>& pModule,
                                 const OXImage& pRawImage, bool pApplyPatch) {
  if (pModule->fRecordedCount >= pModule->fRecordTotal) {
    xCloseVideo(pModule);
    return;
  }
  if (pModule->fRecordCountdown == 0) {
    pModule->fRecordCountdown = pModule->fRecordPeriod;
    if (pApplyPatch && pRawImage.getSizeBytes() > 0) xApplyPatchForKernelMemcopy(&pRawImage);
    if (pModule->fVideo)
      pModule->fVideo->write(pRawImage.fData, static_cast<int>(pRawImage.getSizeBytes()),
                             pRawImage.fTimeStamp, pRawImage.fCameraId, 0.f, 0.f, 0.f, 0.f);
    ++pModule->fRecordedCount;
  }
  pModule->fRecordCountdown = oneLess(pModule->fRecordCountdown);
}

}  // namespace OX
