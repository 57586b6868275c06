// Which recorded image is the current one, and when the replay steps. A subscriber's request is
// what moves it. Everything but the published operations runs in the turn of the replay, without a
// lock, since it reads the file.
//
// Two indexes count images and may differ on purpose: the reader's own, by which getNextFrame goes
// on, and fCurrentImage, by which the end of the range is found. previousImage takes one from the
// reader and two from fCurrentImage, so that a replay which was stepped back runs past fLastImage.
//
// The ring is part of what can be seen. previousImage at the start of the range moves it and reads
// nothing, and a mode 0 read that fails leaves a slot its old picture: shortcuts must leave the
// same pictures in the ring as reading every image would.
#include <algorithm>
#include <boost/make_shared.hpp>
#include <cmath>
#include <utility>

#include <oxframework/oxclock.h>
#include <oxframework/oxlog.h>
#include "camerarecord.h"
#include "oxvisionfilecam.h"
#include "replayclock.h"

namespace OX {
namespace {

using replay::minus;
using replay::plus;

// Ends of the range that one request goes past, a few more than it takes to fill the ring. In a
// forged file whose index and frames tell different stamps there would be no end of them.
constexpr int kMostRangeEnds = 16;
// The ring is back where it was after 1 to 5 moves, as many as there are free slots: this many are
// a whole number of turns of each.
constexpr std::int64_t kTurnsToSameSlot = 60;

void log(int pLevel, const char* pFunction, const std::string& pText) {
  report::log(pLevel, pFunction, pText, kFileCamCategory);
}

}  // namespace

// A picture may prove damaged only after it was copied, so every read goes into the spare, which
// takes the place of a slot when all is well. A held slot is left to its holders, and a new spare
// is made: only previousImage meets one, after a request that found the four other slots held.
bool OXVisionFileCam::xTakeSpare(Slot& pSlot, bool pWasRead) {
  if (!pWasRead) return false;
  fSpare->fIsUnshown = true;
  fSpare->fBeginsPass = false;
  fSpare->fIndex = fVideo.getCurrentImage();
  const bool isRead = pSlot->fLockCount > 0 || pSlot->fLentCount > 0;
  Slot spare = isRead ? xFreshSlot(pSlot) : pSlot;
  if (spare == fFrameSlot) fFrameSlot.reset();  // the next read goes into it
  pSlot = std::exchange(fSpare, std::move(spare));
  return true;
}

bool OXVisionFileCam::xReadFrame(std::int64_t pIndex, bool pFirst) {
  const bool fits = pIndex >= 0 && pIndex <= INT32_MAX;
  return fits && fVideo.getFrame(fSpare->fImage, static_cast<int>(pIndex), fStreamNumber, pFirst);
}

bool OXVisionFileCam::xReadNext() { return fVideo.getNextFrame(fSpare->fImage, false); }

// What follows the last image of the range: the first one with loop, the last one again without.
bool OXVisionFileCam::xReadAfterRange() {
  fCurrentImage = fLoop ? fFirstImage : fLastImage;
  const bool read = xReadFrame(fCurrentImage, false);
  ++fCurrentImage;
  return read;
}

// The read-ahead slot becomes the current one, and the next that nobody holds takes its place.
// False when all are held: the ring is then as it was.
bool OXVisionFileCam::xTurnRing() {
  for (unsigned int step = 1; step <= kSlots; ++step) {
    const unsigned int next = (fNextFrame + step) % kSlots;
    if (fFrames[next]->fLockCount > 0) continue;
    fCurrentFrame = fNextFrame;
    fNextFrame = next;
    return true;
  }
  return false;
}

void OXVisionFileCam::xLogRingIsHeld() const {
  log(ki::log::kError, "xMoveRing",
      "All frames are held by subscribers: release one before asking for the next");
}

// The moves for images that are not read. The slot that is ahead counts: an opening dates the
// replay by slot 0, whichever image that holds.
void OXVisionFileCam::xTurnRingPast(std::int64_t pSkipped) {
  for (std::int64_t move = pSkipped % kTurnsToSameSlot + kTurnsToSameSlot; move > 0; --move)
    xTurnRing();
}

bool OXVisionFileCam::xHasPassed(std::int64_t pTimeStamp) const {
  return minus(pTimeStamp, fFirstTimestamp) < minus(fNow, fStartTime);
}

// Measured once per opening, at the first end of the range.
void OXVisionFileCam::xMeasureLoop() {
  if (fLoopDuration == 0)
    fLoopDuration = replay::loopDurationUs(minus(xCurrent().fTimeStamp, fFirstTimestamp),
                                           fVideo.getNumberOfImages());
}

// How many of the next images would be read only to be thrown away, by the stamps in the file's
// index. The last kSlots that have passed are read: they fill every slot that is free.
std::int64_t OXVisionFileCam::xCountSkippableImages() const {
  const std::int64_t next = std::int64_t{fVideo.getCurrentImage()} + 1;
  std::int64_t passed = 0;
  for (; fCurrentImage + passed <= fLastImage && next + passed <= INT32_MAX; ++passed) {
    const auto stamp = fVideo.getTimeStamp(static_cast<int>(next + passed), fStreamNumber);
    if (!stamp || !xHasPassed(plus(*stamp, fTimeOffset))) break;
  }
  return std::max<std::int64_t>(passed - kSlots, 0);
}

// Passes of the loop of which no image is still to come are counted and not played, but for as many
// as it takes to fill the ring. A pass is over when its latest image has passed: when the replay
// was opened in mid-range, passes are longer than fLoopDuration and overlap.
void OXVisionFileCam::xSkipPassedLoops() {
  const std::int64_t images = std::max<std::int64_t>(fLastImage - fFirstImage + 1, 1);
  const std::int64_t kept = (kSlots + images - 1) / images;
  const std::int64_t elapsed = minus(fNow, fStartTime);
  std::int64_t latest = INT64_MIN;
  for (std::int64_t index = fFirstImage; index < fFirstImage + images; ++index) {
    const auto stamp = fVideo.getTimeStamp(static_cast<int>(index), fStreamNumber);
    if (!stamp) return;
    latest = std::max(latest, minus(plus(*stamp, fTimeOffset), fFirstTimestamp));
  }
  const std::int64_t skipped = replay::passesOver(latest, elapsed, fLoopDuration) - kept;
  if (skipped <= 0) return;
  fTimeOffset = plus(fTimeOffset, replay::times(skipped, fLoopDuration));
  xTurnRingPast(skipped % kTurnsToSameSlot * images);
}

// Without loop the last image is dated just after the present, which ends the catching up; so is
// the first one of a loop without length, whose stamps could never catch up.
bool OXVisionFileCam::xCatchUpAfterRange() {
  if (fLoop) xMeasureLoop();
  const bool hasLength = fLoop && fLoopDuration > 0;
  if (hasLength) fTimeOffset = plus(fTimeOffset, fLoopDuration);
  if (!xReadAfterRange()) return false;
  if (hasLength) xSkipPassedLoops();
  xTakeSpare(fFrames[fNextFrame], true);
  fFrames[fNextFrame]->fBeginsPass = hasLength;
  xNext().fTimeStamp = hasLength ? plus(xNext().fTimeStamp, fTimeOffset)
                                 : plus(minus(plus(fNow, fFirstTimestamp), fStartTime), 1);
  return true;
}

bool OXVisionFileCam::xCatchUp() {
  if (fCurrentImage > fLastImage) return xCatchUpAfterRange();
  const std::int64_t skipped = xCountSkippableImages();
  const std::int64_t next = std::int64_t{fVideo.getCurrentImage()} + 1 + skipped;
  const bool read = skipped > 0 ? xReadFrame(next, false) : xReadNext();
  fCurrentImage += skipped + 1;
  fPassedOver += skipped;
  xCamera(0)->fNewestFrame.count += static_cast<std::uint64_t>(skipped);
  if (!read) return false;
  if (skipped > 0) xTurnRingPast(skipped);
  xTakeSpare(fFrames[fNextFrame], true);
  xNext().fTimeStamp = plus(xNext().fTimeStamp, fTimeOffset);
  return true;
}

// One request passes over all images whose moment has gone by. It ends at the first one that can't
// be read: of a file that is closed or all damaged, no stamp would ever catch up.
OXVisionFileCam::Step OXVisionFileCam::xFollowTimeStamps() {
  fNow = OXClock::get().localNowUs();
  bool isStep = true;
  for (int rangeEnds = 0; rangeEnds < kMostRangeEnds && xHasPassed(xNext().fTimeStamp);) {
    if (!xTurnRing()) return Step::kRingIsHeld;
    xCountFrame();
    // The image before was the step, and is now passed over without having been served.
    if (!std::exchange(isStep, false)) ++fPassedOver;
    if (fCurrentImage > fLastImage) ++rangeEnds;
    if (!xCatchUp()) return Step::kServe;
  }
  return Step::kServe;
}

// Stamps never go back within a pass, also after previousImage. They are set whatever came of the
// read: a slot that keeps its old picture gets a stamp of its own like any other.
void OXVisionFileCam::xReadAheadStepping() {
  if (fCurrentImage > fLastImage) {
    if (fLoop) xMeasureLoop();
    fTimeOffset = plus(fTimeOffset, fLoop ? fLoopDuration : 1);
    if (xTakeSpare(fFrames[fNextFrame], xReadAfterRange()))
      fFrames[fNextFrame]->fBeginsPass = fLoop;
    xNext().fTimeStamp = plus(xNext().fTimeStamp, fTimeOffset);
    return;
  }
  xTakeSpare(fFrames[fNextFrame], xReadNext());
  ++fCurrentImage;
  const std::int64_t stamp = plus(xNext().fTimeStamp, fTimeOffset);
  xNext().fTimeStamp = xCurrent().fTimeStamp < stamp ? stamp : plus(xCurrent().fTimeStamp, 1);
}

OXVisionFileCam::Step OXVisionFileCam::xStepWhenDue() {
  fNow = OXClock::get().localNowUs();
  if (fReplayPeriod <= minus(fNow, fStartTime)) fImageServed = false;
  if (fImageServed) return Step::kServe;
  if (!xTurnRing()) return Step::kRingIsHeld;
  fStartTime = OXClock::get().localNowUs();
  xReadAheadStepping();
  fImageServed = true;
  return Step::kServe;
}

OXVisionFileCam::Step OXVisionFileCam::xAdvance(const std::string& pId) {
  const Step step = xStep(pId);
  xCountFrame();
  xPublishFrame();
  return step;
}

OXVisionFileCam::Step OXVisionFileCam::xStep(const std::string& pId) {
  switch (fReplayMode) {
    case 0:
      return xStepWhenDue();
    case 1:
      return xFollowTimeStamps();
    case 2:
    case 3:
      log(ki::log::kFatal, "xGetDirectRawImage",
          report::text("GetDirectRawImage(", pId, ") : replay mode ", fReplayMode,
                       " not yet implemented. Launch replay mode 1 (synchronized with the inner "
                       "clock)..."));
      fReplayMode = 1;
      return Step::kServe;
    default:
      log(ki::log::kError, "xGetDirectRawImage",
          report::text("GetDirectRawImage(", pId, ") : replay mode ", fReplayMode, " unknown!"));
      return Step::kNone;
  }
}

void OXVisionFileCam::nextImage() {
  fImageServed = false;
  xTellFrame(0);
}

void OXVisionFileCam::xStepBack(std::int64_t pTimeStamp) {
  xTakeSpare(fFrames[fCurrentFrame], fVideo.getPrecedingFrame(fSpare->fImage, false));
  xTakeSpare(fFrames[fCurrentFrame], fVideo.getPrecedingFrame(fSpare->fImage, false));
  fCurrentImage -= 2;
  xReadAheadAfterStep(pTimeStamp);
}

void OXVisionFileCam::xLoopBack(std::int64_t pTimeStamp) {
  log(ki::log::kInfo, "previousImage",
      report::text("Loop from index ", fCurrentImage, " to index ", fLastImage - 1));
  fCurrentImage = fLastImage - 1;
  xTakeSpare(fFrames[fCurrentFrame], xReadFrame(fCurrentImage, false));
  ++fCurrentImage;
  xReadAheadAfterStep(pTimeStamp);
}

// A slot that could not be read into and is still held keeps its stamp too: its holders may be
// reading it.
void OXVisionFileCam::xReadAheadAfterStep(std::int64_t pTimeStamp) {
  if (fFrames[fCurrentFrame]->fLockCount == 0) xCurrent().fTimeStamp = plus(pTimeStamp, 1);
  xSelectCameraOf(xCurrent());
  xTakeSpare(fFrames[fNextFrame], xReadNext());
  xNext().fTimeStamp = plus(pTimeStamp, 2);
}

// Between two looks at the ring the turn is given up: a request may be what moves on and releases.
void OXVisionFileCam::previousImage() {
  OXBoundedWait wait(kPreviousPasses, kPassUs);
  for (;;) {
    const std::uint64_t seen = fSlotReleased.count();
    {
      const OXCriticalSectionWrite lock(fVisionModulesLock);
      const TurnScope turn(fReplay, fVisionModulesLock);
      const OXCriticalSectionPause pause(fVisionModulesLock);
      const std::int64_t stamp = xCurrent().fTimeStamp;
      if (xTurnRing()) {
        if (fCurrentImage > fFirstImage)
          xStepBack(stamp);
        else if (fLoop)
          xLoopBack(stamp);
        xCountFrame();
        xPublishFrame();
        return;
      }
    }
    if (!wait.again(fSlotReleased, seen)) break;
  }
  xLogRingIsHeld();
}

void OXVisionFileCam::replaySpeed(const float& pImagesPerSecond) {
  if (std::isnan(pImagesPerSecond)) {
    log(ki::log::kError, "replaySpeed",
        "replaySpeed(NaN) : not a number, the speed stays; images per second are wanted");
    return;
  }
  fReplayPeriod = replay::periodUs(pImagesPerSecond);
  xTellFrame(0);
}

int OXVisionFileCam::getCurrentImageNumber() { return fVideo.getCurrentImage(); }

}  // namespace OX
