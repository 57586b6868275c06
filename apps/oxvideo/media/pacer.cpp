// Times are computed from the slot number and never summed up, so that rounding can't accumulate
// into a drift.
#include "media/pacer.h"

#include <algorithm>
#include <cmath>

namespace OX::cli {

void OXPacer::setFps(double pFps) {
  if (pFps == fFps) return;
  fBase = due();
  fSlot = 0;
  fFps = pFps;
}

OXPacer::Time OXPacer::due() const {
  const std::chrono::duration<double> offset(static_cast<double>(fSlot) / fFps);
  return fBase + std::chrono::duration_cast<Time::duration>(offset);
}

std::int64_t OXPacer::start(Time pNow) {
  const std::chrono::duration<double> elapsed = pNow - fBase;
  const auto underWay =
      std::max(fSlot, static_cast<std::int64_t>(std::floor(elapsed.count() * fFps)));
  const std::int64_t dropped = underWay - fSlot;
  fSlot = underWay + 1;
  return dropped;
}

}  // namespace OX::cli
