// Google Benchmark reports means of a repetition. A call between processes has a long tail, which
// one late interrupt decides, so the median of single times is reported beside it.
#include "measured.h"

#include <algorithm>
#include <cmath>
#include <iostream>
#include <stdexcept>
#include <thread>

#include "placement.h"

namespace OX::benchmarks {
namespace {

bool gFailed = false;

}  // namespace

std::int64_t sharedClockNs() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(Steady::now().time_since_epoch())
      .count();
}

double Samples::quantile(double pShare) const {
  if (fUs.empty()) return 0;
  std::vector<double> sorted = fUs;
  std::sort(sorted.begin(), sorted.end());
  const double rank = std::ceil(pShare * static_cast<double>(sorted.size()));
  return sorted[static_cast<std::size_t>(std::max(rank, 1.0)) - 1];
}

void Samples::report(benchmark::State& pState) const {
  pState.counters["median_us"] = quantile(0.5);
  pState.counters["p99_us"] = quantile(0.99);
}

void measureCalls(benchmark::State& pState, const std::function<void()>& pCall,
                  std::chrono::milliseconds pApart) {
  for (benchmark::IterationCount i = 0;
       i < std::max<benchmark::IterationCount>(1, pState.max_iterations / 10); ++i)
    pCall();
  Samples samples;
  for (auto _ : pState) {
    if (pApart.count() > 0) std::this_thread::sleep_for(pApart);
    const auto begin = Steady::now();
    pCall();
    samples.add(Steady::now() - begin);
  }
  samples.report(pState);
}

void addRow(const std::string& pName, int pPasses, int pRepetitions,
            std::function<void(benchmark::State&)> pFunction) {
  const auto guarded = [pName, function = std::move(pFunction)](benchmark::State& pState) {
    try {
      function(pState);
    } catch (const NotAvailable& reason) {
      pState.SkipWithError((std::string("left out: ") + reason.what()).c_str());
    } catch (const std::exception& error) {
      gFailed = true;
      pState.SkipWithError(error.what());
    }
  };
  auto* const added = benchmark::RegisterBenchmark(pName.c_str(), guarded);
  added->Iterations(pPasses)->Repetitions(pRepetitions)->UseRealTime();
  added->Unit(benchmark::kMicrosecond)->ReportAggregatesOnly(pRepetitions > 1);
}

bool hasFailed() { return gFailed; }

void require(bool pGood, const char* pWhat) {
  if (!pGood) throw std::runtime_error(pWhat);
}

}  // namespace OX::benchmarks
