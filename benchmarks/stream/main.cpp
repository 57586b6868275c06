// How fast calls and images come from one process to another, beside raw channels and other tools,
// which take their turns in the same run.
#include <benchmark/benchmark.h>

#include <csignal>

#include "child.h"
#include "measured.h"
#include "rows.h"

int main(int pArgumentCount, char** pArguments) {
  using namespace OX::benchmarks;
  if (const int status = runAsChild(pArgumentCount, pArguments); status >= 0) return status;
  // A child that has ended is an error of the row that needed it.
  std::signal(SIGPIPE, SIG_IGN);
  benchmark::Initialize(&pArgumentCount, pArguments);
  if (benchmark::ReportUnrecognizedArguments(pArgumentCount, pArguments)) return 1;
  addSmallCalls();
  addImages();
  addPeerImages();
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return hasFailed() ? 1 : 0;
}
