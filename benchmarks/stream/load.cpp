// What streams cost the broker: 64 of them in four formats at 30 frames a second, and a thousand
// requests that wait while nothing is pushed.
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <oxframework/oxdefinitions.h>
#include <oxframework/oxremotebroker.h>
#include "brokerside.h"
#include "child.h"
#include "localstreams.h"
#include "measured.h"
#include "rawchannel.h"
#include "rows.h"
#include "source.h"
#include "streamclient.h"

namespace OX::benchmarks {
namespace {

constexpr int kStreams = 64;
constexpr int kRate = 30;
constexpr int kResolution = kVGA;

/// Has frames pushed and reports what that took besides the pushing, as shares of a core.
void reportCores(benchmark::State& pState, Child& pBroker, int pSeconds,
                 const std::function<long()>& pFrames) {
  const std::string pushes = "pushes " + std::to_string(kResolution) + " " + std::to_string(kRate);
  // The last frame of some is on its way still when all are pushed.
  constexpr std::chrono::milliseconds kToArrive(200);
  // Beginnings are not measured: threads, buffers and first frames.
  pBroker.ask(pushes + " " + std::to_string(kRate));
  std::this_thread::sleep_for(kToArrive);
  const long framesBefore = pFrames();
  const Usage before = usageOf(pBroker);
  const double clientBefore = processorUs(RUSAGE_SELF);
  const auto begin = Steady::now();
  const double pushing = std::stod(pBroker.ask(pushes + " " + std::to_string(kRate * pSeconds),
                                               std::chrono::seconds(pSeconds + 10)));
  const double us = std::chrono::duration<double, std::micro>(Steady::now() - begin).count();
  std::this_thread::sleep_for(kToArrive);
  const long wanted = static_cast<long>(kStreams) * kRate * pSeconds;
  const long frames = pFrames() - framesBefore;
  pState.counters["broker_cores"] =
      (usageOf(pBroker).processorUs - before.processorUs - pushing) / us;
  pState.counters["pushing_cores"] = pushing / us;
  pState.counters["client_cores"] = (processorUs(RUSAGE_SELF) - clientBefore) / us;
  pState.counters["frames_of_all"] = static_cast<double>(frames) / static_cast<double>(wanted);
}

void inProcess(benchmark::State& pState, const char* pWay, int pSeconds) {
  Child child("broker", {"unix", "live"});
  child.ask("streams " + std::to_string(kStreams) + " " + pWay + " " + std::to_string(kResolution));
  for (auto _ : pState)
    reportCores(pState, child, pSeconds, [&] { return std::stol(child.ask("frames")); });
}

/// Streams with a thread each, as many to a connection as its limit of shared memory allows.
class SharedStreams {
 public:
  explicit SharedStreams(const std::string& pAddress) {
    constexpr int kPerConnection = 8;
    constexpr int kSlots = 2;
    for (int i = 0; i < kStreams; ++i) {
      if (i % kPerConnection == 0) fBrokers.push_back(OXRemoteBroker::connect(pAddress));
      fStreams.push_back(std::make_unique<StreamClient>(
          fBrokers.back(), "shared" + std::to_string(i), StreamClient::Way::kShared, kResolution,
          kFormatsInTurn[static_cast<std::size_t>(i) % std::size(kFormatsInTurn)], kSlots));
    }
    for (const auto& stream : fStreams)
      fThreads.emplace_back([this, &stream = *stream] { xTake(stream); });
  }
  ~SharedStreams() {
    fIsEnding = true;
    fThreads.clear();
    fStreams.clear();
    for (const auto& broker : fBrokers) broker->close();
  }
  SharedStreams(const SharedStreams&) = delete;
  SharedStreams& operator=(const SharedStreams&) = delete;

  long frames() const {
    require(!fHasFailed, "a stream has ended");
    return fFrames;
  }

 private:
  void xTake(StreamClient& pStream) {
    constexpr std::chrono::milliseconds kToEnd(1000);
    std::int64_t last = 0;
    try {
      while (!fIsEnding) {
        if (!pStream.next(kToEnd)) continue;
        if (pStream.stampUs() > last) ++fFrames;
        last = pStream.stampUs();
        pStream.release();
      }
    } catch (const std::exception&) {
      fHasFailed = true;
    }
  }

  std::atomic<long> fFrames{0};
  std::atomic<bool> fIsEnding{false};
  std::atomic<bool> fHasFailed{false};
  std::vector<boost::shared_ptr<OXRemoteBroker>> fBrokers;
  std::vector<std::unique_ptr<StreamClient>> fStreams;
  std::vector<std::jthread> fThreads;
};

void byShared(benchmark::State& pState, int pSeconds) {
  Child child("broker", {"unix", "live"});
  SharedStreams streams(child.greeting());
  for (auto _ : pState) reportCores(pState, child, pSeconds, [&] { return streams.frames(); });
}

/// A client that sends requests and reads their answers when it wants to.
class WaitingRequests {
 public:
  explicit WaitingRequests(const std::string& pAddress) : fSocket(pAddress) {
    RawRequest open("OXVideoStream.open", {kId, 0, int{kResolution}, int{kRGB}, 0});
    xSend(open);
    // [1, number, nil, id]
    std::vector<char> answer = xRead(8);
    require(answer[5] == '\xc0' && answer[7] == kId[0], "no stream");
  }

  void send(int pCount) {
    for (int i = 0; i < pCount; ++i) xSend(fNext);
    fCount += pCount;
  }
  /// Whether all were waiting: each is answered with nil when the stream is closed.
  void end() {
    RawRequest close("OXVideoStream.close", {kId});
    xSend(close);
    // [1, number, nil, nil] to each, in whatever order.
    for (int i = 0; i < fCount + 1; ++i) {
      const std::vector<char> answer = xRead(7);
      require(answer[5] == '\xc0' && answer[6] == '\xc0', "a request that did not wait");
    }
  }

 private:
  static constexpr char kId[] = "w";

  void xSend(RawRequest& pRequest) {
    const std::vector<char>& bytes = pRequest.next();
    fSocket.write(bytes.data(), bytes.size());
  }
  std::vector<char> xRead(std::size_t pBytes) {
    std::vector<char> bytes(pBytes);
    fSocket.read(bytes.data(), bytes.size());
    return bytes;
  }

  RawSocket fSocket;
  RawRequest fNext{"OXVideoStream.next", {kId, 60'000}};
  int fCount = 0;
};

void waiting(benchmark::State& pState) {
  constexpr int kMore = 999;
  constexpr std::chrono::seconds kMeasured(5);
  // Time for the broker to read what was sent.
  constexpr std::chrono::milliseconds kToRead(500);
  // The transport's threads that a burst of requests needed end when they have nothing to do for
  // ten seconds.
  constexpr std::chrono::seconds kToSettle(12);
  Child child("broker", {"unix", "live"});
  WaitingRequests requests(child.greeting());
  for (auto _ : pState) {
    requests.send(1);
    std::this_thread::sleep_for(kToSettle);
    const Usage one = usageOf(child);
    requests.send(kMore);
    std::this_thread::sleep_for(kToRead);
    const Usage burst = usageOf(child);
    std::this_thread::sleep_for(kToSettle);
    const Usage before = usageOf(child);
    std::this_thread::sleep_for(kMeasured);
    const Usage after = usageOf(child);
    requests.end();
    pState.counters["threads_with_one"] = one.threads;
    pState.counters["threads_after_burst"] = burst.threads;
    pState.counters["threads"] = after.threads;
    pState.counters["processor_us"] = after.processorUs - before.processorUs;
    pState.counters["grown_KiB"] = after.residentKib - one.residentKib;
  }
}

}  // namespace

void addLoads(int pSeconds) {
  const int seconds = std::min(pSeconds, 10);
  const std::string job = "64 streams/kVGA, 4 formats, 30 a second/";
  addRow(job + "in process, waitForFrame", 1, 1,
         [=](benchmark::State& pState) { inProcess(pState, "waits", seconds); });
  addRow(job + "in process, onFrame", 1, 1,
         [=](benchmark::State& pState) { inProcess(pState, "callbacks", seconds); });
  addRow(job + "nextShared", 1, 1, [=](benchmark::State& pState) { byShared(pState, seconds); });
  addRow("waiting/1,000 requests/next", 1, 1, waiting);
}

}  // namespace OX::benchmarks
