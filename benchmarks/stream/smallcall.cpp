// A small call, getFrameRate, beside a ping-pong of two processes that exchange the same bytes over
// the same kind of socket with blocking calls. A third row sends these bytes to the broker: what it
// takes beyond the first is the broker's cost, what the client of the framework takes beyond it is
// that client's.
#include <string>
#include <vector>

#include <oxframework/oxdefinitions.h>
#include <oxframework/oxremotebroker.h>
#include "brokerside.h"
#include "child.h"
#include "measured.h"
#include "placement.h"
#include "rawchannel.h"
#include "rows.h"

namespace OX::benchmarks {
namespace {

constexpr char kMethod[] = "getFrameRate";
constexpr char kId[] = "a";
constexpr int kFrameRate = 30;
// [1, number, nil, 30], the number in three bytes.
constexpr std::size_t kAnswerBytes = 7;
constexpr int kCalls = 3000;
constexpr int kRepetitions = 11;

void subscribe(OXRemoteBroker& pBroker) {
  pBroker.call("OXVideoDevice", "subscribeCamera",
               OXValue::array(kId, 0, int{kVGA}, int{kRGB}, kFrameRate));
}

void pingPong(benchmark::State& pState, Placement pPlacement) {
  RawRequest request(std::string("OXVideoDevice.") + kMethod, {kId});
  Child child("raw", {"unix", std::to_string(request.next().size()), std::to_string(kAnswerBytes)},
              coreFor(pPlacement, Side::kServer));
  const ClientPlacement placement(pPlacement);
  RawSocket socket(child.greeting());
  char answer[kAnswerBytes];
  char number = 0;
  measureCalls(pState, [&] {
    const std::vector<char>& bytes = request.next();
    socket.write(bytes.data(), bytes.size());
    socket.read(answer, sizeof answer);
    require(answer[0] == ++number, "answers out of order");
  });
}

void plainClient(benchmark::State& pState, Placement pPlacement) {
  Child child("broker", {"unix", "still"}, coreFor(pPlacement, Side::kServer));
  const ClientPlacement placement(pPlacement);
  const auto owner = OXRemoteBroker::connect(child.greeting());
  subscribe(*owner);
  RawRequest request(std::string("OXVideoDevice.") + kMethod, {kId});
  RawSocket socket(child.greeting());
  char answer[kAnswerBytes];
  measureCalls(pState, [&] {
    const std::vector<char>& bytes = request.next();
    socket.write(bytes.data(), bytes.size());
    socket.read(answer, sizeof answer);
    require(answer[3] == bytes[3] && answer[4] == bytes[4] && answer[6] == kFrameRate,
            "another answer");
  });
  owner->close();
}

void frameworkClient(benchmark::State& pState, Placement pPlacement) {
  Child child("broker", {"unix", "still"}, coreFor(pPlacement, Side::kServer));
  const ClientPlacement placement(pPlacement);
  const auto client = OXRemoteBroker::connect(child.greeting());
  subscribe(*client);
  const OXValue arguments = OXValue::array(kId);
  // Numbers of calls in one byte make shorter messages; those that follow have three.
  for (int i = 0; i < 300; ++i) client->call("OXVideoDevice", kMethod, arguments);
  measureCalls(pState, [&] {
    require(client->call("OXVideoDevice", kMethod, arguments).toInt() == kFrameRate,
            "another answer");
  });
  client->close();
}

}  // namespace

void addSmallCalls() {
  struct Placed {
    const char* name;
    Placement placement;
  };
  for (const Placed& placed : {Placed{"each on a core of its own", Placement::kOwnCores},
                               Placed{"both on one core", Placement::kOneCore}}) {
    const auto add = [&](const char* pRow, void (*pFunction)(benchmark::State&, Placement)) {
      addRow(std::string("small call/") + placed.name + "/" + pRow, kCalls, kRepetitions,
             [pFunction, where = placed.placement](benchmark::State& pState) {
               pFunction(pState, where);
             });
    };
    add("raw channel", pingPong);
    add("plain client, broker", plainClient);
    add("OXRemoteBroker, broker", frameworkClient);
  }
}

}  // namespace OX::benchmarks
