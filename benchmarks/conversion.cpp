// Every conversion of the image path, at every instruction-set level that the machine has, compared
// with the peers at the nearest equivalent job and with memcpy of as many bytes. One benchmark per
// job and way, for example "kRGB 640x480/AVX3_DL"; script/bench makes a table of them.
#include <benchmark/benchmark.h>

#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "peers/peers.h"
#include "pixels/colour/kernels.h"
#include "pixels/resample/resampling.h"
#include "pixels/simd/levels.h"

namespace {

using OX::benchmarks::Job;
using OX::benchmarks::Run;
using Byte = unsigned char;

struct Size {
  int width, height;
  constexpr std::size_t pixels() const { return std::size_t(width) * height; }
  std::string text() const {
    return std::to_string(width).append("x").append(std::to_string(height));
  }
};

std::string jobName(std::string pName, Size pFrom, Size pTo) {
  pName.append(" ").append(pFrom.text());
  if (pFrom.width != pTo.width) pName.append(" to ").append(pTo.text());
  return pName;
}

constexpr Size k4VGA{1280, 960};
constexpr Size kVGA{640, 480};
constexpr Size kQVGA{320, 240};
constexpr Size kQQVGA{160, 120};
constexpr std::size_t kFrameBytes = k4VGA.pixels() * 3;
constexpr std::size_t kAlignment = 64;

/// A frame aligned to a cache line, whose neighbouring values vary like those of a camera's image.
Byte* makeFrame() {
  auto* frame = static_cast<Byte*>(std::aligned_alloc(kAlignment, kFrameBytes));
  std::mt19937 random(1);
  int value = 128;
  for (std::size_t i = 0; i < kFrameBytes; ++i) {
    value += static_cast<int>(random() % 31) - 15;
    frame[i] = static_cast<Byte>(value);
  }
  return frame;
}

Byte* const gSource = makeFrame();
Byte* const gDestination = makeFrame();
Byte* const gScratch = makeFrame();

std::string benchmarkName(std::string pJob, const std::string& pWay) {
  return pJob.append("/").append(pWay);
}

void measure(const std::string& pJob, const std::string& pWay, Run pRun) {
  if (!pRun) return;
  benchmark::RegisterBenchmark(benchmarkName(pJob, pWay).c_str(), [pRun](benchmark::State& state) {
    for (auto _ : state) {
      pRun();
      benchmark::ClobberMemory();
    }
  })->Unit(benchmark::kMicrosecond);
}

/// Our own conversion at each level.
void measureLevels(const std::string& pJob, const Run& pRun) {
  for (const std::string& level : OX::kernels::levels()) {
    benchmark::RegisterBenchmark(benchmarkName(pJob, level).c_str(), [pRun, level](
                                                                         benchmark::State& state) {
      OX::kernels::useLevel(level);
      for (auto _ : state) {
        pRun();
        benchmark::ClobberMemory();
      }
      OX::kernels::useLevel("");
    })->Unit(benchmark::kMicrosecond);
  }
}

void measurePeers(const std::string& pJob, Job::Kind pKind, Size pFrom, Size pTo) {
  const Job job{pKind, pFrom.width, pFrom.height, pTo.width, pTo.height, gSource, gDestination};
  measure(pJob, "libyuv", OX::benchmarks::libyuvRun(job));
  measure(pJob, "OpenCV", OX::benchmarks::opencvRun(job));
  measure(pJob, "swscale", OX::benchmarks::swscaleRun(job));
  measure(pJob, "GStreamer", OX::benchmarks::gstreamerRun(job));
}

/// A memcpy that moves as many bytes as the job reads and writes.
void measureCopy(const std::string& pJob, std::size_t pBytesRead, std::size_t pBytesWritten) {
  const std::size_t bytes = (pBytesRead + pBytesWritten) / 2;
  measure(pJob, "memcpy", [bytes] { std::memcpy(gDestination, gSource, bytes); });
}

using Kernel = void (*)(const Byte*, int, Byte*, int, int);

struct Conversion {
  const char* name;
  Kernel kernel;
  int bytesPerPixel;
  int peerKind;  ///< a Job::Kind, or -1
};

const Conversion kConversions[] = {
    {"kYuv", OX::kernels::yuv422ToYuv, 1, Job::kToLuma},
    {"kYUV422", OX::kernels::yuv422ToYUV422, 2, -1},
    {"kYYCbCr", OX::kernels::yuv422ToYYCbCr, 2, -1},
    {"kYUV", OX::kernels::yuv422ToYUV, 3, Job::kToYUV},
    {"kRGB", OX::kernels::yuv422ToRGB, 3, Job::kToRGB},
    {"kBGR", OX::kernels::yuv422ToBGR, 3, Job::kToBGR},
    {"kHSY", OX::kernels::yuv422ToHSY, 3, Job::kToHue},
    {"kHSMixed", OX::kernels::yuv422ToHSMixed, 3, Job::kToHue},
    {"kH2RGB", OX::kernels::yuv422ToH2RGB, 3, -1},
    {"kHsy", OX::kernels::yuv422ToHsy, 1, -1},
};

void registerConversion(const Conversion& pConversion, Size pFrom, Size pTo) {
  const std::string job = jobName(pConversion.name, pFrom, pTo);
  const Kernel kernel = pConversion.kernel;
  measureLevels(job, [=] { kernel(gSource, pFrom.width, gDestination, pTo.width, pTo.height); });
  if (pConversion.peerKind >= 0) {
    measurePeers(job, static_cast<Job::Kind>(pConversion.peerKind), pFrom, pTo);
  }
  const std::size_t bytesRead = 2 * pFrom.width * std::size_t(pTo.height);
  measureCopy(job, bytesRead, pConversion.bytesPerPixel * pTo.pixels());
}

void registerPatched(const Conversion& pConversion) {
  const Kernel kernel = pConversion.kernel;
  const std::string job = jobName(pConversion.name, kVGA, kVGA) + " after the pass";
  measureLevels(job, [=] {
    OX::kernels::touchFrame(gSource, 2 * kVGA.pixels(), gScratch);
    kernel(gSource, kVGA.width, gDestination, kVGA.width, kVGA.height);
  });
  measurePeers(job, static_cast<Job::Kind>(pConversion.peerKind), kVGA, kVGA);
}

void registerResampling(Size pFrom, Size pTo) {
  const std::string job = jobName("pushed", pFrom, pTo);
  if (pFrom.width == pTo.width) {
    measureLevels(job, [=] {
      OX::resampling::rgbToYuv422(gSource, pFrom.width, pFrom.height, gDestination);
    });
  } else if (pFrom.width > pTo.width) {
    measureLevels(job, [=] {
      OX::resampling::subSample(pFrom.width / pTo.width, pFrom.width, pFrom.height, gSource,
                                gDestination);
    });
  } else {
    measureLevels(job, [=] {
      OX::resampling::overSample(pTo.width / pFrom.width, pFrom.width, pFrom.height, gSource,
                                 gDestination);
    });
  }
  measurePeers(job, Job::kFromRGB, pFrom, pTo);
}

void registerAll() {
  for (const Conversion& conversion : kConversions) registerConversion(conversion, kVGA, kVGA);
  for (const Conversion& conversion : kConversions) {
    if (conversion.kernel == OX::kernels::yuv422ToRGB ||
        conversion.kernel == OX::kernels::yuv422ToBGR) {
      registerPatched(conversion);
    }
    registerConversion(conversion, kVGA, kQVGA);
    registerConversion(conversion, k4VGA, kQVGA);
    registerConversion(conversion, k4VGA, kQQVGA);
  }
  registerResampling(kVGA, kVGA);
  for (Size small : {kVGA, kQVGA, kQQVGA}) registerResampling(k4VGA, small);
  for (Size small : {kVGA, kQVGA, kQQVGA}) registerResampling(small, k4VGA);
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  registerAll();
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
