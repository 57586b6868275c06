/// What the benchmarks of streams report: medians and percentiles of single times.
#pragma once

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace OX::benchmarks {

using Steady = std::chrono::steady_clock;

/// The time of the clock that all processes share: that of Steady.
std::int64_t sharedClockNs();

/// Single times of one repetition, in microseconds.
class Samples {
 public:
  void add(Steady::duration pTime) {
    addUs(std::chrono::duration<double, std::micro>(pTime).count());
  }
  void addUs(double pUs) { fUs.push_back(pUs); }
  std::size_t count() const { return fUs.size(); }
  /// Of the sorted times, 0 to 1; 0 when there are none.
  double quantile(double pShare) const;
  /// As the counters median_us and p99_us.
  void report(benchmark::State& pState) const;

 private:
  std::vector<double> fUs;
};

/// How far apart calls and images are that are to come as from a camera, when both sides sleep in
/// between.
constexpr std::chrono::milliseconds kApart(5);

/// One repetition: pCall some times without being measured, then each pass of the loop measured,
/// with a pause before each that isn't.
void measureCalls(benchmark::State& pState, const std::function<void()>& pCall,
                  std::chrono::milliseconds pApart = std::chrono::milliseconds(0));

/// Registers a row "TABLE ROW/COLUMN" of pPasses passes in each of pRepetitions repetitions. A row
/// that throws is reported as failed, or as left out if it throws NotAvailable; the others go on.
void addRow(const std::string& pName, int pPasses, int pRepetitions,
            std::function<void(benchmark::State&)> pFunction);

/// Whether a row failed.
bool hasFailed();

/// For checks of what was received: throws std::runtime_error with the text.
void require(bool pGood, const char* pWhat);

}  // namespace OX::benchmarks
