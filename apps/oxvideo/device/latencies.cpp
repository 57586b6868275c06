// Buckets grow by one per cent, so that memory is fixed and the relative error is the same at a
// microsecond and at a minute.
#include "device/latencies.h"

#include <algorithm>
#include <cmath>

namespace OX::cli {

namespace {

constexpr double kSmallest = 1e-6;
constexpr double kGrowth = 1.01;
constexpr int kBuckets = 2000;  // 1 us * 1.01^2000 is about seven minutes

}  // namespace

void OXLatencies::add(double pSeconds) {
  if (fBuckets.empty()) fBuckets.resize(kBuckets);
  const double place = std::log(std::max(pSeconds, kSmallest) / kSmallest) / std::log(kGrowth);
  ++fBuckets[static_cast<std::size_t>(std::clamp(place, 0.0, kBuckets - 1.0))];
  ++fCount;
}

double OXLatencies::percentile(double pPart) const {
  if (fCount == 0) return 0;
  const auto wanted =
      std::max<std::int64_t>(1, static_cast<std::int64_t>(std::ceil(std::clamp(pPart, 0.0, 1.0) *
                                                                    static_cast<double>(fCount))));
  std::int64_t seen = 0;
  std::size_t bucket = 0;
  while ((seen += fBuckets[bucket]) < wanted) ++bucket;
  // The middle of the bucket, which halves the largest error.
  return kSmallest * std::pow(kGrowth, static_cast<double>(bucket) + 0.5);
}

void OXLatencies::clear() {
  fBuckets.assign(fBuckets.size(), 0);
  fCount = 0;
}

}  // namespace OX::cli
