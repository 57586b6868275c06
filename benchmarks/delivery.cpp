// The cost of an image for a subscriber: lent in the broker's process, shared or converted; sent to
// another process over a Unix socket and TCP; with many subscribers in several formats; and from a
// recording.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <string>
#include <vector>

#include <oxframework/oxbroker.h>
#include <oxframework/oxdefinitions.h>
#include <oxframework/oxlog.h>
#include <oxframework/oxremotebroker.h>
#include <oxframework/oxserver.h>
#include <oxframework/oxservices.h>
#include <oxframework/oxvideo.h>
#include "oxvisionfilecam.h"
#include "service.h"

namespace {

using namespace OX;

void nameSize(benchmark::State& pState) {
  pState.SetLabel(getResolutionName(static_cast<int>(pState.range(0))));
}

void localShared(benchmark::State& pState) {
  Service service;
  const int resolution = static_cast<int>(pState.range(0));
  const std::string id = service.device->subscribe("a", resolution, kRGB, 30);
  service.push(resolution);
  for (auto _ : pState) {
    benchmark::DoNotOptimize(service.device->getImageLocal(id));
    service.device->releaseImage(id);
  }
  nameSize(pState);
}

// The time includes a push: a new frame has to be pushed first.
void localConverted(benchmark::State& pState) {
  Service service;
  const int resolution = static_cast<int>(pState.range(0));
  const std::string id = service.device->subscribe("a", resolution, kRGB, 30);
  for (auto _ : pState) {
    service.push(resolution);
    benchmark::DoNotOptimize(service.device->getImageLocal(id));
    service.device->releaseImage(id);
  }
  nameSize(pState);
}

void remote(benchmark::State& pState, bool pTcp) {
  Service service;
  const int resolution = static_cast<int>(pState.range(0));
  const std::string id = service.device->subscribe("a", resolution, kRGB, 30);
  service.push(resolution);
  OXServer server(service.broker);
  const std::string path = "unix:/tmp/oxdelivery" + std::to_string(::getpid());
  const auto client = OXRemoteBroker::connect(server.listen(pTcp ? "127.0.0.1:0" : path));
  const OXValue arguments = OXValue::array(id);
  std::int64_t bytes = 0;
  for (auto _ : pState)
    bytes += client->call("OXVideoDevice", "getImageRemote", arguments)[6].getSize();
  pState.SetBytesProcessed(bytes);
  nameSize(pState);
  client->close();
}

// One new frame, then one request of every subscriber: one conversion for each format.
void manySubscribers(benchmark::State& pState) {
  Service service;
  constexpr int kFormats[] = {kRGB, kYuv, kHSY, kYUV422};
  std::vector<std::string> ids;
  for (int i = 0; i < pState.range(0); ++i)
    ids.push_back(service.device->subscribe("s" + std::to_string(i), kVGA,
                                            kFormats[i % static_cast<int>(pState.range(1))], 30));
  for (auto _ : pState) {
    service.push(kVGA);
    for (const std::string& id : ids) {
      benchmark::DoNotOptimize(service.device->getImageLocal(id));
      service.device->releaseImage(id);
    }
  }
}

std::string writeRecording() {
  const std::string path = "/tmp/oxreplay" + std::to_string(::getpid()) + ".oxv";
  const std::vector<unsigned char> pixels(1280 * 960 * 2, 99);
  OXVideo video;
  video.recordVideo(path, 0, {{1280, 960, kYUV422, 8}});
  for (int i = 0; i < 60; ++i)
    video.write(pixels.data(), static_cast<int>(pixels.size()), i * SteppedClock::kFrameUs, 0, 0, 0,
                0, 0);
  video.closeVideo();
  return path;
}

// A frame of 1280 x 960 every 33 ms: the time divided by that is the share of a core that it takes.
void replay(benchmark::State& pState) {
  ki::log::setLevel(0);
  SteppedClock clock;
  const std::string path = writeRecording();
  const auto broker = OXBroker::create();
  OXModule::createModule<OXMemory>(broker);
  auto camera = OXModule::createModule<OXVisionFileCam>(broker);
  camera->setVideo(path, OXValue(), true, 1, 0);
  const std::string id = camera->subscribe("a", k4VGA, kYUV422, 30);
  int missed = 0;
  for (auto _ : pState) {
    clock.nextFrame();
    if (camera->getDirectRawImageLocal(id))
      camera->releaseDirectRawImage(id);
    else
      ++missed;
  }
  pState.counters["missed"] = missed;
  camera.reset();
  broker->shutdown();
  ::unlink(path.c_str());
}

BENCHMARK(replay);
BENCHMARK(localShared)->DenseRange(kQQVGA, k4VGA);
BENCHMARK(localConverted)->DenseRange(kQQVGA, k4VGA);
BENCHMARK_CAPTURE(remote, unix_socket, false)->DenseRange(kQQVGA, k4VGA)->UseRealTime();
BENCHMARK_CAPTURE(remote, tcp, true)->DenseRange(kQQVGA, k4VGA)->UseRealTime();
BENCHMARK(manySubscribers)
    ->ArgNames({"subscribers", "formats"})
    ->ArgsProduct({{1, 4, 16, 64}, {1, 4}});

}  // namespace

BENCHMARK_MAIN();
