/// Durations of many requests in little memory.
#pragma once

#include <cstdint>
#include <vector>

namespace OX::cli {

/// A histogram whose buckets are one per cent wide, from a microsecond to some minutes: what it
/// answers is within one per cent, however long it runs. Values outside count at the ends.
class OXLatencies {
 public:
  void add(double pSeconds);
  std::int64_t count() const { return fCount; }
  /// The value that pPart (0 to 1) of all values don't exceed, in seconds; 0 when there are none.
  double percentile(double pPart) const;
  double median() const { return percentile(0.5); }
  void clear();

 private:
  std::vector<std::int64_t> fBuckets;
  std::int64_t fCount = 0;
};

}  // namespace OX::cli
