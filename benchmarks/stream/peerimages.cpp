// An image one way from a process to another by what a user would take instead. Times are from the
// moment at which the sender hands the image over to the one at which the receiver has all of it,
// one at a time, as far apart as ours beside them, which include the request.
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include <oxframework/oxdefinitions.h>
#include "measured.h"
#include "rows.h"
#include "testframes.h"
#include "tools/tool.h"

namespace OX::benchmarks {
namespace {

constexpr int kRepetitions = 7;

void oneWay(benchmark::State& pState, const Tool& pTool, int pResolution) {
  const auto bytes = static_cast<std::size_t>(sizeOf(pResolution).bytes());
  Child sender(pTool.role, {pTool.kind, std::to_string(bytes)});
  const auto receiver = pTool.receiver(pTool.kind, sender.greeting());
  std::uint64_t count = 0;
  const auto pass = [&] {
    sender.tell("send");
    const ImageMark mark = receiver->receive(bytes);
    const std::int64_t now = sharedClockNs();
    require(mark.number == ++count, "images out of order");
    return static_cast<double>(now - mark.sentNs) / 1000;
  };
  for (int i = 0; i < 20; ++i) pass();
  Samples samples;
  for (auto _ : pState) {
    std::this_thread::sleep_for(kApart);
    samples.addUs(pass());
  }
  samples.report(pState);
  pState.counters["bytes"] = static_cast<double>(bytes);
}

}  // namespace

void addPeerImages() {
  std::vector<Tool> tools;
#ifdef OX_WITH_DDS
  tools.push_back({"Cyclone DDS", "dds", "udp", makeDdsReceiver});
#else
  std::cerr << "Cyclone DDS is left out: CMake did not find it\n";
#endif
#ifdef OX_WITH_GSTREAMER
  tools.push_back({"GStreamer, shmsink", "gstreamer", "shm", makeGStreamerReceiver});
  tools.push_back({"GStreamer, tcpserversink", "gstreamer", "tcp", makeGStreamerReceiver});
#else
  std::cerr << "GStreamer is left out: CMake did not find it\n";
#endif
  for (const int resolution : {kVGA, k4VGA})
    for (const Tool& tool : tools)
      addRow(std::string("image beside tools/") + getResolutionName(resolution) + "/" + tool.name,
             100, kRepetitions,
             [=](benchmark::State& pState) { oneWay(pState, tool, resolution); });
}

}  // namespace OX::benchmarks
