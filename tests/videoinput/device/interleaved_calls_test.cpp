// One call in the middle of another, at a chosen point: while a request waits for a first frame,
// and while a reply is being copied.
#include <future>
#include <optional>

#include "report.h"
#include "subscriberrecord.h"
#include "support/allocations.h"
#include "support/device_fixture.h"

namespace OX::test {
namespace {

using testing::HasSubstr;
using testing::Not;

struct Call {
  const char* what;
  std::function<OXValue()> call;
  const char* outcome;
};

/// A call on a thread of its own.
class Concurrent {
 public:
  explicit Concurrent(const Call& pCall)
      : fOutcome(std::async(std::launch::async, [call = pCall.call] { return outcome(call); })) {}
  /// What came of it within pBound.
  std::string within(std::chrono::milliseconds pBound) {
    return fOutcome.wait_for(pBound) == std::future_status::ready ? fOutcome.get() : "waits";
  }

 private:
  std::future<std::string> fOutcome;
};

constexpr std::chrono::seconds kLong(20);

class InterleavedCalls : public SimulatorTest {
 protected:
  /// Asks as "waiter" for an image of camera 1, which has no frame. Once it waits, pMeanwhile is
  /// called; afterwards a frame ends the wait, or its bound.
  OXValue requestThatWaits(const std::function<void()>& pMeanwhile, bool pFrameComes = true) {
    // Other threads sleep, too, and some for longer than this function takes.
    const auto isFirst = std::make_shared<std::atomic<bool>>(true);
    fClock.setSleepHook([&, isFirst](unsigned int) {
      if (!isFirst->exchange(false)) return;
      pMeanwhile();
      if (pFrameComes) push(1, 320, 240, 90);
    });
    const OXValue reply = fDevice->getImageRemote("waiter");
    fClock.setSleepHook({});
    EXPECT_FALSE(*isFirst) << "nothing waited";
    return reply;
  }

  void subscribeBoth() {
    ASSERT_EQ(fDevice->subscribeCamera("waiter", 1, kQVGA, kYuv, 30), "waiter");
    ASSERT_EQ(fDevice->subscribeCamera("other", 0, kQVGA, kYuv, 30), "other");
    ASSERT_TRUE(push(0));
  }

  /// One image for each stream of each subscriber that is left.
  int expectedHolds() const {
    int holds = 0;
    for (const auto& [id, subscriber] : DeviceProbe(*fDevice).subscribers())
      holds += subscriber->fIsMultiStream ? static_cast<int>(subscriber->fActiveCameras.size()) : 1;
    return holds;
  }

  /// Whether all pixels of a reply are the same.
  static bool isWhole(const OXValue& pReply) {
    const bool isOne = pReply.getSize() == 12;
    const int layers = (isOne ? pReply : pReply[0])[2].toInt();
    const OXValue& pixels = pReply[isOne ? 6 : 2];
    const auto* const bytes = static_cast<const unsigned char*>(pixels.GetBinary());
    return pixels.getSize() > 0 && std::equal(bytes + layers, bytes + pixels.getSize(), bytes);
  }

  const std::string fVideo = testing::TempDir() + "interleaved" + std::to_string(::getpid());
};

// The request goes on only when all of them have returned.
TEST_F(InterleavedCalls, NobodyElseWaitsForARequestThatWaits) {
  OXVisionSimulatorCam& device = *fDevice;
  subscribeBoth();
  const std::vector<Call> calls{
      {"image", [&] { return device.getImageRemote("other").getSize(); }, "12"},
      {"raw image", [&] { return device.getDirectRawImageRemote("other").getSize(); }, "12"},
      {"getter", [&] { return device.getResolution("waiter"); }, "1"},
      {"frame rate", [&] { return device.getFrameRate("waiter"); }, "30"},
      {"parameter", [&] { return device.getParam(kCameraSelectID); }, "0"},
      {"setter", [&] { return device.setColorSpace("other", kRGB); }, "true"},
      {"change of camera 0", [&] { return device.setResolution("other", kVGA); }, "true"},
      {"recording", [&] { return device.recordVideo("other", fVideo, 1, 1); }, "true"},
      {"end of it", [&] { return device.stopVideo("other"); }, "true"},
      {"subscription", [&] { return device.subscribe("third", kQVGA, kRGB, 5); }, "\"third\""},
      {"its end", [&] { return device.unsubscribe("third"), true; }, "true"},
      {"push", [&] { return push(0); }, "true"},
      {"grabber", [&] { return device.stopFrameGrabber(0); }, "true"},
  };
  const OXValue reply = requestThatWaits([&] {
    for (const Call& call : calls) {
      const std::string came = Concurrent(call).within(kLong);
      EXPECT_EQ(came, call.outcome) << call.what;
      if (came == "waits") std::abort();  // it would wait for the rest of this test, too
    }
  });
  EXPECT_EQ(reply.getSize(), 12);
}

// What the waiting subscriber's own calls get is what they would get after the request.
TEST_F(InterleavedCalls, CallsOfTheSameSubscriberFollowItsRequest) {
  OXVisionSimulatorCam& device = *fDevice;
  const std::vector<Call> calls{
      {"setResolution", [&] { return device.setResolution("waiter", kQQVGA); }, "true"},
      {"stopVideo", [&] { return device.stopVideo("waiter"); }, "true"},
      {"releaseImage", [&] { return device.releaseImage("waiter"); }, "true"},
      {"unsubscribe", [&] { return device.unsubscribe("waiter"), true; }, "true"},
      {"unsubscribeAllInstances", [&] { return device.unsubscribeAllInstances("waiter"), true; },
       "true"},
  };
  for (const Call& call : calls) {
    SCOPED_TRACE(call.what);
    subscribeBoth();
    ASSERT_TRUE(device.recordVideo("waiter", fVideo, 5, 1));
    std::optional<Concurrent> own;
    const OXValue reply = requestThatWaits([&] {
      own.emplace(call);
      EXPECT_EQ(own->within(std::chrono::milliseconds(20)), "waits");
    });
    ASSERT_EQ(reply.getSize(), 12) << "the request was first";
    EXPECT_EQ(reply[0].toInt(), 320);
    EXPECT_EQ(own->within(kLong), call.outcome);
    EXPECT_EQ(DeviceProbe(device).complaints(), "");
    for (const char* const name : {"waiter", "other"}) device.unsubscribeAllInstances(name);
    EXPECT_EQ(DeviceProbe(device).complaints(), "");
    EXPECT_EQ(DeviceProbe(device).lentFrames(1), 0);
    device.stopFrameGrabber();
    device.startFrameGrabber();
  }
}

TEST_F(InterleavedCalls, ASubscriberThatLeavesTwiceIsUnknownToTheSecondCall) {
  subscribeBoth();
  std::vector<Concurrent> leavers;
  const Call leave{"unsubscribe", [&] { return fDevice->unsubscribe("waiter"), true; }, ""};
  requestThatWaits([&] {
    for (int i = 0; i < 2; ++i) leavers.emplace_back(leave);
  });
  const std::string first = leavers[0].within(kLong);
  const std::string second = leavers[1].within(kLong);
  EXPECT_THAT(first + second, HasSubstr("true"));
  EXPECT_THAT(first + second, HasSubstr("OXError: Cannot unsubscribe \"waiter\": module unknown"));
}

// Either may be the first to have its turn.
TEST_F(InterleavedCalls, AllInstancesLeaveAlsoWhenOneLeavesByItself) {
  const Call one{"unsubscribe", [&] { return fDevice->unsubscribe("waiter"), true; }, ""};
  const Call all{"unsubscribeAllInstances",
                 [&] { return fDevice->unsubscribeAllInstances("waiter"), true; }, ""};
  for (int round = 0; round < 20; ++round) {
    subscribeBoth();
    ASSERT_EQ(subscribe("waiter"), "waiter_2");
    std::vector<Concurrent> leavers;
    const auto bothLeave = [&] {
      for (const Call* const call : {&one, &all}) {
        leavers.emplace_back(*call);
        EXPECT_EQ(leavers.back().within(std::chrono::milliseconds(2)), "waits");
      }
    };
    EXPECT_FALSE(requestThatWaits(bothLeave, false).isValid());
    EXPECT_EQ(leavers[1].within(kLong), "true");
    leavers.clear();
    fDevice->unsubscribe("other");
    ASSERT_EQ(DeviceProbe(*fDevice).subscribers().size(), 0u);
    fDevice->stopFrameGrabber();
    fDevice->startFrameGrabber();
  }
}

// Camera, frames and raw buffers change one after the other, with pauses of the lock.
TEST_F(InterleavedCalls, ARequestDuringAChangeOfSizeGetsAWholeImage) {
  OXVisionSimulatorCam& device = *fDevice;
  subscribe("changes", kQVGA);
  subscribe("reads", kQVGA);
  int requests = 0;
  fClock.setSleepHook([&](unsigned int) {
    fClock.advanceUs(1'000'000);
    push(0, 320, 240, 20 * ++requests);
    int width = 0;
    int height = 0;
    setSizeFromResolution(device.getResolution(0), width, height);
    const OXValue reply = device.getDirectRawImageRemote("reads");
    ASSERT_EQ(reply.getSize(), 12);
    EXPECT_EQ(reply[0].toInt(), width);
    EXPECT_TRUE(isWhole(reply));
  });
  for (const int resolution : {k4VGA, kVGA, kQVGA}) {
    SCOPED_TRACE(resolution);
    EXPECT_TRUE(device.setResolution("changes", resolution));
  }
  fClock.setSleepHook({});
  EXPECT_EQ(requests, 3 * 3);
}

// The reply stays whole, and there is a free buffer for everybody who holds nothing. All formats
// differ, so that nobody shares a buffer.
TEST_F(InterleavedCalls, WhateverHappensDuringACopyThePoolsStayComplete) {
  OXVisionSimulatorCam& device = *fDevice;
  const std::vector<int> cameras{0, 1};
  const std::vector<int> formats{kQVGA, kQVGA};
  const auto everybodyAsks = [&](bool pRaw) {
    for (const int camera : cameras) push(camera, 320, 240, 200);
    for (const char* const id : {"one", "another"})
      outcome([&] {
        return (pRaw ? device.getDirectRawImageLocal(id) : device.getImageLocal(id)) != nullptr;
      });
    for (const char* const id : {"several", "others"})
      outcome(
          [&] { return pRaw ? device.getDirectRawImagesLocal(id) : device.getImagesLocal(id); });
  };
  const std::vector<Call> requests{
      {"getImageRemote", [&] { return device.getImageRemote("one"); }, ""},
      {"getDirectRawImageRemote", [&] { return device.getDirectRawImageRemote("one"); }, ""},
      {"getImagesRemote", [&] { return device.getImagesRemote("several"); }, ""},
      {"getDirectRawImagesRemote", [&] { return device.getDirectRawImagesRemote("several"); }, ""},
  };
  const std::vector<Call> middles{
      {"nothing", [&] { return true; }, "true"},
      {"releaseImage", [&] { return device.releaseImage("one"); }, "true"},
      {"releaseDirectRawImage", [&] { return device.releaseDirectRawImage("one"); }, "true"},
      {"releaseImages", [&] { return device.releaseImages("several").getSize(); }, "2"},
      {"releaseDirectRawImages", [&] { return device.releaseDirectRawImages("several").getSize(); },
       "2"},
      {"unsubscribe", [&] { return device.unsubscribe("one"), true; }, "true"},
      {"unsubscribeAllInstances", [&] { return device.unsubscribeAllInstances("several"), true; },
       "true"},
      {"setActiveCameras", [&] { return device.setActiveCameras("several", std::vector<int>{1}); },
       "[1]"},
      {"setActiveCamera", [&] { return device.setActiveCamera("another", 1); }, "true"},
      {"setParam", [&] { return device.setParam(kCameraResolutionID, kVGA), true; }, "true"},
  };
  for (const Call& request : requests)
    for (const Call& middle : middles)
      for (const bool raw : {false, true}) {
        SCOPED_TRACE(report::text(middle.what, " during ", request.what, ", then all ask for ",
                                  raw ? "raw" : "converted", " images"));
        device.subscribe("one", kQVGA, kYuv, 30);
        device.subscribe("another", kQVGA, kRGB, 30);
        device.subscribeCameras("several", cameras, formats, std::vector<int>{kHSY, kHSY}, 30);
        device.subscribeCameras("others", cameras, formats, std::vector<int>{kBGR, kBGR}, 30);
        for (const int camera : cameras) push(camera, 320, 240, 50);
        fLog.clear();
        OXValue reply;
        {
          const AtAllocation copy(320 * 240, [&] {
            EXPECT_EQ(outcome(middle.call), middle.outcome);
            everybodyAsks(raw);
            EXPECT_EQ(DeviceProbe(device).holds(), expectedHolds());
          });
          outcome([&] { return reply = request.call(); });
          ASSERT_TRUE(copy.hasHappened());
        }
        EXPECT_TRUE(!reply.isValid() || isWhole(reply));
        EXPECT_THAT(fLog.records(2), Not(HasSubstr("free buffer")));
        EXPECT_THAT(fLog.records(2), Not(HasSubstr("available buffer")));
        EXPECT_EQ(DeviceProbe(device).complaints(), "");
        for (const char* const name : {"one", "another", "several", "others"})
          device.unsubscribeAllInstances(name);
        EXPECT_EQ(DeviceProbe(device).complaints(), "");
        for (const int camera : cameras) EXPECT_EQ(DeviceProbe(device).lentFrames(camera), 0);
      }
}

}  // namespace
}  // namespace OX::test
