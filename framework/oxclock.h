/// The one clock of the process. Freshness, replay and every sleep go through it, so that tests can
/// replace it and need not wait.
#pragma once

#include <sys/time.h>

#include <cstdint>

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
};

}  // namespace OX

namespace ki::os {

/// The time of OXClock::get() in seconds and microseconds.
OX_API void gettimeofday(::timeval* pTime);

/// Sleeps by OXClock::get().
OX_API void usleep(unsigned int pDurationUs);

}  // namespace ki::os
