/// Arithmetic of the replay. Time stamps come from a file and may be anything, so sums, differences
/// and products wrap as 64-bit counters do, where a plain one would be undefined.
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>

namespace OX::replay {

inline std::int64_t plus(std::int64_t pA, std::int64_t pB) {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(pA) + static_cast<std::uint64_t>(pB));
}
inline std::int64_t minus(std::int64_t pA, std::int64_t pB) {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(pA) - static_cast<std::uint64_t>(pB));
}
inline std::int64_t times(std::int64_t pA, std::int64_t pB) {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(pA) * static_cast<std::uint64_t>(pB));
}

/// Length of one pass through a file of pImages images whose stamps span pSpanUs: the mean distance
/// of two images more than the span. 0 or less when there is none.
inline std::int64_t loopDurationUs(std::int64_t pSpanUs, std::int64_t pImages) {
  return pImages > 0 ? times(pImages + 1, pSpanUs) / pImages : 0;
}

/// Passes of pLoopUs (above 0) that are over after pElapsedUs when the latest image of the first
/// one has its moment at pLatestUs; 0 when that is now or still to come.
inline std::int64_t passesOver(std::int64_t pLatestUs, std::int64_t pElapsedUs,
                               std::int64_t pLoopUs) {
  if (pLatestUs >= pElapsedUs) return 0;
  const std::int64_t late = minus(pElapsedUs, pLatestUs);
  return ((late > 0 ? late : std::numeric_limits<std::int64_t>::max()) - 1) / pLoopUs + 1;
}

/// Microseconds from one image to the next at a rate; the longest there is for 0 and for rates too
/// slow to count; 0 or less (every request steps) for infinite and negative rates.
inline std::int64_t periodUs(float pImagesPerSecond) {
  constexpr std::int64_t kLongest = std::numeric_limits<std::int64_t>::max();
  if (pImagesPerSecond == 0.f) return kLongest;
  const double period = 1.0 / static_cast<double>(pImagesPerSecond) * 1000000.0;
  if (period >= static_cast<double>(kLongest)) return kLongest;
  if (period <= static_cast<double>(std::numeric_limits<std::int64_t>::min()))
    return std::numeric_limits<std::int64_t>::min();
  return static_cast<std::int64_t>(period);
}

}  // namespace OX::replay
