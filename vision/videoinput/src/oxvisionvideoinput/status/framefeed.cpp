// The rate is computed from the arrivals when somebody asks: a push only stores one more.
#include "status/framefeed.h"

#include <algorithm>

#include <oxframework/oxbroker.h>

namespace OX {
namespace {

constexpr std::int64_t kRateWindowUs = 2000000;

}  // namespace

std::string describeCaller() {
  const OXCallerContext* const context = OXCallerContext::current();
  return context ? describe(context->getCaller()) : "local";
}

void FrameFeed::add(std::int64_t pNowUs, std::int64_t pStampUs, int pWidth, int pHeight,
                    std::string& pFeeder) noexcept {
  fArrivalsUs[fCount % kArrivals] = pNowUs;
  ++fCount;
  fStampUs = pStampUs;
  fWidth = pWidth;
  fHeight = pHeight;
  fFeeder.swap(pFeeder);
}

FeedStatus FrameFeed::status(std::int64_t pNowUs) const {
  FeedStatus status;
  status.dropped = fDropped;
  if (fCount == 0) return status;
  const auto arrival = [&](std::uint64_t pBack) {
    return fArrivalsUs[(fCount - 1 - pBack) % kArrivals];
  };
  status.isFed = true;
  status.stampUs = fStampUs;
  status.width = fWidth;
  status.height = fHeight;
  // The system's clock may have been set back.
  status.ageUs = std::max<std::int64_t>(pNowUs - arrival(0), 0);
  status.feeder = fFeeder;
  std::uint64_t steps = 0;
  const std::uint64_t known = std::min<std::uint64_t>(fCount, kArrivals);
  while (steps + 1 < known && pNowUs - arrival(steps + 1) <= kRateWindowUs) ++steps;
  const std::int64_t span = arrival(0) - arrival(steps);
  if (span > 0) status.perSecond = static_cast<double>(steps) * 1e6 / static_cast<double>(span);
  return status;
}

}  // namespace OX
