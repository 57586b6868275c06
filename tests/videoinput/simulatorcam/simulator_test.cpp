// The simulated cameras: what may be pushed, what is lent, parameters, and a device whose active
// camera does not exist.
#include "camerarecord.h"
#include "support/device_fixture.h"

namespace OX::test {
namespace {

using testing::HasSubstr;

OXValue binary(int pSize) {
  OXValue value;
  value.SetBinary(std::vector<char>(static_cast<std::size_t>(pSize)).data(), pSize);
  return value;
}

TEST_F(SimulatorTest, APushMustHaveOneOfTheFourSizesAndExactlyItsBytes) {
  const auto text = [](int pSize) {
    return OXValue(std::string(static_cast<std::size_t>(pSize), 'x'));
  };
  const struct {
    int camera, width, height;
    OXValue image;
    bool taken;
    const char* record;
    const char* why;
  } kCases[] = {
      {0, 160, 120, binary(57600), true, "", "kQQVGA"},
      {0, 1280, 960, binary(3686400), true, "", "k4VGA fills the storage exactly"},
      {0, 320, 240, binary(230399), false, "SIMCAM_ERROR_WRONGDATASIZE", "a byte short"},
      {0, 640, 240, binary(1), false, "Unknown resolution from simulator!", "no such pair"},
      {0, 0, 0, binary(0), false, "Unknown resolution from simulator!", "nothing"},
      {0, 320, 240, OXValue(5), false, "xPutImage: Buffer is not a binary nor a string", "an int"},
      {2, 320, 240, binary(230400), false, "putImage(2) : invalid Camera index",
       "one past the last"},
      {-1, 320, 240, binary(230400), false, "putImage(-1) : invalid Camera index", "negative"},
      {0, 320, 240, text(3686401), false, "SIMCAM_ERROR_WRONGDATASIZE", "more than there is room"},
      // Strings are measured only against the longest so far, in this process.
      {0, 320, 240, text(1000), true, "Image updated", "any length"},
      {1, 320, 240, text(999), false, "", "shorter, also on another camera: dropped silently"},
      {1, 320, 240, text(1000), true, "Image updated", "as long"},
  };
  for (const auto& test : kCases) {
    fLog.clear();
    EXPECT_EQ(fDevice->putImage(test.camera, test.width, test.height, test.image), test.taken)
        << test.why;
    const auto records = fLog.all();
    EXPECT_EQ(records.empty() ? "" : records.back().message, test.record) << test.why;
  }
}

TEST_F(SimulatorTest, TheDeclaredSizeStaysUntilTheNextOne) {
  EXPECT_TRUE(fDevice->putImage(binary(57600))) << "kQQVGA before any declaration";
  EXPECT_TRUE(fDevice->setSimCamInputSize(640, 480));
  EXPECT_FALSE(fDevice->putImage(binary(57600)));
  EXPECT_TRUE(fDevice->putImage(binary(921600)));
  EXPECT_FALSE(fDevice->setSimCamInputSize(640, 240));
  EXPECT_TRUE(fDevice->putImage(binary(921600))) << "a refused declaration changes nothing";
  EXPECT_EQ(show(fDevice->getExpectedImageParameters()), "[[320, 240], 5]");
}

// The first frame that a simulator can push, without declaring its size, to a camera of a larger
// one.
TEST_F(SimulatorTest, AFirstFrameOfUndeclaredSizeIsEnlargedWithinItsStorage) {
  const std::string id = subscribe("a", kQVGA, kYUV422, 5);
  ASSERT_TRUE(fDevice->putImage(binary(57600)));
  const OXValue raw = fDevice->getDirectRawImageRemote(id);
  ASSERT_EQ(raw.getSize(), 12);
  EXPECT_EQ(raw[0].toInt(), 320);
  const auto* const pixels = static_cast<const unsigned char*>(raw[6].GetBinary());
  EXPECT_EQ(std::vector<int>(pixels, pixels + 4), (std::vector<int>{16, 128, 16, 128}));
}

TEST_F(SimulatorTest, FourFramesMayBeLentAtOnce) {
  std::vector<std::string> ids;
  for (int i = 0; i < 5; ++i) ids.push_back(subscribe("a"));
  for (int i = 0; i < 4; ++i) {
    fClock.advanceUs(1000);
    push();
    ASSERT_TRUE(fDevice->getDirectRawImageLocal(ids[static_cast<std::size_t>(i)]));
  }
  fClock.advanceUs(1000);
  push();
  EXPECT_EQ(fDevice->getDirectRawImageLocal(ids[4]), nullptr);
  EXPECT_EQ(fLog.records(2),
            "xGetDirectRawImage: xGetDirectRawImage(a_5): no available raw buffer for writing "
            "image\n");
  fDevice->releaseDirectRawImage(ids[1]);
  EXPECT_TRUE(fDevice->getDirectRawImageLocal(ids[4]));
  EXPECT_EQ(fDevice->getDirectRawImageLocal(ids[4]), nullptr) << "one image at a time";
  EXPECT_THAT(fLog.records(2), HasSubstr("OXVideoDevice: Previous image for subscriber \"a_5\" was "
                                         " not released. Returning null image."));
}

TEST_F(SimulatorTest, OneConversionServesAllSubscribers) {
  const std::string a = subscribe("a");
  const std::string b = subscribe("b");
  push();
  const OXImage* const first = fDevice->getDirectRawImageLocal(a);
  const OXImage* const second = fDevice->getDirectRawImageLocal(b);
  ASSERT_TRUE(first && second);
  EXPECT_EQ(first->fData, second->fData);
  EXPECT_EQ(DeviceProbe(*fDevice).store(0).fDriverBuffers[0]->fReadLockCount, 2);
  fDevice->releaseDirectRawImage(a);
  fDevice->releaseDirectRawImage(b);
  EXPECT_EQ(DeviceProbe(*fDevice).lentFrames(0), 0);
}

TEST_F(SimulatorTest, TheCameraFollowsTheHighestWish) {
  const auto camera = [&](int pIndex) {
    return std::to_string(fDevice->getResolution(pIndex)) + "@" +
           std::to_string(fDevice->getFrameRate(pIndex));
  };
  EXPECT_EQ(camera(0), "1@5");
  const std::string low = fDevice->subscribeCamera("low", 1, kQQVGA, kYUV422, 5);
  EXPECT_EQ(camera(1), "1@5") << "never below the default";
  const std::string fast = subscribe("fast", kVGA, kYUV422, 7);
  EXPECT_EQ(camera(0), "2@7") << "the exact maximum, also between the camera's own rates";
  EXPECT_EQ(camera(1), "1@5") << "untouched until something updates it";
  EXPECT_TRUE(fDevice->setFrameRate(low, 6));
  EXPECT_EQ(camera(1), "2@7") << "every subscriber counts for every camera";
  EXPECT_TRUE(fDevice->setResolution(fast, kQVGA));
  EXPECT_EQ(camera(0), "1@7") << "the one at the top came down";
  fDevice->unsubscribe(fast);
  EXPECT_EQ(camera(0), "1@7") << "a subscriber still counts while it unsubscribes";
}

TEST_F(SimulatorTest, ParametersAreCheckedWhereTheyAreUsed) {
  const auto set = [&](int pParam, int pValue, int pCamera) {
    return outcome([&] {
      fDevice->setParam(pParam, pValue, pCamera);
      return fDevice->getParam(pParam, pCamera);
    });
  };
  const std::string noCamera = "OXError: Invalid camera parameter input reference.";
  const struct {
    int param, value, camera;
    std::string outcome;
    const char* why;
  } kCases[] = {
      {14, 2, 0, "2", "resolution"},
      {14, 4, 0, "2", "refused, logged, not raised"},
      {15, 7, 1, "10", "to the next of the camera's rates"},
      {15, 12, 1, "15", "likewise"},
      {15, 16, 1, "30", "likewise"},
      {15, -3, 1, "5", "likewise"},
      {16, 1, 0, "OXError: Invalid parameter input reference.", "read only"},
      {20, 9, 0, "OXError: Invalid parameter input reference.", "read only"},
      {17, 1, 50, "OXError: Invalid parameter input reference.", "the identifier comes first"},
      {14, 1, 50, noCamera, "no such camera"},
      {15, 9, -3, noCamera, "no such camera"},
      {18, 3, 0, noCamera, "two past the last camera"},
  };
  for (const auto& test : kCases)
    EXPECT_EQ(set(test.param, test.value, test.camera), test.outcome) << test.why;
  EXPECT_EQ(fDevice->getParam(16, 0), 4);
  EXPECT_EQ(outcome([&] { return fDevice->getParam(17, 0); }), "OXError: Bad input parameter ID");
  EXPECT_EQ(outcome([&] { return fDevice->getParam(14, 2); }), noCamera);
  EXPECT_TRUE(DeviceProbe(*fDevice).camera(0).fGrabberState == kGrabberRunning)
      << "a change of resolution starts a stopped camera";
}

// The index one past the last camera can be selected. Nothing may break, and it can be undone.
TEST_F(SimulatorTest, ADeviceParkedPastItsLastCameraRefusesAndRecovers) {
  const std::string follows = subscribe("follows");
  push();
  ASSERT_TRUE(fDevice->setCameraParameter(follows, kCameraSelectID, 2));
  EXPECT_EQ(fDevice->getActiveCamera(), 2);
  const struct {
    const char* method;
    OXValue arguments;
    const char* outcome;
  } kCases[] = {
      {"getVIMResolution", OXValue::array(), "OXError: getResolution(2) : invalid Camera index"},
      {"getCameraModelID", OXValue::array(), "OXError: getCameraModelID(2) : invalid Camera index"},
      {"getImageRemote", OXValue::array(follows),
       "OXError: getImageRemote(follows) : invalid Camera index"},
      {"getDirectRawImageRemote", OXValue::array(follows),
       "OXError: getDirectRawImageRemote(follows) : invalid Camera index"},
      {"setResolution", OXValue::array(follows, 2),
       "OXError: setResolution(follows) : invalid Camera index"},
      {"setSimCamInputSize", OXValue::array(320, 240),
       "OXError: setSimCamInputSize(2) : invalid Camera index"},
      {"putImage", OXValue::array(binary(57600)), "false"},
      {"releaseImage", OXValue::array(follows), "true"},
      {"getExpectedImageParameters", OXValue::array(),
       "OXError: getExpectedImageParameters(2) : invalid Camera index"},
      {"subscribe", OXValue::array("late", 1, 9, 5),
       "OXError: Could not subscribe module: late\n2is not a valid camera index"},
      {"setParam", OXValue::array(14, 1), "OXError: Invalid camera parameter input reference."},
      {"getAngPosFromImgPos", OXValue::array(std::vector<float>{0.5f, 0.5f}),
       "OXError: getAngularPositionFromImagePosition(2,...) : invalid Camera index"},
  };
  for (const auto& test : kCases)
    EXPECT_EQ(outcome([&] { return fBroker->call("OXVideoDevice", test.method, test.arguments); }),
              test.outcome)
        << test.method;
  fDevice->unsubscribe(follows);
  EXPECT_EQ(DeviceProbe(*fDevice).pools(), "0/0 0/0");
  EXPECT_TRUE(fDevice->setActiveCamera(0));
  EXPECT_EQ(fDevice->getActiveCamera(), 0);
}

}  // namespace
}  // namespace OX::test
