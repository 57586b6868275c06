// Random calls, one after the other, against the invariants that must hold between any two of them.
#include "random_client.h"
#include "support/device_fixture.h"

namespace OX::test {
namespace {

TEST_F(SimulatorTest, CountersAreConsistentBetweenAnyTwoCalls) {
  // A change that waits for a held image meets its release: 100000 passes would take long.
  fClock.setSleepHook([&](unsigned int pDurationUs) {
    if (pDurationUs != 50) return;
    for (const auto& [id, subscriber] : DeviceProbe(*fDevice).subscribers())
      outcome([&, &name = id] { return fDevice->releaseImage(name); });
  });
  for (unsigned int seed = 1; seed <= 8; ++seed) {
    RandomClient client(*fBroker, seed, testing::TempDir() + "random_calls.oxv");
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
