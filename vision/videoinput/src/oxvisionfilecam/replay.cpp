// Which recorded image is the current one, and when the replay steps. fParametersLock is held in
// everything but the published operations, which take it where they need it.
#include <cmath>

#include <oxframework/oxclock.h>
#include <oxframework/oxlog.h>
#include "oxvisionfilecam.h"
#include "replayclock.h"

namespace OX {
namespace {

using replay::minus;
using replay::plus;

constexpr int kPassUs = 500;
// How often the ring may find all slots held: one second in a delivery, which holds the lock that
// a release needs; longer in previousImage, which does not.
constexpr int kDeliveryPasses = 2000;
constexpr int kPreviousPasses = 10000;

void log(int pLevel, const char* pFunction, const std::string& pText) {
  report::log(pLevel, pFunction, pText, kFileCamCategory);
}

}  // namespace

bool OXVisionFileCam::xReadFrame(OXImage& pImage, std::int64_t pIndex, bool pFirst) {
  const bool fits = pIndex >= 0 && pIndex <= INT32_MAX;
  return fits && fVideo.getFrame(pImage, static_cast<int>(pIndex), fStreamNumber, pFirst);
}

// The read-ahead slot becomes the current one, and the next that nobody holds takes its place.
// False when all stayed held: the ring is then as it was.
bool OXVisionFileCam::xMoveRing(int pPasses) {
  unsigned int next = fNextFrame;
  for (int pass = 0; pass < pPasses; ++pass) {
    if (pass > 0) ki::os::usleep(kPassUs);
    for (unsigned int tried = 0; tried < kSlots; ++tried) {
      next = (next + 1) % kSlots;
      if (fFrames[next]->fLockCount > 0) continue;
      fCurrentFrame = fNextFrame;
      fNextFrame = next;
      return true;
    }
  }
  log(ki::log::kError, "xMoveRing",
      "All frames are held by subscribers: release one before asking for the next");
  return false;
}

bool OXVisionFileCam::xHasPassed(std::int64_t pTimeStamp) const {
  return minus(pTimeStamp, fFirstTimestamp) < minus(fNow, fStartTime);
}

// Images whose moment has passed, and the moment of the one after them too, would be read only to
// be thrown away. The last of them goes straight into the read-ahead slot, as if all had been read.
void OXVisionFileCam::xSkipPassedImages() {
  std::int64_t last = fCurrentImage - 1;
  while (last < fLastImage && last < INT32_MAX) {
    const auto stamp = fVideo.getTimeStamp(static_cast<int>(last + 1), fStreamNumber);
    if (!stamp || !xHasPassed(plus(*stamp, fTimeOffset))) break;
    ++last;
  }
  if (last < fCurrentImage || fFrames[fNextFrame]->fLockCount > 0) return;
  if (!xReadFrame(xNext(), last, false)) return;
  xNext().fTimeStamp = plus(xNext().fTimeStamp, fTimeOffset);
  fCurrentImage = last + 1;
}

bool OXVisionFileCam::xReadFirstOfLoop() {
  if (fLoopDuration == 0)
    fLoopDuration = replay::loopDurationUs(minus(xCurrent().fTimeStamp, fFirstTimestamp),
                                           fVideo.getNumberOfImages());
  const bool hasLength = fLoopDuration > 0;
  if (hasLength) fTimeOffset = plus(fTimeOffset, fLoopDuration);
  fCurrentImage = fFirstImage;
  const bool read = xReadFrame(xNext(), fFirstImage, false);
  ++fCurrentImage;
  if (!read) return false;
  if (!hasLength) {
    // Without a length of the loop the stamps could never catch up: date it just after the present.
    xNext().fTimeStamp = plus(minus(plus(fNow, fFirstTimestamp), fStartTime), 1);
    return true;
  }
  if (fReplayMode == 1) {
    const std::int64_t moment = minus(plus(xNext().fTimeStamp, fTimeOffset), fFirstTimestamp);
    const std::int64_t late = minus(minus(fNow, fStartTime), moment);
    fTimeOffset =
        plus(fTimeOffset, replay::times(replay::passesMissed(late, fLoopDuration), fLoopDuration));
  }
  xNext().fTimeStamp = plus(xNext().fTimeStamp, fTimeOffset);
  return true;
}

bool OXVisionFileCam::xReadLastAgain() {
  fCurrentImage = fLastImage;
  const bool read = xReadFrame(xNext(), fLastImage, false);
  ++fCurrentImage;
  return read;
}

bool OXVisionFileCam::xReadAhead() {
  if (fCurrentImage > fLastImage && fLoop) return xReadFirstOfLoop();
  if (fCurrentImage > fLastImage) {
    const bool read = xReadLastAgain();
    // Just after the present, so that the catching up ends.
    if (read) xNext().fTimeStamp = plus(minus(plus(fNow, fFirstTimestamp), fStartTime), 1);
    return read;
  }
  const bool read = fVideo.getNextFrame(xNext(), false);
  ++fCurrentImage;
  if (read) xNext().fTimeStamp = plus(xNext().fTimeStamp, fTimeOffset);
  return read;
}

// Stamps never go back here, also after previousImage.
bool OXVisionFileCam::xReadAheadStepping() {
  if (fCurrentImage > fLastImage && fLoop) return xReadFirstOfLoop();
  if (fCurrentImage > fLastImage) {
    const bool read = xReadLastAgain();
    fTimeOffset = plus(fTimeOffset, 1);
    if (read) xNext().fTimeStamp = plus(xNext().fTimeStamp, fTimeOffset);
    return read;
  }
  const bool read = fVideo.getNextFrame(xNext(), false);
  ++fCurrentImage;
  if (!read) return false;
  const std::int64_t stamp = plus(xNext().fTimeStamp, fTimeOffset);
  xNext().fTimeStamp = xCurrent().fTimeStamp < stamp ? stamp : plus(xCurrent().fTimeStamp, 1);
  return true;
}

// One request passes over all images whose moment has gone by. It ends at the first image that
// can't be read, which leaves the slot's old content.
bool OXVisionFileCam::xFollowTimeStamps() {
  fNow = OXClock::get().localNowUs();
  while (xHasPassed(xNext().fTimeStamp)) {
    xSkipPassedImages();
    if (!xMoveRing(kDeliveryPasses)) return false;
    if (!xReadAhead()) return true;
  }
  return true;
}

bool OXVisionFileCam::xStepWhenDue() {
  fNow = OXClock::get().localNowUs();
  if (fReplayPeriod <= minus(fNow, fStartTime)) fImageServed = false;
  if (fImageServed) return true;
  if (!xMoveRing(kDeliveryPasses)) return false;
  fStartTime = OXClock::get().localNowUs();
  xReadAheadStepping();
  fImageServed = true;
  return true;
}

// False when the request gets no image.
bool OXVisionFileCam::xAdvance(const std::string& pId) {
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
      return true;
    default:
      log(ki::log::kError, "xGetDirectRawImage",
          report::text("GetDirectRawImage(", pId, ") : replay mode ", fReplayMode, " unknown!"));
      return false;
  }
}

void OXVisionFileCam::nextImage() { fImageServed = false; }

// The reader goes two back and one forward while the count goes back by two: on purpose.
void OXVisionFileCam::xStepBack(std::int64_t pTimeStamp) {
  fVideo.getPrecedingFrame(xCurrent(), false);
  fVideo.getPrecedingFrame(xCurrent(), false);
  xCurrent().fTimeStamp = plus(pTimeStamp, 1);
  xSelectCameraOf(xCurrent());
  fVideo.getNextFrame(xNext(), false);
  fCurrentImage -= 2;
  xNext().fTimeStamp = plus(pTimeStamp, 2);
}

void OXVisionFileCam::xLoopBack(std::int64_t pTimeStamp) {
  log(ki::log::kInfo, "previousImage",
      report::text("Loop from index ", fCurrentImage, " to index ", fLastImage - 1));
  fCurrentImage = fLastImage - 1;
  xReadFrame(xCurrent(), fCurrentImage, false);
  xCurrent().fTimeStamp = plus(pTimeStamp, 1);
  xSelectCameraOf(xCurrent());
  fVideo.getNextFrame(xNext(), false);
  ++fCurrentImage;
  xNext().fTimeStamp = plus(pTimeStamp, 2);
}

void OXVisionFileCam::previousImage() {
  const OXCriticalSection replay(fParametersLock);
  const std::int64_t stamp = xCurrent().fTimeStamp;
  if (!xMoveRing(kPreviousPasses)) return;
  if (fCurrentImage > fFirstImage)
    xStepBack(stamp);
  else if (fLoop)
    xLoopBack(stamp);
}

void OXVisionFileCam::replaySpeed(const float& pImagesPerSecond) {
  if (std::isnan(pImagesPerSecond)) {
    log(ki::log::kError, "replaySpeed",
        "replaySpeed(NaN) : not a number, the speed stays; images per second are wanted");
    return;
  }
  fReplayPeriod = replay::periodUs(pImagesPerSecond);
}

int OXVisionFileCam::getCurrentImageNumber() { return fVideo.getCurrentImage(); }

}  // namespace OX
