// Marks and counters are atomic, since they are read at each event, on the thread of whoever
// pushes; only the taking of frames itself has a lock.
#include "stream.h"

#include <algorithm>
#include <utility>

#include "memory/aheadframe.h"

namespace OX {

Stream::Stream(Setup pSetup)
    : fShare(std::move(pSetup.share)),
      fSetup(std::move(pSetup)),
      fMarks(fSetup.subscription->formats().size()),
      fPace(fSetup.fps) {
  for (const FrameFormat& format : formats()) note(format.camera);
}

Stream::~Stream() = default;

OXError Stream::overError(const std::string& pId) {
  return {
      "OXVideoStream", "next",
      "Stream \"" + pId + "\" has ended: its subscriber was unsubscribed, or the device has ended"};
}

bool Stream::hasCamera(int pCamera) const {
  return std::any_of(formats().begin(), formats().end(),
                     [&](const FrameFormat& pFormat) { return pFormat.camera == pCamera; });
}

void Stream::note(int pCamera) {
  for (std::size_t i = 0; i < fMarks.size(); ++i) {
    if (formats()[i].camera != pCamera) continue;
    std::uint64_t none = 0;
    if (const std::uint64_t newest = fSetup.subscription->newestFrame(i); newest != 0)
      fMarks[i].first.compare_exchange_strong(none, newest);
  }
}

// ---- what is new ----

bool Stream::xIsNew(std::size_t pIndex) const {
  return fSetup.subscription->newestFrame(pIndex) > fMarks[pIndex].given;
}

bool Stream::hasAnyNew() const {
  for (std::size_t i = 0; i < fMarks.size(); ++i)
    if (xIsNew(i)) return true;
  return false;
}

bool Stream::isNext(const Frame& pFrame) const {
  return pFrame.number() > fMarks[0].given &&
         pFrame.number() >= fSetup.subscription->newestFrame(0);
}

std::optional<Stream::Clock::time_point> Stream::xNextFrame(std::size_t pIndex,
                                                            Clock::time_point pNow,
                                                            const IFrameSource* pSource) const {
  if (xIsNew(pIndex)) return pNow;
  if (!pSource) return {};
  const auto until = pSource->untilNextFrame(formats()[pIndex].camera);
  if (!until) return {};
  return pNow + std::max(*until, std::chrono::microseconds(0));
}

std::optional<Stream::Clock::time_point> Stream::nextChance(Clock::time_point pNow,
                                                            const IFrameSource* pSource) const {
  Clock::time_point moment = pNow;
  for (std::size_t i = 0; i < fMarks.size(); ++i) {
    const std::optional<Clock::time_point> next = xNextFrame(i, pNow, pSource);
    if (!next) return {};
    moment = std::max(moment, *next);
  }
  return fPace.fit(moment);
}

// ---- taking ----

Stream::Result Stream::take(Pixels pPixels, bool pIsPartial, std::span<const FrameTarget> pTargets,
                            std::span<Frame> pFrames) {
  const detail::MutexLock hold(fTaking);
  std::size_t taken = 0;
  Result worst = Result::kNothingNew;
  for (std::size_t i = 0; i < fMarks.size(); ++i) {
    const FrameTarget target = pTargets.empty() ? FrameTarget() : pTargets[i];
    const Result result =
        fSetup.subscription->take(i, fMarks[i].given, pPixels, pFrames[i], target);
    if (result == Result::kOver) return result;
    if (result == Result::kFrame) ++taken;
    if (result == Result::kFailed) worst = result;
  }
  if (taken == 0 || (taken < fMarks.size() && !pIsPartial)) return worst;
  std::chrono::microseconds youngest = std::chrono::hours(1);
  for (std::size_t i = 0; i < fMarks.size(); ++i)
    if (pFrames[i]) youngest = std::min(youngest, xCount(i, pFrames[i]));
  fPace.given(Clock::now(), youngest, fKeepsUp);
  return Result::kFrame;
}

Stream::Result Stream::fetch(const FrameTarget& pTarget, Frame& pFrame) {
  const detail::MutexLock hold(fTaking);
  return fSetup.subscription->take(0, fMarks[0].given, Pixels::kConverted, pFrame, pTarget);
}

bool Stream::countFetched(const Frame& pFrame) {
  const detail::MutexLock hold(fTaking);
  if (pFrame.number() <= fMarks[0].given) return false;
  const std::chrono::microseconds age = xCount(0, pFrame);
  fPace.given(Clock::now(), age, fKeepsUp);
  return true;
}

std::chrono::microseconds Stream::xCount(std::size_t pIndex, const Frame& pFrame) {
  Mark& mark = fMarks[pIndex];
  std::uint64_t none = 0;
  mark.first.compare_exchange_strong(none, pFrame.number());
  const std::uint64_t expected = std::max(mark.given + 1, mark.first.load());
  mark.given = pFrame.number();
  fGiven.fetch_add(1, std::memory_order_relaxed);
  fKeepsUp = pFrame.number() <= expected;
  if (!fKeepsUp) fSkipped.fetch_add(pFrame.number() - expected, std::memory_order_relaxed);
  // The clock may have been set back.
  const std::chrono::microseconds age(
      std::max<std::int64_t>(OXClock::get().nowUs() - pFrame.arrivedUs(), 0));
  fAges.add(age);
  return age;
}

void Stream::returnShare() {
  const detail::MutexLock hold(fShareGuard);
  fShare = {};
}

StreamStatistics Stream::statistics() const {
  using std::chrono::duration_cast;
  using std::chrono::microseconds;
  StreamStatistics result;
  result.given = fGiven;
  result.skipped = fSkipped;
  result.timedOut = fTimedOut;
  result.ageMedianUs = duration_cast<microseconds>(fAges.percentile(0.5)).count();
  result.age99Us = duration_cast<microseconds>(fAges.percentile(0.99)).count();
  result.newestAgeUs = 0;
  for (std::size_t i = 0; i < fMarks.size() && result.newestAgeUs >= 0; ++i) {
    const std::int64_t age = fSetup.subscription->newestAgeUs(i);
    result.newestAgeUs = age < 0 ? -1 : std::max(result.newestAgeUs, age);
  }
  return result;
}

}  // namespace OX
