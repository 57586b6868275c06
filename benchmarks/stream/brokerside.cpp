// The broker's process: what oxbroker does with its libraries, and a source of frames within it.
// Everything but serving is done on the thread of the conversation.
#include "brokerside.h"

#include <fstream>
#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <utility>

#include <oxframework/oxserver.h>
#include "../service.h"
#include "localstreams.h"
#include "measured.h"
#include "modulelibrary.h"
#include "rawchannel.h"
#include "source.h"

namespace OX::benchmarks {
namespace {

/// A line of /proc/self/status, without its name and unit.
int statusOf(const std::string& pName) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);)
    if (line.starts_with(pName + ":")) return std::stoi(line.substr(pName.size() + 1));
  throw std::runtime_error("no " + pName + " in /proc/self/status");
}

struct Pushes {
  int resolution = 0;
  double rate = 0;
  int count = 0;

  explicit Pushes(std::istream& pWords) { pWords >> resolution >> rate >> count; }
};

/// Answers the lines of a broker's conversation.
class BrokerProcess {
 public:
  BrokerProcess(bool pTcp, bool pStill) : fClock(pStill ? new SteppedClock : nullptr) {
    daemon::ModuleLibrary("libvideostream.so").createModule(fService.broker);
    fServer = std::make_unique<OXServer>(fService.broker);
    fAddress = fServer->listen(pTcp ? "127.0.0.1:0" : "unix:" + socketFile());
  }

  const std::string& address() const { return fAddress; }

  std::string answer(const std::string& pLine) {
    std::istringstream words(pLine);
    std::string verb;
    words >> verb;
    std::ostringstream text;
    if (verb == "push")
      text << xPush(words);
    else if (verb == "pushes")
      text << xPushes(Pushes(words));
    else if (verb == "usage")
      text << processorUs(RUSAGE_SELF) << ' ' << statusOf("VmRSS") << ' ' << statusOf("Threads");
    else if (verb == "streams")
      xOpenStreams(words);
    else if (verb == "frames")
      text << fStreams->frames();
    else
      throw std::runtime_error("no verb " + verb);
    return text.str();
  }

 private:
  std::uint64_t xPush(std::istream& pWords) {
    int resolution = 0;
    pWords >> resolution;
    if (fClock) fClock->nextSecond();
    return fSource.push(resolution);
  }
  double xPushes(const Pushes& pPushes) {
    return fSource.push(pPushes.resolution, pPushes.rate, pPushes.count, [] {});
  }
  void xOpenStreams(std::istream& pWords) {
    int count = 0;
    std::string way;
    int resolution = 0;
    pWords >> count >> way >> resolution;
    fStreams = std::make_unique<LocalStreams>(*fService.broker, count, way, resolution);
  }

  const std::unique_ptr<SteppedClock> fClock;
  LiveService fService;
  Source fSource{fService};
  std::unique_ptr<OXServer> fServer;
  std::string fAddress;
  std::unique_ptr<LocalStreams> fStreams;
};

}  // namespace

void runBroker(Conversation& pConversation, const std::vector<std::string>& pArguments) {
  BrokerProcess process(pArguments.at(0) == "tcp", pArguments.at(1) == "still");
  pConversation.say(process.address());
  for (std::string line; pConversation.hear(line);) pConversation.say(process.answer(line));
}

namespace {

std::string stagesOf(const StageDurations& pStages) {
  std::ostringstream text;
  for (const auto& [name, stage] :
       {std::pair{"push", &pStages.push}, std::pair{"resample", &pStages.resample},
        std::pair{"convert", &pStages.convert}}) {
    const auto us = [&, of = stage](double pShare) {
      return std::chrono::duration<double, std::micro>(of->percentile(pShare)).count();
    };
    text << name << ' ' << stage->count() << ' ' << us(0.5) << ' ' << us(0.99) << ' ';
  }
  return text.str();
}

}  // namespace

void runRawPushes(Conversation& pConversation, const std::vector<std::string>& /*pArguments*/) {
  // The most a simulator's camera takes: an image older than this period is converted anew.
  constexpr int kHighestRate = 255;
  LiveService service;
  Source source(service);
  RawListener listener(false);
  pConversation.say(listener.address());
  std::optional<RawSocket> socket;
  std::string id;
  for (std::string line; pConversation.hear(line);) {
    std::istringstream words(line);
    std::string verb;
    words >> verb;
    if (verb == "stages") {
      pConversation.say(stagesOf(service.device->stages()));
      continue;
    }
    const Pushes pushes(words);
    if (!socket) {
      socket.emplace(listener.accept());
      id = service.device->subscribe("raw", pushes.resolution, kRGB, kHighestRate);
    }
    const double us = source.push(pushes.resolution, pushes.rate, pushes.count, [&] {
      const OXImage* const image = service.device->getImageLocal(id);
      require(image, "no image");
      const std::int64_t stamp = image->fTimeStamp;
      socket->write(&stamp, sizeof stamp);
      socket->write(image->fData, static_cast<std::size_t>(sizeOf(pushes.resolution).bytes()));
      service.device->releaseImage(id);
    });
    pConversation.say(std::to_string(us));
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
