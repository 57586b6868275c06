/// When the next frame is due, and which ones are too late.
#pragma once

#include <chrono>
#include <cstdint>

namespace OX::cli {

/// Cuts time into slots of one frame each. A slot that has gone by before its frame was sent is
/// dropped. Pure arithmetic: the caller brings the time. One thread only.
class OXPacer {
 public:
  using Time = std::chrono::steady_clock::time_point;

  /// The first frame is due at pStart.
  OXPacer(Time pStart, double pFps) : fBase(pStart), fFps(pFps) {}

  /// Changes the rate: slots count anew from the one that is due next.
  void setFps(double pFps);
  double fps() const { return fFps; }

  /// When the next frame is due.
  Time due() const;

  /// Starts the slot that is under way at pNow, which must not lie before due(). Those between are
  /// dropped; the answer is how many.
  std::int64_t start(Time pNow);

 private:
  Time fBase;
  double fFps;
  std::int64_t fSlot = 0;  ///< the next one
};

}  // namespace OX::cli
