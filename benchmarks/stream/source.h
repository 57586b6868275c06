/// Frames for camera 0 of a service in this process: what a simulator does, without its call.
#pragma once

#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <thread>
#include <vector>

#include "../service.h"
#include "measured.h"
#include "testframes.h"

namespace OX::benchmarks {

/// Processor time of the process (RUSAGE_SELF) or of the calling thread (RUSAGE_THREAD).
inline double processorUs(int pOf) {
  rusage used{};
  ::getrusage(pOf, &used);
  const auto us = [](const timeval& pTime) {
    return static_cast<double>(pTime.tv_sec) * 1e6 + static_cast<double>(pTime.tv_usec);
  };
  return us(used.ru_utime) + us(used.ru_stime);
}

/// Pushes frames of testframes.h, of which the first is number 1. One thread only.
class Source {
 public:
  explicit Source(LiveService& pService) : fService(pService) {}

  /// Returns the frame's number.
  std::uint64_t push(int pResolution) {
    const FrameSize size = xPrepare(pResolution);
    ++fNumber;
    require(fService.device->putImage(0, size.width, size.height, fFrames[fNumber % kFramesInRow]),
            "a frame was refused");
    return fNumber;
  }

  /// Pushes so many a second, with pAfterEach after each, and returns the processor time of all.
  /// As a camera does, it catches up on nothing: after a push that came late, the next ones are
  /// later too.
  template <typename Function>
  double push(int pResolution, double pRate, int pCount, Function pAfterEach) {
    xPrepare(pResolution);
    const double before = processorUs(RUSAGE_THREAD);
    const auto period =
        std::chrono::duration_cast<Steady::duration>(std::chrono::duration<double>(1 / pRate));
    auto due = Steady::now();
    for (int i = 0; i < pCount; ++i, due += period) {
      std::this_thread::sleep_until(due);
      due = std::max(due, Steady::now() - period / 10);  // a sleep always ends a little late
      push(pResolution);
      pAfterEach();
    }
    return processorUs(RUSAGE_THREAD) - before;
  }

 private:
  FrameSize xPrepare(int pResolution) {
    if (pResolution != fResolution) fFrames = makeFrames(pResolution);
    fResolution = pResolution;
    return sizeOf(pResolution);
  }

  LiveService& fService;
  std::vector<OXValue> fFrames;
  int fResolution = -1;
  std::uint64_t fNumber = 0;
};

}  // namespace OX::benchmarks
