// Random calls, one after the other, against the invariants that must hold between any two of them.
#include <random>

#include "support/device_fixture.h"

namespace OX::test {
namespace {

/// Makes calls as clients do, with mostly plausible arguments.
class RandomClient {
 public:
  RandomClient(OXBroker& pBroker, unsigned int pSeed) : fBroker(pBroker), fRandom(pSeed) {}

  /// Makes one call and returns it as text; it may well be refused.
  std::string step() {
    const auto [method, arguments] = xChoose();
    const std::string result =
        outcome([&, &m = method, &a = arguments] { return fBroker.call("OXVideoDevice", m, a); });
    if (method.rfind("subscribe", 0) == 0 && result.front() == '"')
      fIds.push_back(result.substr(1, result.size() - 2));
    return method + show(arguments) + " -> " + result;
  }

 private:
  int xPick(int pFrom, int pTo) { return std::uniform_int_distribution<int>(pFrom, pTo)(fRandom); }
  std::string xId() {
    return fIds.empty() || xPick(0, 9) == 0
               ? "nobody"
               : fIds[static_cast<std::size_t>(xPick(0, static_cast<int>(fIds.size()) - 1))];
  }
  OXValue xList(int pFrom, int pTo) {
    std::vector<int> numbers(static_cast<std::size_t>(xPick(0, 2)));
    for (int& number : numbers) number = xPick(pFrom, pTo);
    return OXValue(numbers);
  }
  OXValue xFrame(int pResolution) {
    int width = 0;
    int height = 0;
    setSizeFromResolution(pResolution, width, height);
    OXValue pixels;
    pixels.SetBinary(std::vector<char>(static_cast<std::size_t>(width * height * 3)).data(),
                     width * height * 3);
    return OXValue::array(xPick(-1, 2), width, height, pixels);
  }

  std::pair<std::string, OXValue> xChoose() {
    const std::string base(1, static_cast<char>('a' + xPick(0, 2)));
    switch (xPick(0, 21)) {
      case 0:
        return {"subscribe", OXValue::array(base, xPick(0, 3), xPick(0, 16), xPick(1, 40))};
      case 1:
        return {"subscribeCamera",
                OXValue::array(base, xPick(-2, 2), xPick(0, 3), xPick(0, 16), xPick(1, 40))};
      case 2:
        return {"subscribeCameras",
                OXValue::array(base, xList(0, 1), xList(0, 2), xList(9, 11), xPick(1, 40))};
      case 3:
        return {"unsubscribe", OXValue::array(xId())};
      case 4:
        return {"getImageRemote", OXValue::array(xId())};
      case 5:
        return {"getImageLocal", OXValue::array(xId())};
      case 6:
        return {"releaseImage", OXValue::array(xId())};
      case 7:
        return {"getDirectRawImageLocal", OXValue::array(xId())};
      case 8:
        return {"getDirectRawImageRemote", OXValue::array(xId())};
      case 9:
        return {"releaseDirectRawImage", OXValue::array(xId())};
      case 10:
        return {"getImagesLocal", OXValue::array(xId())};
      case 11:
        return {"getImagesRemote", OXValue::array(xId())};
      case 12:
        return {"releaseImages", OXValue::array(xId())};
      case 13:
        return {"releaseDirectRawImages", OXValue::array(xId())};
      case 14:
        return {"setActiveCamera", OXValue::array(xId(), xPick(-1, 2))};
      case 15:
        return {"setActiveCameras", OXValue::array(xId(), xList(0, 1))};
      case 16:
        return {"setResolutions", OXValue::array(xId(), xList(0, 3))};
      case 17:
        return {"setColorSpaces", OXValue::array(xId(), xList(9, 12))};
      case 18:
        return {"setParam", OXValue::array(xPick(14, 20), xPick(0, 3), xPick(-1, 2))};
      case 19:
        return {"setActiveCamera", OXValue::array(xPick(0, 1))};
      case 20:
        return {"unsubscribeAllInstances", OXValue::array(base)};
      default:
        return {"putImage", xFrame(xPick(0, 2))};
    }
  }

  OXBroker& fBroker;
  std::mt19937 fRandom;
  std::vector<std::string> fIds;
};

TEST_F(SimulatorTest, CountersAreConsistentBetweenAnyTwoCalls) {
  for (unsigned int seed = 1; seed <= 8; ++seed) {
    RandomClient client(*fBroker, seed);
    std::string history;
    for (int i = 0; i < 400; ++i) {
      fClock.advanceUs(7'000);
      history = client.step() + "\n" + history.substr(0, 2000);
      ASSERT_EQ(DeviceProbe(*fDevice).complaints(), "")
          << "seed " << seed << ", newest call first\n"
          << history;
    }
    std::vector<std::string> left;
    for (const auto& entry : DeviceProbe(*fDevice).subscribers()) left.push_back(entry.first);
    for (const std::string& id : left) fDevice->unsubscribe(id);
    ASSERT_EQ(DeviceProbe(*fDevice).pools(), "0/0 0/0") << "seed " << seed;
    fDevice->setParam(kCameraSelectID, 0, 1);
  }
}

}  // namespace
}  // namespace OX::test
