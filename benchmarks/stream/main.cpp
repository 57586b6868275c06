// How fast calls and images come from one process to another, beside raw channels and other tools,
// which take their turns in the same run.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <string_view>

#include "child.h"
#include "measured.h"
#include "rows.h"

namespace {

/// Removes "--seconds=N" from the command line: for how long frames come where time is measured
/// rather than calls. A minute unless it is given.
int takeSeconds(int& pArgumentCount, char** pArguments) {
  constexpr std::string_view kOption = "--seconds=";
  int seconds = 60;
  int kept = 1;
  for (int i = 1; i < pArgumentCount; ++i) {
    const std::string_view argument = pArguments[i];
    if (argument.starts_with(kOption))
      seconds = std::max(1, std::atoi(argument.substr(kOption.size()).data()));
    else
      pArguments[kept++] = pArguments[i];
  }
  pArgumentCount = kept;
  return seconds;
}

}  // namespace

int main(int pArgumentCount, char** pArguments) {
  using namespace OX::benchmarks;
  if (const int status = runAsChild(pArgumentCount, pArguments); status >= 0) return status;
  // A child that has ended is an error of the row that needed it.
  std::signal(SIGPIPE, SIG_IGN);
  const int seconds = takeSeconds(pArgumentCount, pArguments);
  benchmark::Initialize(&pArgumentCount, pArguments);
  if (benchmark::ReportUnrecognizedArguments(pArgumentCount, pArguments)) return 1;
  addSmallCalls();
  addImages();
  addPeerImages();
  addNewFrames();
  addReceipts(seconds);
  addLoads(seconds);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return hasFailed() ? 1 : 0;
}
