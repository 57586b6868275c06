// The steps of the replay as numbered frames. A step is one if it shows an image that was really
// read, and another one than before: after the end of a recording without loop, each request reads
// the last image once more, and a failed read leaves an old picture. Nobody makes a step but who
// asks, so a stream learns here when the next one is due, and takes it as a request does.
#include <algorithm>
#include <boost/make_shared.hpp>
#include <utility>

#include <oxframework/oxclock.h>
#include "buffers/lending.h"
#include "camerarecord.h"
#include "oxvisionfilecam.h"
#include "replayclock.h"

namespace OX {
namespace {

using std::chrono::microseconds;

// After a read that failed: the next one may fail too, for as long as a stream waits.
constexpr std::int64_t kPauseAfterFailureUs = 33333;

std::int64_t plusAtMost(std::int64_t pA, std::int64_t pB) {
  std::int64_t sum = 0;
  if (!__builtin_add_overflow(pA, pB, &sum)) return sum;
  return pB < 0 ? INT64_MIN : INT64_MAX;
}

std::int64_t minusAtMost(std::int64_t pA, std::int64_t pB) {
  std::int64_t difference = 0;
  if (!__builtin_sub_overflow(pA, pB, &difference)) return difference;
  return pB > 0 ? INT64_MIN : INT64_MAX;
}

}  // namespace

OXVisionFileCam::Slot OXVisionFileCam::xFreshSlot(const Slot& pLeft) {
  Slot fresh;
  for (Slot& left : fLentSlots)
    if (!fresh && left && left->fLentCount == 0 && left->fLockCount == 0) fresh.swap(left);
  if (!fresh) fresh = boost::make_shared<CamBuffer>();
  fLentSlots[fNextLentSlot++ % kLentSlots] = pLeft;
  return fresh;
}

void OXVisionFileCam::xCountFrame() {
  const Slot& slot = fFrames[fCurrentFrame];
  if (!std::exchange(slot->fIsUnshown, false)) return;
  if (slot->fIndex != fFrameIndex || slot->fBeginsPass)
    fFrame = {++xCamera(0)->fNewestFrame.count, OXClock::get().nowUs()};
  fFrameIndex = slot->fIndex;
  fFrameSlot = slot;
}

void OXVisionFileCam::xBeginFrames() {
  // In mode 0 the first request steps on at once.
  fFrames[fCurrentFrame]->fIsUnshown = fReplayMode != 0;
  xCountFrame();
  xPublishFrame();
}

void OXVisionFileCam::xPublishFrame() {
  NewestFrame& newest = xCamera(0)->fNewestFrame;
  const CamBuffer& ahead = *fFrames[fNextFrame];
  const bool isAtEnd =
      ahead.fIsUnshown && ahead.fIndex == fFrameIndex && !ahead.fBeginsPass && fFrameSlot;
  Pace pace = Pace::kNever;
  std::int64_t moment = 0;
  if (fReplayMode == 0) {
    pace = isAtEnd ? Pace::kOnRequest : Pace::kByPeriod;
    if (!isAtEnd) moment = fStartTime;
  } else if (fReplayMode >= 1 && fReplayMode <= 3 && !isAtEnd) {
    pace = Pace::kByMoment;
    const std::int64_t offset = replay::minus(ahead.fImage.fTimeStamp, fFirstTimestamp);
    moment = plusAtMost(plusAtMost(fStartTime, offset), 1);
    if (!ahead.fIsUnshown)
      moment = std::max(moment, OXClock::get().localNowUs() + kPauseAfterFailureUs);
  }
  fLeastPeriod = ahead.fIsUnshown ? 0 : kPauseAfterFailureUs;
  const FrameMark mark = fFrameSlot ? fFrame : FrameMark{};
  const bool isNew = newest.number != mark.number || fPace != pace || fPaceUs != moment;
  newest.set(mark);
  fPaceUs = moment;
  fPace = pace;
  if (isNew) xTellFrame(0);
}

std::optional<microseconds> OXVisionFileCam::untilNextFrame(int pCamera) const {
  const RealCameraProperties* const camera = xCamera(pCamera);
  if (!camera) return {};
  if (camera->fGrabberState != kGrabberRunning) {
    // Also after a failure: that was of the recording before.
    if (camera->fGrabberState <= kGrabberStopped && fIsSelected) return microseconds(0);
    return {};
  }
  const Pace pace = fPace;
  if (pace == Pace::kNever) return {};
  const std::int64_t now = OXClock::get().localNowUs();
  if (pace == Pace::kByMoment) return microseconds(minusAtMost(fPaceUs, now));
  if (!fImageServed) return microseconds(0);
  const std::int64_t period = std::max<std::int64_t>(fReplayPeriod, fLeastPeriod);
  if (pace == Pace::kOnRequest || period == INT64_MAX) return {};
  return microseconds(minusAtMost(plusAtMost(fPaceUs, period), now));
}

// As a request does, but for the wait for a slot. Only an open recording steps: what is still ahead
// in the ring of a closed one is no new frame.
void OXVisionFileCam::xLendNewest(int pCamera, const std::string& pId, std::uint64_t pAfter,
                                  LentFrame& pFrame) {
  {
    const TurnScope turn(fReplay, fVisionModulesLock);
    const bool isOpen = xCamera(pCamera)->fGrabberState == kGrabberRunning;
    const OXCriticalSectionPause pause(fVisionModulesLock);
    const bool isHeld = isOpen && xAdvance(pId) == Step::kRingIsHeld;
    if (!fFrameSlot || fFrame.number <= pAfter) {
      if (isHeld) xLogRingIsHeld();
      pFrame.isFailed = isHeld;
      return;
    }
    ++fFrameSlot->fLentCount;
    pFrame.source = fFrameSlot;
    pFrame.mark = fFrame;
    OXImage& image = pFrame.image.emplace(fFrameSlot->fImage, OXImage::ViewTag());
    // As raw images are lent to requests: without the angles of the recording.
    image.fLeftAngle = image.fTopAngle = image.fRightAngle = image.fBottomAngle = 0.f;
  }
  xSelectCameraOf(*pFrame.image);
  xCountStep(*pFrame.image);
}

void OXVisionFileCam::xReturnLent(int, const boost::shared_ptr<void>& pSource) noexcept {
  --static_cast<CamBuffer*>(pSource.get())->fLentCount;
}

}  // namespace OX
