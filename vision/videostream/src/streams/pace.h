/// The rate of a stream.
#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>

namespace OX {

/// When a stream may be given its next frame. The moments lie a period apart from each other and
/// not from when frames were given: a camera's frames come a little early and a little late, and a
/// stream of the camera's own rate must not lose every second one to that. They follow the arrival
/// of frames: one that was given late, as the first one often is, makes no later one wait; and
/// where frames wait for their moment, the moments move towards the frames, to earlier ones while
/// none is skipped, else to later ones.
///
/// Thread-safe; given() is called by one thread at a time.
class Pace {
 public:
  using Clock = std::chrono::steady_clock;

  /// 0: each frame as it comes.
  explicit Pace(int pFps)
      : fPeriod(pFps > 0 ? std::chrono::nanoseconds(std::chrono::seconds(1)) / pFps
                         : std::chrono::nanoseconds(0)) {}

  /// When a frame that is there at pMoment is to be given: then, or later.
  Clock::time_point fit(Clock::time_point pMoment) const {
    const Clock::time_point due(fDue.load());
    return pMoment >= due - fPeriod / kEarly ? pMoment : due;
  }

  /// A frame was given that had come pAge before. pIsNext: none was skipped before it.
  void given(Clock::time_point pNow, std::chrono::nanoseconds pAge, bool pIsNext) {
    const Clock::time_point due(fDue.load());
    const Clock::time_point arrival =
        pNow - std::min<std::chrono::nanoseconds>(pAge, fPeriod / kLate);
    // A frame that is late moves no other one, unless it is so late that two would come together.
    const bool isNearlyInTime = arrival - due <= fPeriod / kLate;
    const bool hasWaited = arrival < due - fPeriod / kEarly;
    const int steps = hasWaited ? (pIsNext ? -1 : 1) : 0;
    fDue =
        (isNearlyInTime ? due : arrival).time_since_epoch() + fPeriod + steps * (fPeriod / kStep);
  }

 private:
  static constexpr int kEarly = 8;  ///< a frame may be early by this part of a period
  static constexpr int kLate = 2;
  static constexpr int kStep = 32;  ///< which the moments move by at once

  const std::chrono::nanoseconds fPeriod;
  std::atomic<Clock::duration> fDue{Clock::duration(0)};  ///< since the clock's epoch
};

}  // namespace OX
