// A remote image, getImageRemote of one that is converted already, beside a raw channel: a byte as
// the request, then as many bytes as the image has, written from one buffer and read into one. The
// plain client reads the broker's answers into one buffer too, and looks at none of them. The
// system chooses the cores, as it does for a user.
#include <chrono>
#include <cstring>
#include <string>
#include <vector>

#include <oxframework/oxdefinitions.h>
#include <oxframework/oxremotebroker.h>
#include "brokerside.h"
#include "child.h"
#include "measured.h"
#include "rawchannel.h"
#include "rows.h"
#include "testframes.h"

namespace OX::benchmarks {
namespace {

constexpr char kMethod[] = "getImageRemote";
constexpr char kId[] = "a";
constexpr int kRepetitions = 11;

struct Transfer {
  int resolution;
  const char* socket;  ///< as the roles take it
  std::chrono::milliseconds apart;

  std::size_t bytes() const { return static_cast<std::size_t>(sizeOf(resolution).bytes()); }
};

void subscribe(OXRemoteBroker& pBroker, int pResolution) {
  pBroker.call("OXVideoDevice", "subscribeCamera",
               OXValue::array(kId, 0, pResolution, int{kRGB}, 30));
}

void rawImage(benchmark::State& pState, const Transfer& pTransfer) {
  Child child("raw", {pTransfer.socket, "1", std::to_string(pTransfer.bytes())});
  RawSocket socket(child.greeting());
  std::vector<char> image(pTransfer.bytes());
  std::uint64_t count = 0;
  measureCalls(
      pState,
      [&] {
        socket.write("?", 1);
        socket.read(image.data(), image.size());
        std::uint64_t number = 0;
        std::memcpy(&number, image.data(), sizeof number);
        require(number == ++count, "images out of order");
      },
      pTransfer.apart);
  pState.counters["bytes"] = static_cast<double>(pTransfer.bytes());
}

/// A broker that has one frame, which a subscriber of this process has had converted.
class ImageBroker {
 public:
  explicit ImageBroker(const Transfer& pTransfer)
      : fChild("broker", {pTransfer.socket, "still"}),
        fClient(OXRemoteBroker::connect(fChild.greeting())) {
    subscribe(*fClient, pTransfer.resolution);
    fChild.ask("push " + std::to_string(pTransfer.resolution));
    const OXValue image = get();
    require(static_cast<std::size_t>(image.getSize()) == pTransfer.bytes() &&
                isFrame(image.GetBinary(), pTransfer.bytes(), 1),
            "another image");
  }
  ~ImageBroker() { fClient->close(); }
  ImageBroker(const ImageBroker&) = delete;
  ImageBroker& operator=(const ImageBroker&) = delete;

  OXValue get() { return fClient->call("OXVideoDevice", kMethod, fArguments)[6]; }
  const std::string& address() const { return fChild.greeting(); }

 private:
  Child fChild;
  const boost::shared_ptr<OXRemoteBroker> fClient;
  const OXValue fArguments = OXValue::array(kId);
};

void plainClient(benchmark::State& pState, const Transfer& pTransfer) {
  ImageBroker broker(pTransfer);
  RawRequest request(std::string("OXVideoDevice.") + kMethod, {kId});
  RawSocket socket(broker.address());
  const std::vector<char>& first = request.next();
  socket.write(first.data(), first.size());
  std::vector<char> answer = socket.readUntilQuiet();
  require(answer.size() > pTransfer.bytes(), "no image");
  measureCalls(
      pState,
      [&] {
        const std::vector<char>& bytes = request.next();
        socket.write(bytes.data(), bytes.size());
        socket.read(answer.data(), answer.size());
        require(answer[3] == bytes[3] && answer[4] == bytes[4], "another answer");
      },
      pTransfer.apart);
  pState.counters["bytes"] = static_cast<double>(pTransfer.bytes());
}

void frameworkClient(benchmark::State& pState, const Transfer& pTransfer) {
  ImageBroker broker(pTransfer);
  measureCalls(
      pState,
      [&] {
        require(static_cast<std::size_t>(broker.get().getSize()) == pTransfer.bytes(), "no image");
      },
      pTransfer.apart);
  pState.counters["bytes"] = static_cast<double>(pTransfer.bytes());
}

}  // namespace

namespace {

using Row = void (*)(benchmark::State&, const Transfer&);

void add(const std::string& pName, Row pRow, const Transfer& pTransfer, int pPasses) {
  addRow(pName, pPasses, kRepetitions, [=](benchmark::State& pState) { pRow(pState, pTransfer); });
}

}  // namespace

void addImages() {
  for (const bool tcp : {false, true})
    for (const int resolution : {kVGA, k4VGA}) {
      const std::string size = getResolutionName(resolution);
      const std::string socket = tcp ? "TCP" : "Unix";
      const std::string job = "remote image/" + size + ", " + socket + "/";
      Transfer transfer{resolution, tcp ? "tcp" : "unix", std::chrono::milliseconds(0)};
      const int passes = resolution == kVGA ? 600 : 200;
      add(job + "raw channel", rawImage, transfer, passes);
      add(job + "plain client, broker", plainClient, transfer, passes);
      add(job + "OXRemoteBroker, broker", frameworkClient, transfer, passes);
      transfer.apart = kApart;
      const std::string beside = "image beside tools/" + size + "/";
      add(beside + "raw channel, " + socket, rawImage, transfer, 100);
      add(beside + "OXRemoteBroker, " + socket, frameworkClient, transfer, 100);
    }
}

}  // namespace OX::benchmarks
