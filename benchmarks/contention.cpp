// What those who use one device cost each other.
//
// A small client asks 60 times a second, alone and beside one neighbour of each kind. Its latency
// counts from the moment at which a call was due, and calls that were due but not answered count
// with their age at the end: otherwise a client that is stopped would look fast, for it asks less
// often. Neighbours and client are threads of one process, each with a connection of its own, on
// the system's clock.
//
// Threads that take images in the device's own process show what runs side by side. The same kernel
// without a device, "kernelAlone", shows how much of two cores this machine has to offer.
#include <benchmark/benchmark.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <barrier>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include <oxframework/oxdefinitions.h>
#include <oxframework/oxerror.h>
#include <oxframework/oxremotebroker.h>
#include <oxframework/oxserver.h>
#include "camerarecord.h"
#include "pixels/colour/kernels.h"
#include "service.h"
#include "tests/support/device_probe.h"

namespace {

// What the disk under a recording takes; 0 for all that it can.
std::atomic<std::int64_t> gDiskBytesPerSecond{0};

}  // namespace

/// In the place of the C library's, which the recorder alone calls: a slow disk is one on which
/// writing sleeps. Neither a limit of the kernel, which needs rights and a disk of one's own, nor
/// flushing, which loads the processor too, is the same on every machine.
[[gnu::visibility("default")]] ssize_t pwritev(int pFile, const iovec* pBlocks, int pCount,
                                               off_t pOffset) {
  const ssize_t done = ::pwritev2(pFile, pBlocks, pCount, pOffset, 0);
  if (const std::int64_t rate = gDiskBytesPerSecond; rate > 0 && done > 0)
    std::this_thread::sleep_for(std::chrono::microseconds(done * 1'000'000 / rate));
  return done;
}

namespace {

using namespace OX;
using Steady = std::chrono::steady_clock;

// --- A small client and its neighbours ---

constexpr std::chrono::seconds kMeasured(3);
constexpr std::chrono::microseconds kRequestPeriod(16'667);
constexpr std::chrono::microseconds kFramePeriod(33'333);
constexpr std::int64_t kSlowDiskBytesPerSecond = 20'000'000;

/// A connection to the device, with one subscriber.
class Client {
 public:
  Client(const std::string& pAddress, const std::string& pName)
      : fBroker(OXRemoteBroker::connect(pAddress)), fId(pName) {}
  ~Client() { fBroker->close(); }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  template <typename... Arguments>
  OXValue call(const std::string& pMethod, Arguments&&... pArguments) {
    return fBroker->call("OXVideoDevice", pMethod,
                         OXValue::array(std::forward<Arguments>(pArguments)...));
  }
  void subscribe(int pCamera, int pResolution, int pColorSpace) {
    call("subscribeCamera", fId, pCamera, pResolution, pColorSpace, 30);
    // A subscription at k4VGA begins at 5 frames a second, whatever it asks for.
    call("setFrameRate", fId, 30);
  }
  bool getImage() { return call("getImageRemote", fId).getSize() == 12; }
  bool getFrameRate() { return call("getFrameRate", fId).toInt() == 30; }
  const std::string& id() const { return fId; }

 private:
  boost::shared_ptr<OXRemoteBroker> fBroker;
  std::string fId;
};

/// A broker on a socket, whose camera 0 is fed at 30 frames a second.
struct Station {
  LiveService service;
  OXServer server{service.broker};
  std::string address = server.listen("127.0.0.1:0");
  std::atomic<int> neighbourCalls{0};
  std::jthread source{[this](const std::stop_token& pStop) {
    for (auto due = Steady::now(); !pStop.stop_requested(); due += kFramePeriod) {
      std::this_thread::sleep_until(due);
      service.push(kVGA);
    }
  }};
};

/// What else happens on the device until it is told to stop.
struct Neighbour {
  const char* name;
  std::function<void(Station&, const std::stop_token&)> run;
};

void repeat(Station& pStation, const std::stop_token& pStop, const std::function<void()>& pCall) {
  for (; !pStop.stop_requested(); ++pStation.neighbourCalls) pCall();
}

void fetch(Station& pStation, const std::stop_token& pStop, const std::string& pAddress,
           int pCamera, int pResolution, int pColorSpace) {
  Client client(pAddress, "neighbour");
  client.subscribe(pCamera, pResolution, pColorSpace);
  repeat(pStation, pStop, [&] { client.getImage(); });
}

// The same load on a service of its own in this process: what it then costs the small client is the
// processor's time and none of the device's or the server's.
void fetchElsewhere(Station& pStation, const std::stop_token& pStop) {
  Station elsewhere;
  fetch(pStation, pStop, elsewhere.address, 0, k4VGA, kHSY);
}

void comeAndGo(Station& pStation, const std::stop_token& pStop) {
  Client client(pStation.address, "neighbour");
  repeat(pStation, pStop, [&] {
    client.call("subscribeCamera", client.id(), 0, kVGA, kRGB, 30);
    client.call("unsubscribe", client.id());
  });
}

// In the broker's process, since only there can an image be held. Unsubscribing waits 10 s for the
// release, which comes at the end of the measurement.
void leaveWithImage(Station& pStation, const std::stop_token& pStop) {
  OXVisionSimulatorCam& device = *pStation.service.device;
  const std::string id = device.subscribeCamera("neighbour", 0, kVGA, kRGB, 30);
  if (!device.getImageLocal(id)) std::abort();  // the row would not be what it says
  const std::stop_callback release(pStop, [&] {
    try {
      device.releaseImage(id);
    } catch (const OXError&) {  // the 10 s were over
    }
  });
  device.unsubscribe(id);
}

// A frame in every 33 ms, as a recorder takes them.
void record(Station& pStation, const std::stop_token& pStop, std::int64_t pBytesPerSecond) {
  const auto path = std::filesystem::temp_directory_path() /
                    ("oxcontention" + std::to_string(::getpid()) + ".oxv");
  Client client(pStation.address, "neighbour");
  client.subscribe(0, k4VGA, kYUV422);
  client.call("recordVideo", client.id(), path.string(), 1'000'000, 1);
  gDiskBytesPerSecond = pBytesPerSecond;
  auto due = Steady::now();
  repeat(pStation, pStop, [&] {
    client.getImage();
    due += kFramePeriod;
    std::this_thread::sleep_until(due);
  });
  gDiskBytesPerSecond = 0;
  client.call("stopVideo", client.id());
  std::filesystem::remove(path);
}

const std::vector<Neighbour>& neighbours() {
  static const std::vector<Neighbour> all = {
      {"alone", [](Station&, const std::stop_token&) {}},
      {"unfedReader",
       [](Station& pStation, const std::stop_token& pStop) {
         fetch(pStation, pStop, pStation.address, 1, kQVGA, kRGB);
       }},
      {"k4VGA_kHSY",
       [](Station& pStation, const std::stop_token& pStop) {
         fetch(pStation, pStop, pStation.address, 0, k4VGA, kHSY);
       }},
      {"k4VGA_kHSY_elsewhere", fetchElsewhere},
      {"subscriptions", comeAndGo},
      {"leaverWithImage", leaveWithImage},
      {"recorder",
       [](Station& pStation, const std::stop_token& pStop) { record(pStation, pStop, 0); }},
      {"recorderSlowDisk",
       [](Station& pStation, const std::stop_token& pStop) {
         record(pStation, pStop, kSlowDiskBytesPerSecond);
       }},
  };
  return all;
}

void smallClient(benchmark::State& pState, bool (Client::*pRequest)(),
                 const Neighbour& pNeighbour) {
  for (auto _ : pState) {
    Station station;
    Client client(station.address, "small");
    client.subscribe(0, kQVGA, kRGB);
    std::jthread neighbour([&](const std::stop_token& pStop) { pNeighbour.run(station, pStop); });
    // Beginnings are not measured: connections, threads and first frames.
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    const int before = station.neighbourCalls;

    int answered = 0;
    std::vector<double> latenciesMs;
    const auto start = Steady::now();
    const auto end = start + kMeasured;
    for (auto due = start; due < end; due += kRequestPeriod) {
      std::this_thread::sleep_until(due);
      const bool good = Steady::now() < end && (client.*pRequest)();
      const auto now = Steady::now();
      if (good && now < end) ++answered;
      latenciesMs.push_back(std::chrono::duration<double, std::milli>(now - due).count());
    }
    pState.counters["neighbour"] = station.neighbourCalls - before;
    std::sort(latenciesMs.begin(), latenciesMs.end());
    const auto quantile = [&](double pShare) {
      return latenciesMs[static_cast<std::size_t>(
          std::ceil(pShare * static_cast<double>(latenciesMs.size())) - 1)];
    };
    pState.counters["calls"] = answered;
    pState.counters["median_ms"] = quantile(0.5);
    pState.counters["p99_ms"] = quantile(0.99);
  }
}

// --- Threads in the device's process ---

// Shared by the threads of one run: the first makes it before the loop and removes it after; the
// others use it within the loop, at both ends of which they meet.
std::unique_ptr<Service> gService;
std::unique_ptr<std::barrier<std::function<void()>>> gFrame;

std::string threadName(int pThread) { return "t" + std::to_string(pThread); }

// One subscriber a thread, on the cameras and with the formats in turn, and a frame on each camera.
void openService(int pThreads, int pResolution, const std::vector<int>& pFormats, int pCameras) {
  gService = std::make_unique<Service>();
  for (int i = 0; i < pThreads; ++i)
    gService->device->subscribeCamera(threadName(i), i % pCameras, pResolution,
                                      pFormats[static_cast<std::size_t>(i) % pFormats.size()], 30);
  for (int i = 0; i < pCameras; ++i) gService->LiveService::push(pResolution, i);
}

bool takeImage(const std::string& pId) {
  const bool good = gService->device->getImageLocal(pId) != nullptr;
  gService->device->releaseImage(pId);
  return good;
}

// Without new frames: a frame that is no longer fresh is converted again at each request. The part
// of a frame's way that is done once for everybody would hide what runs side by side. The formats
// take equally long to convert.
void convert(benchmark::State& pState, const std::vector<int>& pFormats, int pCameras) {
  if (pState.thread_index() == 0) {
    openService(pState.threads(), k4VGA, pFormats, pCameras);
    gService->clock.nextSecond();
  }
  const std::string id = threadName(pState.thread_index());
  for (auto _ : pState)
    if (!takeImage(id)) pState.SkipWithError("no image");
  if (pState.thread_index() == 0) gService.reset();
}

void kernelAlone(benchmark::State& pState) {
  int width = 0;
  int height = 0;
  setSizeFromResolution(k4VGA, width, height);
  const auto pixels = static_cast<std::size_t>(width * height);
  static const std::vector<unsigned char> source(pixels * 2, 99);
  std::vector<unsigned char> destination(pixels * 3);
  unsigned char scratch[kernels::kTouchScratchBytes];
  for (auto _ : pState) {
    kernels::touchFrame(source.data(), source.size(), scratch);
    kernels::yuv422ToRGB(source.data(), width, destination.data(), width, height);
    benchmark::ClobberMemory();
  }
}

// Each thread takes each frame once; the next is pushed when all have. An iteration is a frame.
void everyFrame(benchmark::State& pState) {
  std::uint64_t before = 0;
  const auto conversions = [] { return DeviceProbe(*gService->device).camera(0).fConversionCount; };
  if (pState.thread_index() == 0) {
    openService(pState.threads(), k4VGA, {kRGB}, 1);
    gFrame = std::make_unique<std::barrier<std::function<void()>>>(pState.threads(),
                                                                   [] { gService->push(k4VGA); });
    before = conversions();
  }
  const std::string id = threadName(pState.thread_index());
  for (auto _ : pState) {
    gFrame->arrive_and_wait();
    if (!takeImage(id)) pState.SkipWithError("no image");
  }
  if (pState.thread_index() != 0) return;
  pState.counters["conversions_per_frame"] =
      static_cast<double>(conversions() - before) / static_cast<double>(pState.iterations());
  gFrame.reset();
  gService.reset();
}

void localShared(benchmark::State& pState) {
  if (pState.thread_index() == 0) openService(pState.threads(), kVGA, {kRGB}, 1);
  const std::string id = threadName(pState.thread_index());
  for (auto _ : pState)
    if (!takeImage(id)) pState.SkipWithError("no image");
  if (pState.thread_index() == 0) gService.reset();
}

// Others use this machine too: the shortest time is the one that they disturbed least.
double least(const std::vector<double>& pValues) {
  return *std::min_element(pValues.begin(), pValues.end());
}
double most(const std::vector<double>& pValues) {
  return *std::max_element(pValues.begin(), pValues.end());
}

// The time is that of one image: threads that run side by side shorten it. The number of images is
// given, since a guess from a few of them is far off where threads meet by chance.
template <typename Function>
void addThreads(const char* pName, Function pFunction, std::initializer_list<int> pThreads,
                int pImagesPerThread, benchmark::TimeUnit pUnit) {
  auto* const added = benchmark::RegisterBenchmark(pName, pFunction);
  for (const int threads : pThreads) added->Threads(threads);
  added->Iterations(pImagesPerThread)->UseRealTime()->Unit(pUnit);
  added->Repetitions(9)->ReportAggregatesOnly();
  added->ComputeStatistics("least", least)->ComputeStatistics("most", most);
}

}  // namespace

int main(int pArgumentCount, char** pArguments) {
  for (const auto& [name, request] :
       {std::pair{"getImageRemote/", &Client::getImage}, {"getFrameRate/", &Client::getFrameRate}})
    for (const Neighbour& neighbour : neighbours())
      benchmark::RegisterBenchmark((name + std::string(neighbour.name)).c_str(), smallClient,
                                   request, neighbour)
          ->Iterations(1)
          ->Repetitions(5)  // two calls of 180 decide the percentile of one
          ->ReportAggregatesOnly()
          ->UseRealTime()
          ->Unit(benchmark::kSecond);
  const auto one = [](benchmark::State& pState) { convert(pState, {kRGB}, 1); };
  const auto formats = [](benchmark::State& pState) { convert(pState, {kRGB, kBGR}, 1); };
  const auto cameras = [](benchmark::State& pState) { convert(pState, {kRGB}, 2); };
  addThreads("kernelAlone", kernelAlone, {1, 2}, 1000, benchmark::kMicrosecond);
  addThreads("oneFormat", one, {1, 2}, 1000, benchmark::kMicrosecond);
  addThreads("twoFormats", formats, {2}, 1000, benchmark::kMicrosecond);
  addThreads("twoCameras", cameras, {2}, 1000, benchmark::kMicrosecond);
  addThreads("everyFrame", everyFrame, {1, 2, 16}, 300, benchmark::kMicrosecond);
  addThreads("localShared", localShared, {1, 2}, 100'000, benchmark::kNanosecond);

  benchmark::Initialize(&pArgumentCount, pArguments);
  if (benchmark::ReportUnrecognizedArguments(pArgumentCount, pArguments)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
