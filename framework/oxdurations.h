/// How long something takes, as counters that cost nothing to keep.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>

#include "oxapi.h"

namespace OX {

/// Counts durations in classes that are an eighth of a power of two wide, so that percentiles are
/// right to 6 %. Adding costs some nanoseconds and allocates nothing. Thread-safe; what is read
/// while others add may be short of theirs.
class OX_API OXDurations {
 public:
  void add(std::chrono::nanoseconds pDuration) noexcept;
  std::uint64_t count() const noexcept;
  /// The duration that a share of all is no longer than, 0 to 1; 0 when there is none.
  std::chrono::nanoseconds percentile(double pShare) const noexcept;

 private:
  static constexpr std::size_t kParts = 8;    ///< classes of a power of two
  static constexpr std::size_t kPowers = 44;  ///< up to four hours; longer ones count as that
  std::array<std::atomic<std::uint32_t>, kParts * kPowers> fClasses{};
};

/// Adds the time from its construction to its destruction.
class OXDurationScope {
 public:
  explicit OXDurationScope(OXDurations& pDurations)
      : fDurations(pDurations), fBegin(std::chrono::steady_clock::now()) {}
  ~OXDurationScope() { fDurations.add(std::chrono::steady_clock::now() - fBegin); }
  OXDurationScope(const OXDurationScope&) = delete;
  OXDurationScope& operator=(const OXDurationScope&) = delete;

 private:
  OXDurations& fDurations;
  std::chrono::steady_clock::time_point fBegin;
};

}  // namespace OX
