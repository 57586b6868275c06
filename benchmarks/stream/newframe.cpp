// A new frame for each request by next and nextShared. The broker may convert a frame before
// somebody asks for it, so time counts from the push's beginning, as the device stamps it; what the
// copy of the push took, by the device's own count, is not part of it. Where a request comes later,
// another stream of the format has had the frame and only the request is measured, without the
// release that follows; a small call at the same moment shows what any request costs.
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include <oxframework/oxdefinitions.h>
#include <oxframework/oxremotebroker.h>
#include "brokerside.h"
#include "child.h"
#include "measured.h"
#include "rows.h"
#include "streamclient.h"
#include "testframes.h"

namespace OX::benchmarks {
namespace {

using Way = StreamClient::Way;

constexpr std::chrono::milliseconds kToArrive(1000);
constexpr int kRepetitions = 11;

struct Request {
  const char* name;
  const char* socket;
  Way way;
  void (*function)(benchmark::State&, const Request&, int);
};

/// The median of the device's copies of pushed frames.
double pushUs(OXRemoteBroker& pBroker) {
  const OXValue stages = pBroker.call("OXVideoStream", "timings", OXValue::array());
  for (const OXValue& stage : stages.toArray())
    if (stage[0].toString() == "push") return stage[2].toFloat();
  throw std::runtime_error("pushes are not counted");
}

void newFrame(benchmark::State& pState, const Request& pRequest, int pResolution) {
  Child child("broker", {pRequest.socket, "live"});
  const auto broker = OXRemoteBroker::connect(child.greeting());
  StreamClient stream(broker, "a", pRequest.way, pResolution, kRGB);
  const std::string push = "push " + std::to_string(pResolution);
  const auto take = [&] {
    const std::uint64_t number = std::stoull(child.ask(push));
    require(stream.next(kToArrive), "no frame");
    require(isFrame(stream.pixels(), stream.bytes(), number), "another frame");
    const std::int64_t pushedUs = stream.stampUs();
    stream.release();
    return static_cast<double>(wallClockUs() - pushedUs);
  };
  for (int i = 0; i < 20; ++i) take();
  Samples samples;
  for (auto _ : pState) samples.addUs(take());
  samples.report(pState);
  pState.counters["median_us"] = samples.quantile(0.5) - pushUs(*broker);
  broker->close();
}

void convertedAlready(benchmark::State& pState, const Request& pRequest, int pResolution) {
  Child child("broker", {pRequest.socket, "live"});
  const auto broker = OXRemoteBroker::connect(child.greeting());
  const auto other = OXRemoteBroker::connect(child.greeting());
  StreamClient stream(broker, "a", pRequest.way, pResolution, kRGB);
  StreamClient before(other, "b", Way::kSocket, pResolution, kRGB);
  const std::string push = "push " + std::to_string(pResolution);
  const auto take = [&] {
    const std::uint64_t number = std::stoull(child.ask(push));
    require(before.next(kToArrive), "no frame for the other stream");
    std::this_thread::sleep_for(kApart);
    const auto begin = Steady::now();
    require(stream.next(kToArrive), "no frame");
    const auto time = Steady::now() - begin;
    require(isFrame(stream.pixels(), stream.bytes(), number), "another frame");
    stream.release();
    return time;
  };
  for (int i = 0; i < 20; ++i) take();
  Samples samples;
  for (auto _ : pState) samples.add(take());
  samples.report(pState);
  broker->close();
  other->close();
}

void smallCall(benchmark::State& pState, int pResolution) {
  Child child("broker", {"unix", "live"});
  const auto broker = OXRemoteBroker::connect(child.greeting());
  StreamClient stream(broker, "a", Way::kShared, pResolution, kRGB);
  const std::string push = "push " + std::to_string(pResolution);
  const OXValue arguments = OXValue::array("a");
  const auto call = [&] {
    child.ask(push);
    std::this_thread::sleep_for(kApart);
    const auto begin = Steady::now();
    broker->call("OXVideoDevice", "getFrameRate", arguments);
    return Steady::now() - begin;
  };
  for (int i = 0; i < 20; ++i) call();
  Samples samples;
  for (auto _ : pState) samples.add(call());
  samples.report(pState);
  broker->close();
}

}  // namespace

void addNewFrames() {
  static constexpr Request kRequests[] = {
      {"next, TCP", "tcp", Way::kSocket, newFrame},
      {"next, Unix", "unix", Way::kSocket, newFrame},
      {"nextShared", "unix", Way::kShared, newFrame},
      {"next, converted already", "unix", Way::kSocket, convertedAlready},
      {"nextShared, converted already", "unix", Way::kShared, convertedAlready},
  };
  for (const int resolution : {kQQVGA, kVGA, k4VGA}) {
    const std::string table = std::string("new frame/") + getResolutionName(resolution) + "/";
    for (const Request& request : kRequests)
      addRow(table + request.name, 100, kRepetitions, [=, &request](benchmark::State& pState) {
        request.function(pState, request, resolution);
      });
    addRow(table + "getFrameRate", 100, kRepetitions,
           [=](benchmark::State& pState) { smallCall(pState, resolution); });
  }
}

}  // namespace OX::benchmarks
