// Subscribing and unsubscribing: ids, refusals, buffers, and images that are still held.
#include "camerarecord.h"
#include "support/device_fixture.h"

namespace OX::test {
namespace {

using testing::HasSubstr;

TEST_F(SimulatorTest, ANameHasEightInstancesAndFreedIdsAreReused) {
  for (const char* id : {"a", "a_2", "a_3", "a_4", "a_5", "a_6", "a_7", "a_8"})
    EXPECT_EQ(subscribe("a"), id);
  EXPECT_EQ(outcome([&] { return subscribe("a"); }),
            "OXError: Could not subscribe module: a\n"
            "8 instance of : a have already subscribe to the video.\n"
            "Please unsubscribe before subscribing again this module.");
  fDevice->unsubscribe("a_3");
  EXPECT_EQ(subscribe("a"), "a_3");
  EXPECT_THAT(fLog.records(4),
              HasSubstr("OXVideoDevice: subscribeVideoModule: Name already in use. "
                        "Id changed to \"a_3\""));
  fDevice->unsubscribeAllInstances("a");
  ASSERT_EQ(DeviceProbe(*fDevice).subscribers().size(), 1u) << "the eighth stays";
  EXPECT_EQ(subscribe("a_8"), "a_8_2") << "a suffix is part of a base name like any other";
}

TEST_F(SimulatorTest, FrameRatesAreBroughtIntoASubscribersRange) {
  const struct {
    int fps, resolution, stored;
    const char* warning;
    const char* why;
  } kCases[] = {
      {4, kQVGA, 5, "subscribeCamera: Fps must be superior to 5, force fps to 5\n", "too slow"},
      {-7, kQVGA, 5, "subscribeCamera: Fps must be superior to 5, force fps to 5\n", "negative"},
      {5, kQVGA, 5, "", "the slowest"},
      {7, kQVGA, 7, "", "rates between the camera's own stay"},
      {31, kQVGA, 31, "", "accepted here, unlike in setFrameRate"},
      {255, kQVGA, 255, "", "the most that the record's byte holds"},
      {256, kQVGA, 255,
       "subscribeCamera: Fps 256 is more than a subscriber can have, force fps to 255\n",
       "would be 0 in a byte"},
      {30, k4VGA, 5, "", "HD always starts at 5"},
  };
  for (const auto& test : kCases) {
    fLog.clear();
    const std::string id = subscribe("a", test.resolution, kYUV422, test.fps);
    EXPECT_EQ(fDevice->getFrameRate(id), test.stored) << test.why;
    EXPECT_EQ(fLog.records(3), test.warning) << test.why;
    ASSERT_TRUE(push());
    EXPECT_EQ(call("getImageRemote", id).getSize(), 12) << "every stored rate serves an image";
    fDevice->unsubscribe(id);
  }
  fLog.clear();
  subscribe("hd", k4VGA, kYUV422, 5);
  EXPECT_THAT(fLog.records(4), HasSubstr("FPS is decreased to 5 in HD. Use setFrameRate to "
                                         "increase it"))
      << "also when 5 was given";
}

TEST_F(SimulatorTest, RefusedSubscriptionsSayWhyAndLeaveNothing) {
  // The camera's current resolution is in the text as a raw character: 1.
  const struct {
    int camera, resolution, colorSpace;
    std::string text;
  } kCases[] = {
      {0, 4, 9, "4 is an invalid Resolution; current device max resolution is \x01"},
      {0, -1, 9, "-1 is an invalid Resolution; current device max resolution is \x01"},
      {0, 1, 17, "17is not a valid color space"},
      {0, 1, -1, "-1is not a valid color space"},
      {2, 1, 9, "2is not a valid camera index"},
      {7, 9, 9, "7is not a valid camera index"},
  };
  for (const auto& test : kCases)
    EXPECT_EQ(outcome([&] {
                return fDevice->subscribeCamera("x", test.camera, test.resolution, test.colorSpace,
                                                10);
              }),
              "OXError: Could not subscribe module: x\n" + test.text);
  EXPECT_EQ(fLog.count(2), 0) << "refusals of one stream are raised, not logged";
  EXPECT_EQ(DeviceProbe(*fDevice).pools(), "0/0 0/0");
}

TEST_F(SimulatorTest, RefusedListsSayWhyAndLeaveNothing) {
  const auto list = [](std::vector<int> pNumbers) { return OXValue(pNumbers); };
  const struct {
    OXValue cameras, resolutions, colorSpaces;
    const char* text;
    bool logged;
  } kCases[] = {
      {list({}), list({1}), list({9}),
       "Could not subscribe module: x\nSome input parameters are empty", true},
      {list({0, 1}), list({1}), list({9, 9}),
       "Could not subscribe module: x\nInput parameters have not the same size", true},
      {list({0, 0}), list({1, 1}), list({9, 9}),
       "Could not subscribe module: x\nInvalid input parameters, list contains 2 elements but only "
       "1 different elements (using several time the same camera is forbidden)",
       true},
      {list({-1}), list({1}), list({9}), "Unknown camera ID", false},
      {list({0, 1}), list({1, 4}), list({9, 9}),
       "Could not subscribe module: x1 4  is an invalid Resolution; ", true},
      {list({0, 1}), list({1, 1}), list({9, 17}),
       "Could not subscribe module: x9 17 is not a valid color space", true},
  };
  for (const auto& test : kCases) {
    fLog.clear();
    EXPECT_EQ(outcome([&] {
                return fDevice->subscribeCameras("x", test.cameras, test.resolutions,
                                                 test.colorSpaces, 10);
              }),
              std::string("OXError: ") + test.text);
    EXPECT_EQ(fLog.records(2),
              test.logged ? std::string("subscribeCameras: ") + test.text + "\n" : "");
  }
  EXPECT_EQ(DeviceProbe(*fDevice).pools(), "0/0 0/0");
}

TEST_F(SimulatorTest, OneStreamHasBuffersOnEveryCameraAndAListOnItsOwn) {
  const DeviceProbe probe(*fDevice);
  subscribe("mono");
  EXPECT_EQ(probe.pools(), "1/1 1/1");
  const OXValue id = call("subscribeCameras", "multi", std::vector<int>{1}, std::vector<int>{2},
                          std::vector<int>{11}, 10);
  EXPECT_EQ(probe.pools(), "1/1 2/2");
  EXPECT_EQ(probe.camera(1).fResolution, kVGA);
  EXPECT_EQ(probe.camera(0).fResolution, kQVGA) << "the other camera is left alone";
  fDevice->unsubscribe(id.toString());
  EXPECT_EQ(probe.pools(), "1/1 1/1");
  fDevice->unsubscribe("mono");
  EXPECT_EQ(probe.pools(), "0/0 0/0");
  EXPECT_EQ(outcome([&] {
              fDevice->unsubscribe("mono");
              return 0;
            }),
            "OXError: Cannot unsubscribe \"mono\": module unknown from OXVideoDevice.");
}

TEST_F(SimulatorTest, UnsubscribingWaitsForAHeldImageAndThenTakesItBack) {
  const std::string id = subscribe("a");
  push();
  ASSERT_TRUE(fDevice->getImageLocal(id));
  const int sleepsBefore = fClock.sleeps();
  fDevice->unsubscribe(id);
  EXPECT_EQ(fClock.sleeps() - sleepsBefore, 19999) << "ten seconds of 500 us";
  EXPECT_EQ(fLog.records(3),
            "unsubscribe: OXVideoDevice: Forced release of image by \"a\" because it did not "
            "release the image after one second.\n");
  EXPECT_EQ(DeviceProbe(*fDevice).pools(), "0/0 0/0");
}

TEST_F(SimulatorTest, UnsubscribingEndsAsSoonAsTheImageIsReleased) {
  const std::string id = subscribe("a");
  push();
  ASSERT_TRUE(fDevice->getImageLocal(id));
  int passes = 0;
  fClock.setSleepHook([&](unsigned int) {
    if (++passes == 3) fDevice->releaseImage(id);
  });
  fDevice->unsubscribe(id);
  fClock.setSleepHook({});
  EXPECT_EQ(passes, 3);
  EXPECT_EQ(fLog.count(3), 0);
}

// Each of these once looped for ever under the lock, or took a buffer that another subscriber
// needed.
TEST_F(SimulatorTest, UnsubscribingNeverWaitsUnderTheLock) {
  const DeviceProbe probe(*fDevice);
  {
    SCOPED_TRACE("several streams, images still held");
    const std::string m = call("subscribeCameras", "m", std::vector<int>{0}, std::vector<int>{1},
                               std::vector<int>{9}, 10)
                              .toString();
    push();
    EXPECT_EQ(show(fDevice->getImagesLocal(m)), "[true]");
    fDevice->unsubscribe(m);
    EXPECT_EQ(probe.pools(), "0/0 0/0");
  }
  {
    SCOPED_TRACE("the device's camera changed while an image of the old one was held");
    const std::string a = subscribe("a");
    push();
    ASSERT_TRUE(fDevice->getImageLocal(a));
    EXPECT_TRUE(fDevice->setActiveCamera(1));
    fDevice->unsubscribe(a);
    fDevice->setActiveCamera(0);
    EXPECT_EQ(probe.pools(), "0/0 0/0");
  }
  {
    SCOPED_TRACE("all instances at once, each with an image");
    for (int i = 0; i < 3; ++i) subscribe("b");
    push();
    for (const char* id : {"b", "b_2", "b_3"}) ASSERT_TRUE(fDevice->getImageLocal(id));
    const int sleepsBefore = fClock.sleeps();
    fDevice->unsubscribeAllInstances("b");
    EXPECT_LT(fClock.sleeps() - sleepsBefore, 100) << "images are taken back at once";
    EXPECT_EQ(probe.pools(), "0/0 0/0");
  }
  {
    SCOPED_TRACE("a stream that reformatted another one's buffer");
    const std::string b = subscribe("b", kVGA, kYUV422, 5);
    const std::string m = call("subscribeCameras", "m", std::vector<int>{0}, std::vector<int>{1},
                               std::vector<int>{9}, 5)
                              .toString();
    EXPECT_EQ(show(fDevice->setResolutions(m, std::vector<int>{kVGA})), "[1]");
    fDevice->unsubscribe(m);
    push();
    EXPECT_EQ(call("getImageRemote", b)[0].toInt(), 640) << "any free buffer takes any format";
    fDevice->unsubscribe(b);
    EXPECT_EQ(probe.pools(), "0/0 0/0");
  }
}

TEST_F(SimulatorTest, MoreSubscribersThanTheLimitFailToAllocate) {
  fDevice->setSubscriberLimit(2);
  subscribe("a");
  subscribe("b");
  EXPECT_EQ(outcome([&] { return subscribe("c"); }), "OXError: Memory allocation failed.");
  fDevice->unsubscribe("a");
  EXPECT_EQ(subscribe("c"), "c");
}

TEST_F(SimulatorTest, OnlyTheVideoMonitorIsUnsubscribedOnDisconnection) {
  subscribe("VideoMonitorGestura");
  subscribe("other");
  const auto disconnect = [&](const char* pClient) {
    fBroker->call("OXMemory", "raiseEvent", OXValue::array("ClientDisconnected", OXValue(pClient)));
    return DeviceProbe(*fDevice).subscribers().size();
  };
  EXPECT_EQ(disconnect("other"), 2u);
  EXPECT_EQ(disconnect("Gestura"), 1u);
  EXPECT_EQ(fLog.count(3), 0);
  EXPECT_EQ(disconnect("Gestura"), 1u);
  EXPECT_THAT(fLog.records(3), HasSubstr("onClientDisconnected: Cannot unsubscribe "
                                         "\"VideoMonitorGestura\""));
}

TEST(DeviceWithoutMemory, IsPublishedAllTheSame) {
  const CaptureLog log;
  const auto broker = OXBroker::create();
  OXModule::createModule<OXVisionSimulatorCam>(broker);
  EXPECT_EQ(log.records(2), "OXVisionVideoInput: OXVideoDevice: Could not connect to Memory.\n");
  EXPECT_EQ(broker->call("OXVideoDevice", "getCameraModel", OXValue::array(0)).toInt(), 2);
  broker->shutdown();
}

}  // namespace
}  // namespace OX::test
