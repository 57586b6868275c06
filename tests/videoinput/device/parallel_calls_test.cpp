// Many threads at once on one device: no reply is torn, nothing hangs, and all counters return to
// zero.
#include <thread>

#include "support/device_fixture.h"

namespace OX::test {
namespace {

// Each round pushes a frame of one shade; a reply that mixes two frames would have more than one.
bool isOneShade(const OXValue& pReply) {
  const auto* const pixels = static_cast<const unsigned char*>(pReply[6].GetBinary());
  return std::all_of(pixels, pixels + pReply[6].getSize(),
                     [&](unsigned char pPixel) { return pPixel == pixels[0]; });
}

TEST_F(SimulatorTest, RemoteRepliesStayWholeWhateverOthersDo) {
  constexpr int kRounds = 60;
  std::atomic<bool> running{true};
  std::atomic<int> torn{0};
  std::atomic<int> images{0};
  std::vector<std::thread> threads;
  threads.emplace_back([&] {
    for (int shade = 0; running; ++shade) {
      fClock.advanceUs(40'000);
      push(0, 320, 240, shade % 256);
    }
  });
  // Another client that knows every id releases images and ends subscriptions while replies are
  // being copied.
  threads.emplace_back([&] {
    while (running) {
      for (const char* id : {"a", "a_2", "a_3"}) {
        outcome([&] { return fDevice->releaseImage(id); });
        outcome([&] { return fDevice->releaseDirectRawImage(id); });
      }
      outcome([&] {
        fDevice->unsubscribe("a");
        return 0;
      });
    }
  });
  std::vector<std::thread> readers;
  for (int reader = 0; reader < 3; ++reader)
    readers.emplace_back([&, reader] {
      for (int round = 0; round < kRounds; ++round) {
        outcome([&] {
          const std::string id = subscribe("a", kQVGA, kYuv, 30);
          const OXValue reply =
              reader == 0 ? fDevice->getDirectRawImageRemote(id) : fDevice->getImageRemote(id);
          // A raw frame of grey is Y, 128, Y, 128: only a luma image has one shade.
          if (reply.getSize() == 12 && reader != 0 && !isOneShade(reply)) ++torn;
          if (reply.getSize() == 12) ++images;
          fDevice->unsubscribe(id);
          return 0;
        });
      }
    });
  for (std::thread& thread : readers) thread.join();
  running = false;
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(torn, 0);
  EXPECT_GT(images, 0);
  for (const char* base : {"a"}) fDevice->unsubscribeAllInstances(base);
  EXPECT_EQ(DeviceProbe(*fDevice).complaints(), "");
  EXPECT_EQ(DeviceProbe(*fDevice).lentFrames(0), 0);
}

}  // namespace
}  // namespace OX::test
