/// When a wait ends.
#pragma once

#include <algorithm>
#include <chrono>

namespace OX::wire {

/// One time limit for an operation of several waits. A caller's limit may be any number: added to
/// the time as it is, the largest would overflow into the past.
inline std::chrono::steady_clock::time_point deadlineAfter(std::chrono::milliseconds pTimeout) {
  constexpr std::chrono::hours kLongest(24 * 365);
  return std::chrono::steady_clock::now() + std::min<std::chrono::milliseconds>(pTimeout, kLongest);
}

/// A time limit that is longer by some time; less than none counts as none.
inline std::chrono::milliseconds sumOf(std::chrono::milliseconds pLimit,
                                       std::chrono::milliseconds pLonger) {
  const auto longer = std::max(pLonger, std::chrono::milliseconds(0));
  return pLimit > std::chrono::milliseconds::max() - longer ? std::chrono::milliseconds::max()
                                                            : pLimit + longer;
}

}  // namespace OX::wire
