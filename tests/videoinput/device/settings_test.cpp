// What a subscriber may change of its wishes, and how the camera follows, from call to effect.
#include "camerarecord.h"
#include "subscriberrecord.h"
#include "support/device_fixture.h"

namespace OX::test {
namespace {

using testing::HasSubstr;

/// One of the three settings that wait for a held image.
struct WaitingSetting {
  const char* name;
  int value;
  std::string cancelled;
};

const std::vector<WaitingSetting> kWaiting{
    {"setResolution", kVGA,
     "setResolution: : setResolution(a), video module didn't release the image for 5s, so cancel "
     "the modification!\n"},
    {"setColorSpace", kRGB,
     "setColorSpace: : setColorSpace(a), video module didn't release the image for 5s, so cancel "
     "the modification!\n"},
    {"setFrameRate", 15,
     "setFrameRate: : setFrameRate(a), video module didn't release the image for 5s, so cancel "
     "the modification!\n\n"}};

std::string formatOf(OXVisionVideoInput& pDevice, const std::string& pId) {
  return std::to_string(pDevice.getResolution(pId)) + " " +
         std::to_string(pDevice.getColorSpace(pId)) + " " +
         std::to_string(pDevice.getFrameRate(pId));
}

TEST_F(SimulatorTest, AChangeWaitsForTheHeldImage) {
  constexpr int kOneSecond = 20'000;  // of 50 us
  for (const WaitingSetting& setting : kWaiting) {
    const std::string id = subscribe("a");
    push();
    ASSERT_TRUE(fDevice->getImageLocal(id));
    const int before = fClock.sleeps();
    fClock.setSleepHook([&](unsigned int pDurationUs) {
      EXPECT_EQ(pDurationUs, 50u);
      if (fClock.sleeps() != before + kOneSecond) return;
      fClock.setSleepHook({});  // later sleeps may have other durations
      fDevice->releaseImage(id);
    });
    EXPECT_EQ(show(call(setting.name, id, setting.value)), "true") << setting.name;
    EXPECT_GE(fClock.sleeps(), before + kOneSecond) << setting.name;
    EXPECT_LE(fClock.sleeps(), before + kOneSecond + 3) << setting.name << ": no needless pass";
    fDevice->unsubscribe(id);
  }
}

TEST_F(SimulatorTest, AChangeIsCancelledWhenTheImageStaysHeld) {
  const std::string id = subscribe("a");
  for (const WaitingSetting& setting : kWaiting) {
    push();
    ASSERT_TRUE(fDevice->getImageLocal(id));
    const std::string format = formatOf(*fDevice, id);
    const int before = fClock.sleeps();
    fLog.clear();
    EXPECT_EQ(show(call(setting.name, id, setting.value)), "false") << setting.name;
    EXPECT_EQ(fClock.sleeps(), before + 99'999) << "100000 passes, with a sleep between any two";
    EXPECT_EQ(fLog.records(2), setting.cancelled);
    EXPECT_EQ(formatOf(*fDevice, id), format) << setting.name << " changes nothing";
    fDevice->releaseImage(id);
  }
}

TEST_F(SimulatorTest, AnInvalidValueIsRefusedEvenWhileAnImageIsHeld) {
  const std::string id = subscribe("a");
  push();
  ASSERT_TRUE(fDevice->getImageLocal(id));
  const int before = fClock.sleeps();
  EXPECT_EQ(outcome([&] { return fDevice->setResolution(id, 4); }),
            "OXError: : setResolution(): invalid resolution");
  EXPECT_EQ(fLog.records(2), "setResolution: : setResolution(): invalid resolution\n");
  EXPECT_EQ(fClock.sleeps(), before);
}

TEST_F(SimulatorTest, TheSameValueIsLoggedAndChangesNothing) {
  const std::string id = subscribe("a");
  ASSERT_TRUE(fDevice->recordVideo(id, testing::TempDir() + "ox_settings.oxv", 5, 1));
  for (const auto& [name, value, text] : std::vector<std::tuple<const char*, int, const char*>>{
           {"setResolution", kQVGA, "Changed resolution for subscriber \"a\" from 1 to 1"},
           {"setColorSpace", kYUV422, "Changed color space for subscriber \"a\" from 9 to 9"},
           {"setFrameRate", 30, "Changed framerate for subscriber \"a\" from 30 to 30"}}) {
    fLog.clear();
    EXPECT_EQ(show(call(name, id, value)), "true");
    EXPECT_EQ(fLog.records(4), std::string(name) + ": OXVideoDevice: " + text + "\n");
  }
  const auto& subscriber = *DeviceProbe(*fDevice).subscribers().at(id);
  EXPECT_TRUE(subscriber.fIsRecording) << "a change to the same value ends no recording";
  fDevice->setFrameRate(id, 10);
  EXPECT_TRUE(subscriber.fIsRecording) << "nor does another frame rate";
  fDevice->setColorSpace(id, kRGB);
  EXPECT_FALSE(subscriber.fIsRecording) << "another format does";
}

TEST_F(SimulatorTest, AChangeReformatsOneBufferOfTheOldFormat) {
  const std::string id = subscribe("a");
  push();
  fDevice->setResolution(id, kVGA);
  fDevice->setColorSpace(id, kRGB);
  const DeviceProbe probe(*fDevice);
  const OXVisionBuffer& buffer = *probe.camera(0).fImageBuffers.at(0);
  EXPECT_TRUE(buffer.hasFormat(640, 480, kRGB));
  EXPECT_EQ(buffer.fImage->fTimeStamp, 0) << "the oldest of all";
  EXPECT_EQ(probe.pools(), "1/1 1/1");
  push();
  const OXValue reply = fDevice->getImageRemote(id);
  ASSERT_EQ(reply.getSize(), 12);
  EXPECT_EQ(reply[6].getSize(), 640 * 480 * 3);
}

// A subscriber with several streams has taken the only buffer of the old format.
TEST_F(SimulatorTest, WithoutAFreeBufferTheWishIsStoredAndTheCameraIsLeftAlone) {
  const std::string b = subscribe("b", kVGA);
  call("subscribeCameras", "m", std::vector<int>{0}, std::vector<int>{kQVGA},
       std::vector<int>{kYUV422}, 30);
  ASSERT_EQ(show(call("setResolutions", "m", std::vector<int>{kVGA})), "[1]");
  push();
  ASSERT_EQ(show(fDevice->getImagesLocal("m")), "[true]");
  EXPECT_TRUE(fDevice->setResolution(b, k4VGA));
  EXPECT_EQ(fDevice->getResolution(b), k4VGA);
  EXPECT_EQ(fDevice->getResolution(0), kVGA);
}

TEST_F(SimulatorTest, TheCameraFollowsTheHighestWishAndFallsBack) {
  const auto camera = [&] {
    return std::to_string(fDevice->getResolution(0)) + " at " +
           std::to_string(fDevice->getFrameRate(0));
  };
  const std::string fast = subscribe("fast", kVGA, kYUV422, 30);
  const std::string slow = subscribe("slow", kQVGA, kYUV422, 5);
  EXPECT_EQ(camera(), "2 at 30");
  fDevice->setFrameRate(slow, 10);
  fDevice->setResolution(slow, kQQVGA);
  EXPECT_EQ(camera(), "2 at 30") << "below the highest wish nothing changes";
  fDevice->setFrameRate(fast, 5);
  EXPECT_EQ(camera(), "2 at 10") << "the next highest";
  fDevice->setResolution(fast, kQQVGA);
  EXPECT_EQ(camera(), "1 at 10") << "never below the device's default";
  fDevice->setResolution(slow, k4VGA);
  fDevice->setFrameRate(slow, 3);
  EXPECT_EQ(camera(), "3 at 5") << "and never below 5 a second, whatever rate is accepted";
  EXPECT_EQ(fDevice->getFrameRate(slow), 3);
}

TEST_F(SimulatorTest, ASubscriberMovesToAnotherCameraWithoutWaiting) {
  const std::string id = fDevice->subscribeCamera("a", 0, kVGA, kYUV422, 30);
  push(0);
  ASSERT_TRUE(fDevice->getImageLocal(id));
  const int before = fClock.sleeps();
  EXPECT_FALSE(fDevice->setActiveCamera(id, 1));
  EXPECT_EQ(fClock.sleeps(), before);
  EXPECT_EQ(fLog.records(2),
            "setActiveCamera: setActiveCamera(): Buffer must release before changing camera\n");
  fDevice->releaseImage(id);
  EXPECT_TRUE(fDevice->setActiveCamera(id, 1));
  EXPECT_EQ(fDevice->getActiveCamera(id), 1);
  EXPECT_EQ(fDevice->getResolution(1), kVGA) << "there its wish takes effect at once";
  EXPECT_EQ(DeviceProbe(*fDevice).pools(), "1/1 1/1") << "it has buffers on every camera already";
}

TEST_F(SimulatorTest, TheDevicesActiveCameraMovesOnlyItsFollowers) {
  const std::string follower = subscribe("follower");
  const std::string own = fDevice->subscribeCamera("own", 0, kQVGA, kYUV422, 30);
  const std::string deprecation =
      "setActiveCamera: setActiveCamera(pCamID) is deprecated, use "
      "setActiveCamera(subscriber_name, pCamID) in order to change camera only for the specified "
      "subscriber.\n\n";
  fLog.clear();
  EXPECT_TRUE(fDevice->setActiveCamera(1));
  EXPECT_THAT(fLog.records(4), HasSubstr(deprecation));
  EXPECT_EQ(fDevice->getActiveCamera(follower), 1);
  EXPECT_EQ(fDevice->getActiveCamera(own), 0);
  fLog.clear();
  EXPECT_EQ(outcome([&] { return fDevice->setActiveCamera(2); }),
            "OXError: Invalid camera parameter input reference.");
  EXPECT_EQ(fLog.records(4), deprecation) << "at each call, and nothing else";
  EXPECT_EQ(fLog.count(2), 0);
  EXPECT_EQ(fDevice->getActiveCamera(), 1);
}

TEST_F(SimulatorTest, AParameterLastsUntilTheNextNegotiation) {
  const std::string id = subscribe("a", kQVGA, kYUV422, 10);
  EXPECT_TRUE(fDevice->setCameraParameter(id, kCameraFrameRateID, 30));
  EXPECT_EQ(fDevice->getCameraParameter(id, kCameraFrameRateID), 30);
  EXPECT_EQ(fDevice->getFrameRate(id), 10) << "no subscriber's wish has changed";
  EXPECT_TRUE(fDevice->setActiveCamera(id, 0));
  EXPECT_EQ(fDevice->getCameraParameter(id, kCameraFrameRateID), 10);
  EXPECT_TRUE(fDevice->setCameraParameter(id, kCameraResolutionID, kVGA));
  EXPECT_TRUE(fDevice->setCameraParameterToDefault(id, kCameraResolutionID));
  EXPECT_EQ(fDevice->getResolution(0), kQVGA);
}

}  // namespace
}  // namespace OX::test
