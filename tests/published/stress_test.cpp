// Many clients at once on one device, calling anything: nothing hangs, no counter is left raised.
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <thread>

#include "random_calls.h"

namespace OX::test {
namespace {

constexpr int kThreads = 8;

/// How long each client goes on: OX_STRESS_SECONDS, 3 s if that is unset, or kCalls calls if it is
/// 0.
class Length {
 public:
  bool isOver(int pCalls) const {
    return fSeconds > 0 ? std::chrono::steady_clock::now() > fEnd : pCalls >= kCalls;
  }

 private:
  static constexpr int kCalls = 400;
  static int xSeconds() {
    const char* const seconds = std::getenv("OX_STRESS_SECONDS");
    return seconds ? std::atoi(seconds) : 3;
  }
  const int fSeconds = xSeconds();
  const std::chrono::steady_clock::time_point fEnd =
      std::chrono::steady_clock::now() + std::chrono::seconds(fSeconds);
};

std::string pathOf(unsigned int pSeed) {
  return testing::TempDir() + "ox_stress_" + std::to_string(::getpid()) + "_" +
         std::to_string(pSeed) + ".oxv";
}

TEST_F(SimulatorTest, EightClientsCallAnythingAtOnce) {
  const unsigned int firstSeed = std::random_device()();
  SCOPED_TRACE("seeds from " + std::to_string(firstSeed));
  const Length length;
  std::atomic<int> calls{0};
  std::atomic<int> replies{0};
  std::vector<std::thread> threads;
  std::vector<std::set<std::string>> called(kThreads);
  for (unsigned int i = 0; i < kThreads; ++i)
    threads.emplace_back([&, i] {
      RandomCalls client(*fBroker, firstSeed + i, pathOf(i));
      for (int mine = 0; !length.isOver(mine); ++mine) {
        fClock.advanceUs(3'000);
        called[i].insert(client.step());
        ++calls;
      }
      replies += client.replies();
    });
  for (std::thread& thread : threads) thread.join();

  const DeviceProbe probe(*fDevice);
  EXPECT_EQ(probe.complaints(), "");
  std::vector<std::string> left;
  for (const auto& entry : probe.subscribers()) left.push_back(entry.first);
  for (const std::string& id : left) fDevice->unsubscribe(id);
  EXPECT_EQ(probe.pools(), "0/0 0/0");
  EXPECT_EQ(probe.lentFrames(0), 0);
  EXPECT_EQ(probe.lentFrames(1), 0);
  std::set<std::string> all;
  for (auto& some : called) all.merge(some);
  EXPECT_GT(all.size(), 60u) << "of the 72 names that 84 publications have";
  EXPECT_GT(replies, 0);
  RecordProperty("calls", calls);
  RecordProperty("replies", replies);
  for (unsigned int i = 0; i < kThreads; ++i) std::filesystem::remove(pathOf(i));
}

// Several clients use one id: its hold is released while a reply is being copied from it, and it
// asks again.
TEST_F(SimulatorTest, CopyingARawReplyCostsThePoolNoBuffer) {
  const std::string id = subscribe("a", k4VGA);
  std::atomic<bool> running{true};
  std::vector<std::thread> threads;
  threads.emplace_back([&] {
    while (running) fDevice->releaseDirectRawImage(id);
  });
  push(0, 1280, 960);
  std::vector<std::thread> readers;
  for (int i = 0; i < 3; ++i)
    readers.emplace_back([&] {
      for (int call = 0; call < 60; ++call) fDevice->getDirectRawImageRemote(id);
    });
  for (std::thread& reader : readers) reader.join();
  running = false;
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(fLog.records(2).find("available buffer"), std::string::npos);
  fDevice->unsubscribe(id);
  EXPECT_EQ(DeviceProbe(*fDevice).lentFrames(0), 0);
}

}  // namespace
}  // namespace OX::test
