/// Statistics over any number of durations in fixed memory.
#pragma once

#include <cstdint>
#include <vector>

namespace OX::cli {

/// A histogram with buckets one per cent wide, from a microsecond to about seven minutes: results
/// are accurate to one per cent. Values outside count in the first or last bucket.
class OXLatencies {
 public:
  void add(double pSeconds);
  std::int64_t count() const { return fCount; }
  /// The smallest value, in seconds, that pPart (0 to 1) of all values do not exceed; 0 without
  /// any.
  double percentile(double pPart) const;
  double median() const { return percentile(0.5); }
  void clear();

 private:
  std::vector<std::int64_t> fBuckets;
  std::int64_t fCount = 0;
};

}  // namespace OX::cli
