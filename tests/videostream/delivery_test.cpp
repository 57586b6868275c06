// Who gets which frame, and when.
#include <malloc.h>

#include <algorithm>
#include <filesystem>
#include <thread>

#include <oxframework/oxvideo.h>
#include "fake_caller.h"
#include "oxvisionfilecam.h"
#include "oxvisionvideostatus/oxvideostatus.h"
#include "stream_service.h"
#include "streams/pace.h"

namespace OX::test {
namespace {

using std::chrono::milliseconds;

class Delivering : public StreamService {};

TEST_F(Delivering, EachFrameOnceTheNewestInTheOrderOfRequests) {
  start();
  StreamClient client = connect();
  push(1);
  const std::string id = client.open("mine");
  EXPECT_EQ(client.call("frameNumber", id), OXValue(0));
  EXPECT_EQ(shadeOf(client.call("next", id, 0)), -1) << "none from before it was opened";
  auto first = client.ask(id);
  ASSERT_TRUE(awaitWaiting(1));
  auto second = client.ask(id);
  ASSERT_TRUE(awaitWaiting(2));
  push(2);
  EXPECT_EQ(shadeOf(first.get()), 2);
  EXPECT_TRUE(awaitWaiting(1)) << "a frame of its own for each";
  push(3);
  EXPECT_EQ(shadeOf(second.get()), 3);
  const int number = client.call("frameNumber", id).toInt();
  EXPECT_EQ(shadeOf(client.call("next", id, 20)), -1) << "not twice";
  for (int shade = 4; shade <= 6; ++shade) push(shade);
  EXPECT_EQ(shadeOf(client.call("next", id, 20)), 6);
  EXPECT_EQ(client.call("frameNumber", id), OXValue(number + 3)) << "gaps can be seen";
  // What was given in another form was given too.
  push(7);
  EXPECT_TRUE(client.call("nextRaw", id, 20).isArray());
  EXPECT_FALSE(client.call("next", id, 0).isValid());
  const OXValue statistics = client.call("statistics", id);
  EXPECT_EQ(statistics[0], OXValue(4)) << "given";
  EXPECT_EQ(statistics[1], OXValue(2)) << "skipped";
  EXPECT_EQ(statistics[2], OXValue(3)) << "timed out";
  EXPECT_LE(statistics[3].toInt(), statistics[4].toInt());
  EXPECT_GE(statistics[5].toInt(), 0);
}

TEST_F(Delivering, AFrameIsTakenWhenItCanBeSent) {
  start();
  FakeCaller slow(fBroker);
  const std::string id = slow.ask("open", "slow", 0, kQQVGA, kRGB, 0)->value->toString();
  StreamClient quick = connect();
  const std::string other = quick.open("quick");
  slow.setRoom(false);
  const auto first = slow.ask("next", id, 20000);
  const auto second = slow.ask("next", id, 20000);
  auto answer = quick.ask(other);
  ASSERT_TRUE(awaitWaiting(3));
  push(1);
  EXPECT_EQ(shadeOf(answer.get()), 1) << "others are not held up";
  ASSERT_TRUE(eventually([&] { return slow.countWaitingForRoom() == 1; }));
  push(2);
  push(3);
  EXPECT_FALSE(first->isThere());
  EXPECT_EQ(slow.countWaitingForRoom(), 1u) << "one image a stream";
  slow.setRoom(true);
  ASSERT_TRUE(eventually([&] { return first->isThere(); }));
  EXPECT_EQ(shadeOf(*first->value), 3);
  EXPECT_FALSE(second->isThere());
  push(4);
  ASSERT_TRUE(eventually([&] { return second->isThere(); }));
  EXPECT_EQ(shadeOf(*second->value), 4);
  EXPECT_EQ(quick.call("close", id), OXValue()) << "nobody's stream is anybody's";
}

TEST_F(Delivering, SeveralCamerasAreAnsweredTogetherOrWhenTheTimeIsOver) {
  start();
  StreamClient client = connect();
  const std::string id = client.openBoth("both");
  const auto textOf = [](const OXValue& pReply) {
    if (!pReply.isValid()) return std::string("nil");
    std::string text;
    int begin = 0;
    for (int i = 0; i < 2; ++i) {
      if (!pReply[i].isValid()) {
        text += "nil ";
        continue;
      }
      const auto* const pixels = static_cast<const unsigned char*>(pReply[2].GetBinary());
      text += std::to_string(pReply[i][7].toInt()) + ":" + std::to_string(shadeOf(pixels + begin)) +
              " ";
      begin += pReply[i][0].toInt() * pReply[i][1].toInt() * pReply[i][2].toInt();
    }
    return text + (pReply[2].getSize() == begin ? "" : "and more");
  };
  auto answer = client.ask(id);
  ASSERT_TRUE(awaitWaiting(1));
  push(1, 0);
  push(2, 0);
  EXPECT_TRUE(awaitWaiting(1)) << "not before each has one";
  push(3, 1);
  EXPECT_EQ(textOf(answer.get()), "1:3 0:2 ");
  EXPECT_EQ(textOf(client.call("next", id, 20)), "nil");
  push(4, 1);
  EXPECT_EQ(textOf(client.call("next", id, 0)), "1:4 nil ");
  push(5, 0);
  EXPECT_EQ(textOf(client.call("next", id, 20)), "nil 0:5 ");
  EXPECT_EQ(client.statistic(id, 0), 4);
  EXPECT_EQ(client.statistic(id, 1), 1);
  EXPECT_EQ(client.call("frameNumber", id).getSize(), 2);
}

TEST_F(Delivering, TheSameBytesAsImagesThatAreAskedFor) {
  start();
  StreamClient client = connect();
  const auto device = [&](const char* pMethod, auto... pArguments) {
    return client.broker()->call("OXVideoDevice", pMethod, OXValue::array(pArguments...));
  };
  for (int resolution = kQQVGA; resolution <= k4VGA; ++resolution)
    for (const int colorSpace : {0, 6, 9, 10, 11, 12, 13, 14, 15, 16}) {
      SCOPED_TRACE(std::to_string(resolution) + " " + std::to_string(colorSpace));
      const std::string id = client.open("stream", 0, 0, resolution, colorSpace);
      const OXValue twin = device("subscribeCamera", "twin", 0, resolution, colorSpace, 30);
      for (const bool isRaw : {false, true}) {
        push(colorSpace + isRaw);
        const OXValue image = client.call(isRaw ? "nextRaw" : "next", id, 1000);
        const OXValue expected =
            device(isRaw ? "getDirectRawImageRemote" : "getImageRemote", twin.toString());
        ASSERT_EQ(image.getSize(), 12);
        EXPECT_TRUE(image == expected);
      }
      client.call("close", id);
      device("unsubscribe", twin.toString());
    }
}

// ---- time ----

TEST(PaceOfAStream, LetsFramesPassNoSoonerThanItsRate) {
  const struct {
    int fps;
    std::vector<int> frames;    ///< when they come, milliseconds
    std::vector<int> expected;  ///< when one is given
    int firstAge;               ///< of the first one, milliseconds
    const char* why;
  } kCases[] = {
      {0, {0, 1, 2}, {0, 1, 2}, 0, "each as it comes"},
      {10, {0, 30, 60, 90, 120, 150, 180, 195}, {0, 90, 195}, 0, "an eighth early at most"},
      {10, {0, 50, 180}, {0, 100, 200}, 0, "what came early is given when it is due"},
      {10, {0, 110, 195, 310, 395}, {0, 110, 195, 310, 395}, 0, "a camera that isn't regular"},
      {10, {0, 170, 210, 270}, {0, 170, 270}, 0, "a late one is not followed by one too soon"},
      {10, {0, 70, 170, 270}, {0, 70, 170, 270}, 30, "what was given late makes no other wait"},
      {10, {0, 30, 60, 150}, {0, 50, 150}, 80, "nor does it bring the next one at once"},
  };
  for (const auto& test : kCases) {
    Pace pace(test.fps);
    const Pace::Clock::time_point begin = Pace::Clock::now();
    std::vector<int> given;
    // Each millisecond: whether there is a frame that was not given, and it is its time.
    bool isThere = false;
    for (int now = 0; now <= 400; ++now) {
      const auto moment = begin + milliseconds(now);
      isThere |= std::count(test.frames.begin(), test.frames.end(), now) > 0;
      if (!isThere || pace.fit(moment) > moment) continue;
      // One that came before is given when it is due, as the timer of a delivery does.
      const bool isNew = std::count(test.frames.begin(), test.frames.end(), now) > 0;
      if (!isNew && pace.fit(moment - milliseconds(13)) > moment) continue;
      given.push_back(now);
      pace.given(moment, milliseconds(given.size() == 1 ? test.firstAge : 0), false);
      isThere = false;
    }
    EXPECT_EQ(given, test.expected) << test.why;
  }
}

// The first frame came out of rhythm, as while a camera takes up its rate, which is 30.
TEST(PaceOfAStream, DoesNotKeepFramesBackForEver) {
  const std::chrono::nanoseconds interval = std::chrono::nanoseconds(std::chrono::seconds(1)) / 30;
  for (const int fps : {30, 15, 10}) {
    Pace pace(fps);
    Pace::Clock::time_point newest = Pace::Clock::now();
    pace.given(newest, milliseconds(0), true);
    newest += milliseconds(2);
    std::chrono::nanoseconds age = interval;
    int sinceLast = 1;
    for (int given = 1; given < 60; newest += interval, ++sinceLast) {
      const Pace::Clock::time_point moment = pace.fit(newest);
      if (moment >= newest + interval) continue;  // a newer one comes before
      age = moment - newest;
      pace.given(moment, age, std::exchange(sinceLast, 0) == 1);
      ++given;
    }
    EXPECT_LT(age, milliseconds(1)) << fps;
  }
}

TEST_F(Delivering, ARateSkipsAndGivesTheNewestWhenItIsDue) {
  start();
  StreamClient client = connect();
  const std::string id = client.open("slow", 4);
  push(1);
  EXPECT_EQ(shadeOf(client.call("next", id, 1000)), 1);
  const auto begin = std::chrono::steady_clock::now();
  push(2);
  EXPECT_EQ(shadeOf(client.call("next", id, 0)), -1) << "too soon";
  auto answer = client.ask(id);
  ASSERT_TRUE(awaitWaiting(1));
  push(3);
  EXPECT_EQ(shadeOf(answer.get()), 3);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, milliseconds(200));
  EXPECT_EQ(client.statistic(id, 1), 1);
}

TEST_F(Delivering, RefusesWhatIsWrong) {
  start({.settings = {{"stream.perConnection", 2}}});
  StreamClient client = connect();
  StreamClient other = connect();
  const std::string id = client.open("mine");
  const std::string kNone =
      "There is no stream \"none\": it was not opened, was closed, or ended "
      "with its subscriber";
  const auto noWait = [](int pTimeout) {
    return "A wait of " + std::to_string(pTimeout) + " ms: 0 to 60000 are possible";
  };
  const struct {
    StreamClient& client;
    const char* method;
    OXValue arguments;
    std::string refusal;
  } kCases[] = {
      {client, "next", OXValue::array("none", 0), kNone},
      {client, "close", OXValue::array("none"), kNone},
      {client, "statistics", OXValue::array("none"), kNone},
      {client, "frameNumber", OXValue::array("none"), kNone},
      {client, "release", OXValue::array("none", 0, 1), kNone},
      {other, "next", OXValue::array(id, 0), "Stream \"mine\" belongs to another connection"},
      {other, "close", OXValue::array(id), "Stream \"mine\" belongs to another connection"},
      {client, "next", OXValue::array(id, -1), noWait(-1)},
      {client, "next", OXValue::array(id, 60001), noWait(60001)},
      {client, "next", OXValue::array(id, 0), "none"},
      {client, "nextShared", OXValue::array(id, 0),
       "Stream \"mine\" has no shared memory: open it with openShared"},
      {client, "release", OXValue::array(id, 0, 1),
       "Slot 0 of stream \"mine\" is not held in generation 1"},
      {client, "open", OXValue::array("a", 0, 1, 11, -1),
       "-1 frames a second: a stream has 1 to 255, or 0 for each frame as it comes"},
      {client, "open", OXValue::array("a", 0, 1, 11, 256),
       "256 frames a second: a stream has 1 to 255, or 0 for each frame as it comes"},
      {client, "open", OXValue::array("a", 7, 1, 11, 0),
       failureOf([&] { fDevice->subscribeCamera("a", 7, 1, 11, 30); })},
      {client, "open", OXValue::array("a", 0, 1, 99, 0),
       failureOf([&] { fDevice->subscribeCamera("a", 0, 1, 99, 30); })},
      {client, "openStreams",
       OXValue::array("a", OXValue::array(0, 1), OXValue::array(1), OXValue::array(11, 11), 0),
       "2 cameras, 1 resolutions and 2 colour spaces: one of each is needed for a camera"},
      {client, "openStreams",
       OXValue::array("a", OXValue::array(0, 0), OXValue::array(1, 1), OXValue::array(11, 11), 0),
       failureOf([&] {
         fDevice->subscribeCameras("a", OXValue::array(0, 0), OXValue::array(1, 1),
                                   OXValue::array(11, 11), 30);
       })},
      {client, "open", OXValue::array("mine", 0, 1, 11, 255), "none"},
      {client, "open", OXValue::array("mine", 0, 1, 11, 0),
       "This connection has 2 streams already, which is the limit: close one first"},
      {client, "close", OXValue::array("mine_2"), "none"},
      {client, "open", OXValue::array("mine", 0, k4VGA, 11, 60), "none"},
      {other, "open", OXValue::array("theirs", 0, 1, 11, 1), "none"},
  };
  for (const auto& test : kCases)
    EXPECT_EQ(failureOf([&] {
                test.client.broker()->call("OXVideoStream", test.method, test.arguments);
              }),
              test.refusal)
        << test.method;
  EXPECT_EQ(fDevice->getFrameRate("mine_2"), 60) << "not 5, though it is k4VGA";
}

// ---- ends ----

TEST_F(Delivering, AStreamEndsInEveryWayWithAnAnswer) {
  start();
  StreamClient client = connect();
  auto closed = client.ask(client.open("closed"));
  auto unsubscribed = client.ask(client.open("unsubscribed"));
  auto leaving = std::make_unique<StreamClient>(fTcp);
  auto lost = leaving->ask(leaving->open("lost"));
  ASSERT_TRUE(awaitWaiting(3));
  client.call("close", "closed");
  EXPECT_FALSE(closed.get().isValid());
  client.broker()->call("OXVideoDevice", "unsubscribe", OXValue::array("unsubscribed"));
  EXPECT_EQ(failureOf([&] { unsubscribed.get(); }),
            "Stream \"unsubscribed\" has ended: its subscriber was unsubscribed, or the device has "
            "ended");
  EXPECT_NE(failureOf([&] { client.call("next", "unsubscribed", 0); }), "none");
  leaving->broker()->close();
  EXPECT_THROW(lost.get(), OXError);
  EXPECT_TRUE(eventually([&] { return StreamProbe(*fStreams).countStreams() == 0; }));
  EXPECT_TRUE(eventually([&] { return fBroker->getOwners("OXVideoStream").empty(); }));
  // The names are free again, and a setter of somebody else leaves the format alone.
  const std::string id = client.open("closed");
  ASSERT_EQ(id, "closed");
  client.broker()->call("OXVideoDevice", "setResolution", OXValue::array(id, kVGA));
  push(9);
  EXPECT_EQ(client.call("next", id, 1000)[0], OXValue(160));
}

TEST_F(Delivering, TheListOfSubscribersSaysWhoseAStreamIs) {
  start();
  OXModule::createModule<OXVideoStatus>(fBroker);
  StreamClient client = connect();
  client.broker()->call("OXBroker", "setClientName", OXValue::array("robot"));
  client.open("mine");
  client.broker()->call("OXBroker", "keepSubscriptions", OXValue::array(true));
  client.open("nobodys");
  const OXValue subscribers = fBroker->call("OXVideoStatus", "getSubscribers", OXValue::Array());
  ASSERT_EQ(subscribers.getSize(), 2);
  EXPECT_EQ(subscribers[0][0], OXValue("mine"));
  EXPECT_EQ(subscribers[0][1], OXValue("robot"));
  EXPECT_EQ(subscribers[1][1], OXValue(""));
}

TEST_F(Delivering, TheEndOfTheServiceAnswersThoseWhoWait) {
  for (const bool deviceFirst : {false, true}) {
    start();
    StreamClient client = connect();
    const std::string id = client.open("mine");
    auto answer = client.ask(id);
    ASSERT_TRUE(awaitWaiting(1));
    fStreams.reset();
    if (deviceFirst) {
      fDevice.reset();
      fBroker->unregisterModule("OXVideoDevice");
    }
    fBroker->unregisterModule("OXVideoStream");
    EXPECT_EQ(failureOf([&] { answer.get(); }), "The service of streams has ended");
    TearDown();
  }
}

int countThreads() {
  int count = 0;
  for ([[maybe_unused]] const auto& thread : std::filesystem::directory_iterator("/proc/self/task"))
    ++count;
  return count;
}

std::size_t bytesInUse() {
  const struct mallinfo2 use = mallinfo2();
  return use.uordblks + use.hblkhd;
}

TEST_F(Delivering, AThousandRequestsWaitWithoutThreads) {
  start();
  FakeCaller caller(fBroker);
  const std::string id = caller.ask("open", "mine", 0, kQQVGA, kRGB, 0)->value->toString();
  const auto first = caller.ask("next", id, 60000);
  const int threads = countThreads();
  const std::size_t bytes = bytesInUse();
  std::vector<boost::shared_ptr<FakeAnswer>> answers;
  for (int i = 0; i < 1000; ++i) answers.push_back(caller.ask("next", id, 60000));
  EXPECT_EQ(countThreads(), threads);
  EXPECT_LT(bytesInUse(), bytes + 2 * 1024 * 1024);
  std::clock_t used = std::clock();
  std::this_thread::sleep_for(milliseconds(300));  // the subject: what it costs to wait
  used = std::clock() - used;
  EXPECT_LT(used, CLOCKS_PER_SEC / 100);
  caller.ask("close", id);
  for (const auto& answer : answers) EXPECT_TRUE(answer->isThere() && !answer->value->isValid());
}

TEST_F(Delivering, CallsOfThisProcessThatTakeAllThreadsEndWithTheirTime) {
  start({.maxThreads = 2});
  const auto call = [&](const char* pMethod, auto... pArguments) {
    return fBroker->call("OXVideoStream", pMethod, OXValue::array(pArguments...));
  };
  const std::string id = call("open", "local", 0, kQQVGA, kRGB, 0).toString();
  std::atomic<int> ended{0};
  for (int i = 0; i < 2; ++i)
    ASSERT_TRUE(fBroker->post([&] {
      call("next", id, 200);
      ++ended;
    }));
  ASSERT_TRUE(awaitWaiting(2));
  push(1);  // and no thread is left to bring it
  EXPECT_TRUE(eventually([&] { return ended == 2; }, std::chrono::seconds(5)));
}

// ---- a replay ----

class Replaying : public testing::Test {
 protected:
  std::string record(int pImages, int pStepMs) {
    const std::string path = testing::TempDir() + "ox_replay_" + std::to_string(::getpid());
    OXVideo video;
    EXPECT_TRUE(video.recordVideo(path, 0, {{160, 120, kYUV422, 8}}));
    for (int i = 0; i < pImages; ++i) {
      const std::vector<unsigned char> pixels(160 * 120 * 2, static_cast<unsigned char>(i * 10));
      EXPECT_TRUE(video.write(pixels.data(), static_cast<int>(pixels.size()),
                              1'000'000 + i * pStepMs * 1000, 0, 0, 0, 0, 0));
    }
    video.closeVideo();
    return path;
  }
};

TEST_F(Replaying, EachImageOnceAndNoneAfterTheEnd) {
  const CaptureLog log;
  const auto broker = OXBroker::create();
  OXModule::createModule<OXMemory>(broker);
  const auto device = OXModule::createModule<OXVisionFileCam>(broker);
  OXModule::createModule<OXStreamService>(broker);
  device->setVideo(record(8, 40), OXValue(), false, 1, 0);
  const auto call = [&](const char* pMethod, auto... pArguments) {
    return broker->call("OXVideoStream", pMethod, OXValue::array(pArguments...));
  };
  const std::string id = call("open", "film", 0, kQQVGA, kYUV422, 0).toString();
  std::vector<int> shades;
  for (OXValue image = call("next", id, 500); image.isValid(); image = call("next", id, 500))
    shades.push_back(shadeOf(image));
  // On a busy machine some may be passed over, and are counted.
  ASSERT_FALSE(shades.empty());
  EXPECT_EQ(shades.back(), 7);
  EXPECT_TRUE(std::is_sorted(shades.begin(), shades.end(), std::less_equal<>()));
  const OXValue statistics = call("statistics", id);
  EXPECT_EQ(statistics[0], OXValue(static_cast<int>(shades.size())));
  EXPECT_EQ(statistics[0].toInt() + statistics[1].toInt(), 8);
  broker->shutdown();
}

}  // namespace
}  // namespace OX::test
