// The system's clock, the one pointer through which tests replace it, and the waits that are
// woken.
#include <oxframework/oxclock.h>

#include <unistd.h>

#include <atomic>
#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <chrono>

namespace OX {
namespace {

class SystemClock : public OXClock {
 public:
  std::int64_t nowUs() override {
    return std::chrono::duration_cast<std::chrono::microseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
  }
  std::int64_t localNowUs() override {
    static const boost::posix_time::ptime kEpoch(boost::gregorian::date(1970, 1, 1));
    return (boost::posix_time::microsec_clock::local_time() - kEpoch).total_microseconds();
  }
  // POSIX allows usleep() to refuse a second and more, so long sleeps are cut into pieces.
  void sleepUs(unsigned int pDurationUs) override {
    constexpr unsigned int kPieceUs = 500000;
    for (; pDurationUs > kPieceUs; pDurationUs -= kPieceUs) ::usleep(kPieceUs);
    ::usleep(pDurationUs);
  }
};

SystemClock& systemClock() {
  static SystemClock clock;
  return clock;
}

// Null for the system's clock, so that restoring it cannot fail whatever a test did before.
std::atomic<OXClock*> gClock{nullptr};

}  // namespace

OXClock::~OXClock() = default;

OXClock& OXClock::get() {
  OXClock* clock = gClock.load();
  return clock ? *clock : systemClock();
}

void OXClock::set(OXClock* pClock) { gClock.store(pClock); }

bool OXClock::isSystem() { return gClock.load() == nullptr; }

// The count goes up before the waiters are looked for, and a waiter registers before it looks at
// the count: one of the two sees the other. Both are sequentially consistent for that reason.
void OXWakeup::notify() {
  ++fCount;
  if (fWaiters.load() == 0) return;
  // A waiter that has read the old count is inside wait() by the time the mutex is free.
  { const std::lock_guard guard(fMutex); }
  fCondition.notify_all();
}

void OXWakeup::wait(std::uint64_t pSeen, std::chrono::microseconds pBound) {
  ++fWaiters;
  {
    std::unique_lock guard(fMutex);
    fCondition.wait_for(guard, pBound, [&] { return fCount.load() != pSeen; });
  }
  --fWaiters;
}

OXBoundedWait::OXBoundedWait(int pPasses, unsigned int pPassUs)
    : fDeadline(std::chrono::steady_clock::now() +
                std::chrono::microseconds(std::int64_t{pPasses} * pPassUs)),
      fPassesLeft(pPasses),
      fPassUs(pPassUs) {}

bool OXBoundedWait::again(OXWakeup& pWakeup, std::uint64_t pSeen) {
  if (!OXClock::isSystem()) {
    if (fPassesLeft <= 1) return false;
    --fPassesLeft;
    OXClock::get().sleepUs(fPassUs);
    return true;
  }
  const auto left = std::chrono::duration_cast<std::chrono::microseconds>(
      fDeadline - std::chrono::steady_clock::now());
  if (left.count() <= 0) return false;
  pWakeup.wait(pSeen, left);
  return true;
}

}  // namespace OX

namespace ki::os {

void gettimeofday(::timeval* pTime) {
  const std::int64_t now = OX::OXClock::get().nowUs();
  pTime->tv_sec = now / 1000000;
  pTime->tv_usec = now % 1000000;
}

void usleep(unsigned int pDurationUs) { OX::OXClock::get().sleepUs(pDurationUs); }

}  // namespace ki::os
