/// Many streams of the broker's own process, in several formats.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <oxframework/oxbroker.h>
#include <oxframework/oxdefinitions.h>
#include <oxvision/ivideostream.h>

namespace OX::benchmarks {

/// Formats in turn for streams of one camera.
constexpr int kFormatsInTurn[] = {kRGB, kYuv, kHSY, kYUV422};

/// Takes every frame of camera 0 by pCount streams, until it is destroyed.
class LocalStreams {
 public:
  /// pWay: "waits" for a thread in each stream that waits for frames, "callbacks".
  LocalStreams(OXBroker& pBroker, int pCount, const std::string& pWay, int pResolution);
  ~LocalStreams();
  LocalStreams(const LocalStreams&) = delete;
  LocalStreams& operator=(const LocalStreams&) = delete;

  /// How many frames all streams have had, each once and in order.
  long frames() const { return fFrames; }

 private:
  /// Counts a frame unless it is no newer than the one before.
  void xCount(const Frame& pFrame, std::uint64_t& pLast);

  std::atomic<long> fFrames{0};
  std::atomic<bool> fIsEnding{false};
  std::vector<std::uint64_t> fLast;
  std::vector<std::unique_ptr<FrameStream>> fStreams;
  std::vector<std::jthread> fThreads;
};

}  // namespace OX::benchmarks
