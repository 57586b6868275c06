/// Decides when frames are due and which are too late to send.
#pragma once

#include <chrono>
#include <cstdint>

namespace OX::cli {

/// Divides time into slots of one frame each; a slot missed entirely is dropped. Pure arithmetic:
/// the caller supplies the time. One thread only.
class OXPacer {
 public:
  using Time = std::chrono::steady_clock::time_point;

  /// The first frame is due at pStart.
  OXPacer(Time pStart, double pFps) : fBase(pStart), fFps(pFps) {}

  /// Changes the rate from the next due slot on.
  void setFps(double pFps);
  double fps() const { return fFps; }

  /// When the next frame is due.
  Time due() const;

  /// Starts the slot that pNow (not before due()) falls into. Returns the number of slots dropped
  /// in between.
  std::int64_t start(Time pNow);

 private:
  Time fBase;
  double fFps;
  std::int64_t fSlot = 0;  ///< the next one
};

}  // namespace OX::cli
