// The copies that OXVideoStatus publishes. One hold of the lock for reading each, so that a copy is
// of one moment. Counters of the image path are atomic, since sharing an image needs that lock for
// reading only; whether a subscriber holds an image is counted for the same reason.
#include <algorithm>

#include <oxframework/oxclock.h>
#include <oxframework/oxdefinitions.h>
#include "camerarecord.h"
#include "oxvisionvideoinput.h"
#include "subscriberrecord.h"

namespace OX {
namespace {

constexpr int kLowestFrameRate = 5;  // the floor of negotiation, whatever subscribers ask for
constexpr int kMostFrameRate = 255;

}  // namespace

void VisionModuleInfo::countServed(std::int64_t pNowUs, int pImages) {
  fServedCount.store(fServedCount.load(std::memory_order_relaxed) + pImages,
                     std::memory_order_relaxed);
  fLastServedUs.store(pNowUs, std::memory_order_relaxed);
}

void VisionModuleInfo::countFrame(std::int64_t pNowUs) {
  fFrameCount.fetch_add(1, std::memory_order_relaxed);
  fLastServedUs.store(pNowUs, std::memory_order_relaxed);
}

void VisionModuleInfo::countHold(int pChange) {
  fHoldCount.store(fHoldCount.load(std::memory_order_relaxed) + pChange, std::memory_order_relaxed);
}

OXImage* OXVisionVideoInput::xCountServed(VisionModuleInfo& pSubscriber, OXImage* pImage) {
  if (pImage) pSubscriber.countServed(OXClock::get().nowUs(), 1);
  return pImage;
}

std::vector<OXImage*> OXVisionVideoInput::xCountServed(VisionModuleInfo& pSubscriber,
                                                       std::vector<OXImage*> pImages) {
  const auto lent = static_cast<int>(
      std::count_if(pImages.begin(), pImages.end(), [](const OXImage* p) { return p; }));
  if (lent > 0) pSubscriber.countServed(OXClock::get().nowUs(), lent);
  return pImages;
}

std::vector<SubscriberStatus> OXVisionVideoInput::subscriberStatus() const {
  const std::int64_t now = OXClock::get().nowUs();
  std::vector<SubscriberStatus> result;
  const OXCriticalSectionRead lock(fVisionModulesLock);
  result.reserve(fVisionModules.size());
  for (const auto& [id, subscriber] : fVisionModules) {
    SubscriberStatus& status = result.emplace_back();
    status.id = id;
    status.cameras = subscriber->fIsMultiStream ? subscriber->fActiveCameras
                                                : std::vector<int>{xCurrentCamera(*subscriber)};
    std::erase_if(status.cameras, [this](int pCamera) { return !xCamera(pCamera); });
    for (const int camera : status.cameras) {
      const RequestedCameraProperties& wish = subscriber->wish(camera);
      status.resolutions.push_back(wish.fResolution);
      status.colorSpaces.push_back(wish.fColorSpace);
      status.cameraRates.push_back(xCamera(camera)->fFrameRate);
    }
    status.frameRate = subscriber->fFrameRate;
    status.served = subscriber->fServedCount.load(std::memory_order_relaxed) +
                    subscriber->fFrameCount.load(std::memory_order_relaxed);
    status.holds = subscriber->fHoldCount.load(std::memory_order_relaxed);
    const std::int64_t last = subscriber->fLastServedUs.load(std::memory_order_relaxed);
    if (status.served > 0) status.ageUs = std::max<std::int64_t>(now - last, 0);
  }
  return result;
}

std::vector<CameraStatus> OXVisionVideoInput::cameraStatus() const {
  const std::int64_t now = OXClock::get().nowUs();
  std::vector<CameraStatus> result;
  const OXCriticalSectionRead lock(fVisionModulesLock);
  for (int i = 0; i < fNbCameras; ++i) {
    const RealCameraProperties& camera = *xCamera(i);
    CameraStatus& status = result.emplace_back();
    status.index = i;
    status.model = camera.fCameraModel;
    setSizeFromResolution(camera.fResolution, status.width, status.height);
    status.colorSpace = camera.fColorSpace;
    status.frameRate = camera.fFrameRate;
    status.grabberState = camera.fGrabberState;
    for (int resolution = kQQVGA; resolution <= k4VGA; ++resolution)
      if (xIsResolutionValid(resolution, i)) status.resolutions.push_back(resolution);
    status.lowestRate = kLowestFrameRate;
    status.highestRate = kMostFrameRate;
    while (status.highestRate > status.lowestRate && !xIsFrameRateValid(status.highestRate, i))
      --status.highestRate;
    status.feed = xFeedStatus(i, now);
  }
  return result;
}

std::vector<RecordingStatus> OXVisionVideoInput::recordingStatus() const {
  const OXCriticalSectionRead lock(fVisionModulesLock);
  return fRecordings.status();
}

}  // namespace OX
