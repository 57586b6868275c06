// From push to receipt: a client waits for each frame and notes how old it is when it has it. Ages
// count from the device's stamp, which is that of the push's beginning. Beside it the least that
// can be done with the same device: the thread that pushed takes the image, converted, and writes
// its pixels to a socket with a blocking call, and the client does nothing but read them.
#include <sstream>
#include <string>
#include <vector>

#include <oxframework/oxdefinitions.h>
#include <oxframework/oxremotebroker.h>
#include "brokerside.h"
#include "child.h"
#include "measured.h"
#include "rawchannel.h"
#include "rows.h"
#include "streamclient.h"
#include "testframes.h"

namespace OX::benchmarks {
namespace {

constexpr int kResolution = kVGA;
constexpr std::chrono::milliseconds kToArrive(1000);

/// What has arrived of the frames pushed, by their pixels.
class Arrivals {
 public:
  void add(const void* pPixels, std::size_t pBytes, std::int64_t pStampUs) {
    fAges.addUs(static_cast<double>(wallClockUs() - pStampUs));
    const int frame = frameInRow(pPixels, pBytes);
    require(frame >= 0 && pBytes == static_cast<std::size_t>(sizeOf(kResolution).bytes()),
            "an image that is no frame");
    if (frame == fLast) ++fTwice;
    fLast = frame;
    ++fCount;
  }
  int count() const { return fCount; }

  void report(benchmark::State& pState, int pPushed) const {
    fAges.report(pState);
    pState.counters["pushed"] = pPushed;
    pState.counters["missed"] = pPushed - fCount + fTwice;
    pState.counters["twice"] = fTwice;
  }

 private:
  Samples fAges;
  int fLast = 0;  ///< frames are counted from 1
  int fCount = 0;
  int fTwice = 0;
};

struct Pushes {
  int rate;
  int count;
  std::chrono::milliseconds time() const { return std::chrono::seconds(count / rate); }
  std::string line() const {
    return "pushes " + std::to_string(kResolution) + " " + std::to_string(rate) + " " +
           std::to_string(count);
  }
};

/// As counters "stage NAME", "stage NAME p99" and "stage NAME count".
void reportStage(benchmark::State& pState, const std::string& pName, double pCount, double pMedian,
                 double p99) {
  pState.counters["stage " + pName] = pMedian;
  pState.counters["stage " + pName + " p99"] = p99;
  pState.counters["stage " + pName + " count"] = pCount;
}

/// Those that the service counts.
void reportStages(benchmark::State& pState, OXRemoteBroker& pBroker) {
  const OXValue stages = pBroker.call("OXVideoStream", "timings", OXValue::array());
  for (const OXValue& stage : stages.toArray())
    reportStage(pState, stage[0].toString(), stage[1].toFloat(), stage[2].toFloat(),
                stage[3].toFloat());
}

/// Those of the device beside the raw channel.
void reportStages(benchmark::State& pState, Child& pChild) {
  std::istringstream words(pChild.ask("stages"));
  std::string name;
  double count = 0;
  double median = 0;
  double p99 = 0;
  while (words >> name >> count >> median >> p99) reportStage(pState, name, count, median, p99);
}

void byNext(benchmark::State& pState, const Pushes& pPushes, StreamClient::Way pWay) {
  Child child("broker", {"unix", "live"});
  const auto broker = OXRemoteBroker::connect(child.greeting());
  StreamClient stream(broker, "a", pWay, kResolution, kRGB);
  for (auto _ : pState) {
    Arrivals arrivals;
    child.tell(pPushes.line());
    while (arrivals.count() < pPushes.count && stream.next(kToArrive)) {
      arrivals.add(stream.pixels(), stream.bytes(), stream.stampUs());
      stream.release();
    }
    child.answer(pPushes.time() + std::chrono::seconds(10));
    arrivals.report(pState, pPushes.count);
  }
  reportStages(pState, *broker);
  broker->close();
}

void byRawChannel(benchmark::State& pState, const Pushes& pPushes) {
  Child child("rawpushes", {});
  RawSocket socket(child.greeting());
  std::vector<char> pixels(static_cast<std::size_t>(sizeOf(kResolution).bytes()));
  for (auto _ : pState) {
    Arrivals arrivals;
    child.tell(pPushes.line());
    while (arrivals.count() < pPushes.count) {
      std::int64_t stamp = 0;
      socket.read(&stamp, sizeof stamp);
      socket.read(pixels.data(), pixels.size());
      arrivals.add(pixels.data(), pixels.size(), stamp);
    }
    child.answer(pPushes.time() + std::chrono::seconds(10));
    arrivals.report(pState, pPushes.count);
  }
  reportStages(pState, child);
}

}  // namespace

void addReceipts(int pSeconds) {
  for (const int rate : {30, 60}) {
    const Pushes pushes{rate, rate * pSeconds};
    const std::string job = "receipt/" + std::to_string(rate) + " a second/";
    addRow(job + "raw channel", 1, 1,
           [=](benchmark::State& pState) { byRawChannel(pState, pushes); });
    addRow(job + "next", 1, 1,
           [=](benchmark::State& pState) { byNext(pState, pushes, StreamClient::Way::kSocket); });
    addRow(job + "nextShared", 1, 1,
           [=](benchmark::State& pState) { byNext(pState, pushes, StreamClient::Way::kShared); });
  }
}

}  // namespace OX::benchmarks
