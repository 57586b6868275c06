/// The one clock of the process. Freshness, replay and every sleep go through it, so that tests can
/// replace it and need not wait.
#pragma once

#include <sys/time.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "oxapi.h"

namespace OX {

/// Thread-safe, and every implementation must be.
class OX_API OXClock {
 public:
  virtual ~OXClock();
  /// Microseconds since 1970-01-01 00:00 UTC.
  virtual std::int64_t nowUs() = 0;
  /// The same in local time, which the replay clock uses.
  virtual std::int64_t localNowUs() = 0;
  /// Sleeps at least this long.
  virtual void sleepUs(unsigned int pDurationUs) = 0;

  /// The clock in force; the system's unless replaced.
  static OXClock& get();
  /// Replaces the clock in force. pClock is borrowed until the next call; null restores the
  /// system's.
  static void set(OXClock* pClock);
  /// Whether the system's clock is in force.
  static bool isSystem();
};

/// Wakes the threads that wait for a change of some state, which a lock of its owner guards.
///
///   std::uint64_t seen = fWakeup.count();   // with the lock held, before the state is tested
///   ...                                     // the lock is released
///   fWakeup.wait(seen, fiveSeconds);        // returns at once if notify() was called since
///
/// Thread-safe. notify() costs two atomic operations while nobody waits. Neither allocates.
class OX_API OXWakeup {
 public:
  /// How often notify() was called.
  std::uint64_t count() const { return fCount.load(); }
  /// Called after the state has changed.
  void notify();
  /// Returns after the next notify() since count() was pSeen, or after pBound of real time.
  void wait(std::uint64_t pSeen, std::chrono::microseconds pBound);

 private:
  std::atomic<std::uint64_t> fCount{0};
  std::atomic<int> fWaiters{0};
  std::mutex fMutex;
  std::condition_variable fCondition;
};

/// A wait for something that happens outside, such as a release by a client. It is woken by an
/// OXWakeup and never longer than pPasses times pPassUs.
///
/// On the clock of a test no real time passes: each pass is then one sleep of that clock, after
/// which the caller tests again. One thread only.
class OX_API OXBoundedWait {
 public:
  OXBoundedWait(int pPasses, unsigned int pPassUs);
  /// Waits; false at once, and ever after, when the bound has been reached. pSeen is what
  /// pWakeup.count() was before the caller tested what it waits for.
  bool again(OXWakeup& pWakeup, std::uint64_t pSeen);

 private:
  std::chrono::steady_clock::time_point fDeadline;
  int fPassesLeft;
  unsigned int fPassUs;
};

}  // namespace OX

namespace ki::os {

/// The time of OXClock::get() in seconds and microseconds.
OX_API void gettimeofday(::timeval* pTime);

/// Sleeps by OXClock::get().
OX_API void usleep(unsigned int pDurationUs);

}  // namespace ki::os
