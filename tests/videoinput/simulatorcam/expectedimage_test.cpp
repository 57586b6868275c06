// The event that tells simulators what to push: when it is raised, what it carries, and that nobody
// waits for those who receive it.
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <future>
#include <mutex>

#include "support/device_fixture.h"

namespace OX::test {
namespace {

/// A module that keeps what the event carries.
class Listener : public OXModule {
 public:
  explicit Listener(boost::shared_ptr<OXBroker> pBroker) : OXModule(std::move(pBroker), "Ear") {}

  void execute(const std::string& pMethod, const OXValue& pArguments, OXValue&) override {
    std::function<void(const OXValue&)> reaction;
    {
      const std::lock_guard guard(fGuard);
      reaction = fReaction;
    }
    if (reaction) reaction(pArguments[1]);
    const std::lock_guard guard(fGuard);
    fReceived.push_back(pMethod + " " + pArguments[0].toString() + " " + show(pArguments[1]));
    fArrived.notify_all();
  }

  /// Called with the value of each event, on the thread that raises it.
  void react(std::function<void(const OXValue&)> pReaction) {
    const std::lock_guard guard(fGuard);
    fReaction = std::move(pReaction);
  }

  std::string next() {
    std::unique_lock guard(fGuard);
    if (!fArrived.wait_for(guard, std::chrono::seconds(10), [&] { return !fReceived.empty(); }))
      return "no event within ten seconds";
    const std::string event = fReceived.front();
    fReceived.pop_front();
    return event;
  }

 private:
  std::mutex fGuard;
  std::condition_variable fArrived;
  std::deque<std::string> fReceived;
  std::function<void(const OXValue&)> fReaction;
};

class ExpectedImageTest : public SimulatorTest {
 protected:
  ExpectedImageTest() : fListener(OXModule::createModule<Listener>(fBroker)) {
    fBroker->call("OXMemory", "subscribeToEvent",
                  OXValue::array("VideoInput/ExpectedImage", "Ear", "onExpectedImage"));
  }
  ~ExpectedImageTest() override { fListener->react({}); }

  static std::string event(const std::string& pValue) {
    return "onExpectedImage VideoInput/ExpectedImage " + pValue;
  }

  boost::shared_ptr<Listener> fListener;
};

// Events come one at a time, so the next one that arrives shows that the calls before raised none.
TEST_F(ExpectedImageTest, EachChangeIsAnnouncedAndNothingElse) {
  // What the device answers at that moment is what the event says.
  std::string answered;
  fListener->react([&](const OXValue& pValue) {
    answered = show(fDevice->getExpectedImageParameters(pValue[0].toInt()));
  });
  const struct {
    const char* why;
    std::function<void()> act;
    const char* event;  ///< null: none
    const char* answer;
  } kSteps[] = {
      {"a subscriber that asks for what the camera runs at",
       [&] { subscribe("a", kQVGA, kYUV422, 5); }, nullptr, nullptr},
      {"a higher rate", [&] { fDevice->setFrameRate("a", 7); }, "[0, 320, 240, 7]",
       "[[320, 240], 7]"},
      {"images are pushed and taken",
       [&] {
         push();
         fDevice->getImageRemote("a");
       },
       nullptr, nullptr},
      {"a refused wish", [&] { outcome([&] { return fDevice->setResolution("a", 9); }); }, nullptr,
       nullptr},
      {"a larger size on the other camera",
       [&] { fDevice->subscribeCamera("b", 1, k4VGA, kYUV422, 5); }, "[1, 1280, 960, 7]",
       "[[1280, 960], 7]"},
      {"a smaller wish beside it", [&] { fDevice->subscribeCamera("c", 1, kQQVGA, kRGB, 5); },
       nullptr, nullptr},
      {"a parameter, to the value it has",
       [&] { fDevice->setParam(kCameraResolutionID, kQVGA, 0); }, nullptr, nullptr},
      {"a parameter", [&] { fDevice->setParam(kCameraResolutionID, kVGA, 0); }, "[0, 640, 480, 7]",
       "[[640, 480], 7]"},
      {"its default", [&] { fDevice->setCameraParameterToDefault("a", kCameraFrameRateID); },
       "[0, 640, 480, 5]", "[[640, 480], 5]"},
      {"the grabber stops and starts",
       [&] {
         fDevice->stopFrameGrabber(0);
         fDevice->startFrameGrabber(0);
       },
       nullptr, nullptr},
      {"the active camera: both are negotiated anew, with the wishes of all",
       [&] { fDevice->setActiveCamera(1); }, "[0, 1280, 960, 7]", "[[1280, 960], 7]"},
  };
  for (const auto& step : kSteps) {
    step.act();
    if (!step.event) continue;
    EXPECT_EQ(fListener->next(), event(step.event)) << step.why;
    EXPECT_EQ(answered, step.answer) << step.why;
  }
}

TEST_F(ExpectedImageTest, AReceiverThatTakesItsTimeKeepsNobodyWaiting) {
  std::promise<void> arrived, release;
  std::shared_future<void> released = release.get_future().share();
  std::once_flag first;
  fListener->react([&](const OXValue&) {
    std::call_once(first, [&] {
      arrived.set_value();
      released.wait_for(std::chrono::seconds(20));
    });
  });
  subscribe("a", kVGA);
  ASSERT_EQ(arrived.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);
  // On another thread than the receiver's: a lock held around the callback would stop it.
  const auto others = std::async(std::launch::async, [&] {
    push(0, 640, 480);
    const OXValue image = fDevice->getImageRemote("a");
    fDevice->setFrameRate("a", 15);
    subscribe("b", k4VGA);
    return image.getSize();
  });
  const bool done = others.wait_for(std::chrono::seconds(10)) == std::future_status::ready;
  release.set_value();
  ASSERT_TRUE(done) << "the device waited for the receiver";
  EXPECT_EQ(fListener->next(), event("[0, 640, 480, 30]"));
  EXPECT_EQ(fListener->next(), event("[0, 1280, 960, 15]")) << "only where it ended";
}

TEST_F(ExpectedImageTest, AReceiverMayChangeTheCamera) {
  fListener->react([&](const OXValue& pValue) {
    if (pValue[1].toInt() == 640) fDevice->setParam(kCameraResolutionID, k4VGA, 0);
  });
  fDevice->setParam(kCameraResolutionID, kVGA, 0);
  EXPECT_EQ(fListener->next(), event("[0, 640, 480, 5]"));
  EXPECT_EQ(fListener->next(), event("[0, 1280, 960, 5]"));
}

}  // namespace
}  // namespace OX::test
