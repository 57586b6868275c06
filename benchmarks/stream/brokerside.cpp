// The broker's process: what oxbroker does with libvideoinput.so, and a source of frames within it,
// which costs no call. Everything is done on the thread of the conversation, except serving.
#include "brokerside.h"

#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <thread>

#include <oxframework/oxserver.h>
#include "../service.h"
#include "measured.h"
#include "rawchannel.h"
#include "testframes.h"

namespace OX::benchmarks {
namespace {

double processorUs(int pOf) {
  rusage used{};
  ::getrusage(pOf, &used);
  const auto us = [](const timeval& pTime) {
    return static_cast<double>(pTime.tv_sec) * 1e6 + static_cast<double>(pTime.tv_usec);
  };
  return us(used.ru_utime) + us(used.ru_stime);
}

/// A line of /proc/self/status, without its name and unit.
int statusOf(const std::string& pName) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);)
    if (line.starts_with(pName + ":")) return std::stoi(line.substr(pName.size() + 1));
  throw std::runtime_error("no " + pName + " in /proc/self/status");
}

/// Pushes frames of one resolution at a time.
class Source {
 public:
  Source(LiveService& pService, SteppedClock* pClock) : fService(pService), fClock(pClock) {}

  std::uint64_t push(int pResolution) {
    const FrameSize size = xPrepare(pResolution);
    if (fClock) fClock->nextSecond();
    ++fNumber;
    require(fService.device->putImage(0, size.width, size.height, fFrames[fNumber % kGreys]),
            "a frame was refused");
    return fNumber;
  }

  /// Returns the processor time that it took.
  double pushes(int pResolution, double pRate, int pCount) {
    xPrepare(pResolution);
    const double before = processorUs(RUSAGE_THREAD);
    const auto start = Steady::now();
    for (int i = 0; i < pCount; ++i) {
      std::this_thread::sleep_until(
          start + std::chrono::duration_cast<Steady::duration>(
                      std::chrono::duration<double>(static_cast<double>(i) / pRate)));
      push(pResolution);
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
  SteppedClock* const fClock;
  std::vector<OXValue> fFrames;
  int fResolution = -1;
  std::uint64_t fNumber = 0;
};

}  // namespace

void runBroker(Conversation& pConversation, const std::vector<std::string>& pArguments) {
  std::optional<SteppedClock> clock;
  if (pArguments.at(1) == "still") clock.emplace();
  LiveService service;
  OXServer server(service.broker);
  Source source(service, clock ? &*clock : nullptr);
  pConversation.say(
      server.listen(pArguments.at(0) == "tcp" ? "127.0.0.1:0" : "unix:" + socketFile()));
  for (std::string line; pConversation.hear(line);) {
    std::istringstream words(line);
    std::string verb;
    int resolution = 0;
    double rate = 0;
    int count = 0;
    words >> verb >> resolution >> rate >> count;
    std::ostringstream answer;
    if (verb == "push")
      answer << source.push(resolution);
    else if (verb == "pushes")
      answer << source.pushes(resolution, rate, count);
    else if (verb == "usage")
      answer << processorUs(RUSAGE_SELF) << ' ' << statusOf("VmRSS") << ' ' << statusOf("Threads");
    else
      throw std::runtime_error("no verb " + verb);
    pConversation.say(answer.str());
  }
}

Usage usageOf(Child& pBroker) {
  std::istringstream words(pBroker.ask("usage"));
  Usage usage;
  words >> usage.processorUs >> usage.residentKib >> usage.threads;
  require(usage.threads > 0, "no usage");
  return usage;
}

}  // namespace OX::benchmarks
