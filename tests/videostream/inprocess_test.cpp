// Streams of modules in the broker's own process.
#include <condition_variable>
#include <mutex>

#include "stream_service.h"
#include "support/allocations.h"

namespace OX::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

class InProcess : public StreamService {
 protected:
  std::unique_ptr<FrameStream> open(const std::string& pName, int pFps = 0) {
    auto* const streams = dynamic_cast<IVideoStream*>(fBroker->getModule("OXVideoStream").get());
    return streams->open(pName, {0, kQQVGA, kRGB}, pFps);
  }
  static int shadeOf(const Frame& pFrame) {
    return pFrame ? test::shadeOf(static_cast<const void*>(pFrame.image().fData)) : -1;
  }
};

/// What a callback was called with.
class Calls {
 public:
  void add(int pShade) {
    const std::lock_guard hold(fGuard);
    fShades.push_back(pShade);
    fChanged.notify_all();
  }
  bool await(const std::vector<int>& pShades) {
    std::unique_lock hold(fGuard);
    return fChanged.wait_for(hold, seconds(20), [&] { return fShades == pShades; });
  }
  std::vector<int> shades() {
    const std::lock_guard hold(fGuard);
    return fShades;
  }

 private:
  std::mutex fGuard;
  std::condition_variable fChanged;
  std::vector<int> fShades;
};

TEST_F(InProcess, AWaitTakesEachFrameOnceAndAllocatesNothing) {
  start();
  push(1);
  const auto stream = open("mine");
  EXPECT_EQ(stream->id(), "mine");
  EXPECT_EQ(shadeOf(stream->waitForFrame(milliseconds(1))), -1);
  auto waiting = std::async(std::launch::async, [&] { return stream->waitForFrame(seconds(20)); });
  push(2);
  EXPECT_EQ(shadeOf(waiting.get()), 2);
  long allocated = 0;
  for (int i = 0; i < 10; ++i) {
    for (int shade = 3; shade <= 4; ++shade) push(shade);
    const long before = allocations();
    const Frame frame = stream->waitForFrame(seconds(20));
    if (i > 2) allocated += allocations() - before;
    EXPECT_EQ(shadeOf(frame), 4);
    EXPECT_EQ(frame.number(), stream->frameNumber());
  }
  const long before = allocations();
  EXPECT_FALSE(stream->waitForRawFrame(milliseconds(2)));
  EXPECT_EQ(allocated + allocations() - before, 0);
  const StreamStatistics statistics = stream->statistics();
  EXPECT_EQ(statistics.given, 11u);
  EXPECT_EQ(statistics.skipped, 10u);
  EXPECT_EQ(statistics.timedOut, 2u);
}

TEST_F(InProcess, WhoKeepsTooManyFramesGetsNoneUntilOneIsGivenBack) {
  start();
  const auto stream = open("mine");
  std::vector<Frame> kept;
  for (int shade = 0; shade < FrameSubscription::kKeptFrames; ++shade) {
    push(shade);
    kept.push_back(stream->waitForFrame(seconds(20)));
    ASSERT_EQ(shadeOf(kept.back()), shade);
  }
  push(20);
  EXPECT_FALSE(stream->waitForFrame(milliseconds(100)));
  EXPECT_LE(fLog.count(ki::log::kError), 2)
      << "a failure leaves a record, and is not repeated soon";
  kept.erase(kept.begin());
  push(21);
  EXPECT_EQ(shadeOf(stream->waitForFrame(seconds(20))), 21);
  EXPECT_EQ(shadeOf(kept.front()), 1) << "kept frames stay as they are";
}

TEST_F(InProcess, AStreamEndsAWaitAtOnceAndItsFramesOutliveIt) {
  start();
  auto stream = open("mine");
  push(5);
  const Frame kept = stream->waitForFrame(seconds(20));
  for (const bool byDevice : {true, false}) {
    auto waiting =
        std::async(std::launch::async, [&] { return stream->waitForFrame(seconds(20)); });
    const auto begin = std::chrono::steady_clock::now();
    if (byDevice)
      fDevice->unsubscribe("mine");
    else
      fBroker->unregisterModule("OXVideoStream");
    fStreams.reset();
    EXPECT_FALSE(waiting.get());
    EXPECT_LT(std::chrono::steady_clock::now() - begin, seconds(10));
    EXPECT_TRUE(stream->isOver());
    if (byDevice) stream = open("other");
  }
  stream.reset();
  EXPECT_EQ(shadeOf(kept), 5);
}

TEST_F(InProcess, ACallbackIsCalledOnceAtATimeUntilItIsReplaced) {
  start();
  Calls first, second;
  auto stream = open("mine");
  stream->onFrame([&](Frame pFrame) {
    first.add(shadeOf(pFrame));
    if (first.shades().size() == 2) throw OXError("test", "test", "too much");
  });
  push(1);
  EXPECT_TRUE(first.await({1}));
  push(2);
  EXPECT_TRUE(first.await({1, 2}));
  push(3);
  EXPECT_TRUE(first.await({1, 2, 3})) << "what it throws is only logged";
  EXPECT_NE(fLog.records(ki::log::kError).find("too much"), std::string::npos);
  // Frames that come during a call are skipped but for the newest.
  std::promise<void> entered, left;
  stream->onFrame([&, isFirst = true](Frame pFrame) mutable {
    second.add(shadeOf(pFrame));
    if (std::exchange(isFirst, false)) {
      entered.set_value();
      left.get_future().wait();
    }
  });
  push(4);
  entered.get_future().wait();
  for (int shade = 5; shade <= 7; ++shade) push(shade);
  auto replacing = std::async(std::launch::async, [&] {
    // Waits for the call that is under way.
    stream->onFrame({});
    return second.shades();
  });
  EXPECT_EQ(replacing.wait_for(milliseconds(20)), std::future_status::timeout);
  left.set_value();
  const std::vector<int> shades = replacing.get();
  EXPECT_EQ(shades, std::vector<int>{4}) << "no call after it was replaced";
  push(8);
  EXPECT_EQ(shadeOf(stream->waitForFrame(seconds(20))), 8);
  EXPECT_EQ(second.shades(), shades);
  EXPECT_EQ(first.shades().size(), 3u);
}

TEST_F(InProcess, ACallbackMayReplaceItselfAndCloseItsStream) {
  start();
  Calls calls;
  std::unique_ptr<FrameStream> stream = open("mine");
  stream->onFrame([&](Frame pFrame) {
    calls.add(shadeOf(pFrame));
    stream->onFrame([&](Frame pNext) {
      stream.reset();
      calls.add(shadeOf(pNext) + 100);
    });
  });
  push(1);
  EXPECT_TRUE(calls.await({1}));
  push(2);
  EXPECT_TRUE(calls.await({1, 102}));
  EXPECT_TRUE(eventually([&] { return StreamProbe(*fStreams).countStreams() == 0; }));
  push(3);
  EXPECT_EQ(calls.shades().size(), 2u);
}

}  // namespace
}  // namespace OX::test
