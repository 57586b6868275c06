// Streams of modules in the broker's process, which see a frame's pixels in place.
#include "localstreams.h"

#include <chrono>
#include <iterator>

#include <oxframework/oxmodule.h>
#include "measured.h"

namespace OX::benchmarks {

LocalStreams::LocalStreams(OXBroker& pBroker, int pCount, const std::string& pWay, int pResolution)
    : fLast(static_cast<std::size_t>(pCount)) {
  auto* const service = dynamic_cast<IVideoStream*>(pBroker.getModule("OXVideoStream").get());
  require(service, "no service of streams");
  for (int i = 0; i < pCount; ++i) {
    const int format = kFormatsInTurn[static_cast<std::size_t>(i) % std::size(kFormatsInTurn)];
    fStreams.push_back(
        service->open("local" + std::to_string(i), FrameFormat{0, pResolution, format}, 0));
    FrameStream& stream = *fStreams.back();
    std::uint64_t& last = fLast[static_cast<std::size_t>(i)];
    if (pWay == "callbacks")
      stream.onFrame([this, &last](const Frame& pFrame) { xCount(pFrame, last); });
    else
      fThreads.emplace_back([this, &stream, &last] {
        constexpr std::chrono::milliseconds kToEnd(100);
        while (!fIsEnding) xCount(stream.waitForFrame(kToEnd), last);
      });
  }
}

LocalStreams::~LocalStreams() {
  fIsEnding = true;
  fThreads.clear();
  fStreams.clear();
}

void LocalStreams::xCount(const Frame& pFrame, std::uint64_t& pLast) {
  if (!pFrame || pFrame.number() <= pLast) return;
  pLast = pFrame.number();
  ++fFrames;
}

}  // namespace OX::benchmarks
