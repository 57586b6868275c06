// Settings of a subscriber with several streams, its holds, and raw access, from call to reply.
#include "support/device_fixture.h"

namespace OX::test {
namespace {

using Ints = std::vector<int>;

class StreamsTest : public SimulatorTest {
 protected:
  std::string subscribeAll(const std::string& pName, Ints pCameras, Ints pResolutions,
                           Ints pColorSpaces, int pFps = 30) {
    return call("subscribeCameras", pName, pCameras, pResolutions, pColorSpaces, pFps).toString();
  }
  void expectNothingLeft() {
    const DeviceProbe probe(*fDevice);
    EXPECT_EQ(probe.complaints(), "");
    std::vector<std::string> ids;
    for (const auto& entry : probe.subscribers()) ids.push_back(entry.first);
    for (const std::string& id : ids) fDevice->unsubscribe(id);
    EXPECT_EQ(probe.pools(), "0/0 0/0");
    EXPECT_EQ(probe.lentFrames(0) + probe.lentFrames(1), 0);
  }
};

TEST_F(StreamsTest, AResolutionNeedsAFreeBufferOfTheNewSize) {
  const std::string id = subscribeAll("m", {0, 1}, {kQVGA, kQVGA}, {kYUV422, kYUV422});
  EXPECT_EQ(show(call("setResolutions", id, Ints{kVGA, kVGA})), "[0, 0]") << "there is none";
  EXPECT_EQ(show(fDevice->getResolutions(id)), "[1, 1]");
  const std::string other = fDevice->subscribeCamera("b", 1, kVGA, kYUV422, 30);
  EXPECT_EQ(show(call("setResolutions", id, Ints{4, kVGA})), "[0, 1]") << "the other subscriber's";
  EXPECT_EQ(show(fDevice->getResolutions(id)), "[1, 2]");
  // No buffer of its own on camera 1 has the size of its images now; for both subscribers, a free
  // one is reformatted.
  push(0);
  push(1, 640, 480);
  const OXValue reply = fDevice->getImagesRemote(id);
  ASSERT_EQ(reply.getSize(), 3);
  EXPECT_EQ(reply[1][0].toInt(), 640);
  fDevice->unsubscribe(id);
  push(1, 640, 480);
  EXPECT_EQ(fDevice->getImageRemote(other).getSize(), 12) << "the other one still has a buffer";
  expectNothingLeft();
}

TEST_F(StreamsTest, TheCameraIsOneChangeOfResolutionLate) {
  const std::string id = subscribeAll("m", {0}, {kVGA}, {kYUV422});
  const std::string other = subscribe("b", kQVGA);
  ASSERT_EQ(fDevice->getResolution(0), kVGA);
  EXPECT_EQ(show(call("setResolutions", id, Ints{kQVGA})), "[1]");
  EXPECT_EQ(show(fDevice->getResolutions(id)), "[1]");
  EXPECT_EQ(fDevice->getResolution(0), kVGA) << "updated before the wish was stored";
  fDevice->setFrameRate(other, 5);
  EXPECT_EQ(fDevice->getResolution(0), kQVGA) << "the next change of any kind lowers it";
  expectNothingLeft();
}

TEST_F(StreamsTest, AColourSpaceNeedsAFreeBufferInTheOldOne) {
  const std::string id = subscribeAll("m", {1, 0}, {kQVGA, kVGA}, {kRGB, kYuv});
  push(0);
  push(1);
  EXPECT_EQ(show(call("setColorSpaces", id, Ints{kBGR, 17})), "[1, 0]");
  ASSERT_EQ(show(fDevice->getImagesLocal(id)), "[true, true]");
  EXPECT_EQ(show(call("setColorSpaces", id, Ints{kRGB, kYuv})), "[0, 1]")
      << "it holds its only buffer; the other value is the same";
  EXPECT_EQ(show(fDevice->getColorSpaces(id)), "[0, 13]") << "by position: of cameras 0 and 1";
  EXPECT_EQ(fDevice->getColorSpace(1), kYUV422) << "the camera's own never changes";
  expectNothingLeft();
}

TEST_F(StreamsTest, ChangingCamerasMovesTheBuffersAndEndsTheHolds) {
  const std::string id = subscribeAll("m", {0}, {kVGA}, {kRGB});
  fDevice->startFrameGrabber();
  push(0);
  push(1);
  ASSERT_EQ(show(fDevice->getImagesLocal(id)), "[true]");
  const int before = fClock.sleeps();
  EXPECT_EQ(show(call("setActiveCameras", id, Ints{1})), "[1]");
  EXPECT_EQ(fClock.sleeps(), before) << "the held image is not waited for";
  const DeviceProbe probe(*fDevice);
  EXPECT_EQ(probe.pools(), "0/0 1/1");
  EXPECT_EQ(probe.complaints(), "");
  EXPECT_EQ(show(call("setActiveCameras", id, Ints{1, 0})), "[1, 1]");
  EXPECT_EQ(show(fDevice->getActiveCameras(id)), "[1, 0]");
  EXPECT_EQ(show(fDevice->getResolutions(id)), "[2, 1]") << "of cameras 0 and 1";
  push(0);
  push(1);
  const OXValue reply = fDevice->getImagesRemote(id);
  ASSERT_EQ(reply.getSize(), 3);
  EXPECT_EQ(reply[2].getSize(), 320 * 240 * 2 + 640 * 480 * 3) << "camera 1 has the defaults";
  expectNothingLeft();
}

TEST_F(StreamsTest, ARefusedListOfCamerasChangesNothing) {
  const std::string id = subscribeAll("m", {1, 0}, {kQVGA, kVGA}, {kRGB, kYuv});
  push(0);
  push(1);
  ASSERT_EQ(show(fDevice->getImagesLocal(id)), "[true, true]");
  for (const Ints& cameras : {Ints{5}, Ints{-1}, Ints{0, 2}, Ints{0, 0}})
    EXPECT_THROW(call("setActiveCameras", id, cameras), OXError);
  EXPECT_EQ(show(fDevice->getActiveCameras(id)), "[1, 0]");
  EXPECT_EQ(show(fDevice->releaseImages(id)), "[1, 1]") << "the holds too are still there";
  expectNothingLeft();
}

TEST_F(StreamsTest, WithoutCamerasThereAreNoImages) {
  const std::string id = subscribeAll("m", {1, 0}, {kQVGA, kVGA}, {kRGB, kYuv});
  EXPECT_EQ(show(call("setActiveCameras", id, Ints{})), "[]");
  for (const char* method : {"getImagesLocal", "getImagesRemote"})
    EXPECT_EQ(outcome([&] { return call(method, id); }),
              "OXError: m failed to get images from one or several cameras");
  EXPECT_EQ(fLog.count(2), 0) << "raised without a record";
  EXPECT_EQ(show(fDevice->getDirectRawImagesLocal(id)), "[]");
  EXPECT_EQ(show(fDevice->releaseImages(id)), "[]");
  expectNothingLeft();
}

TEST_F(StreamsTest, AHeldImageEndsTheRequestBeforeItsCameraStarts) {
  const std::string id = subscribeAll("m", {0, 1}, {kQVGA, kVGA}, {kRGB, kYuv});
  push(0);
  push(1, 640, 480);
  ASSERT_EQ(show(fDevice->getImagesLocal(id)), "[true, true]");
  fDevice->stopFrameGrabber();
  fLog.clear();
  EXPECT_EQ(show(fDevice->getImagesRemote(id)), "invalid");
  EXPECT_EQ(fLog.records(2), "xGetImages: Previous image 0 was not released\n");
  EXPECT_TRUE(fDevice->isFrameGrabberOff(0)) << "the request ended at the first camera";
  EXPECT_EQ(show(fDevice->releaseImages(id)), "[1, 1]");
  EXPECT_EQ(show(fDevice->releaseImages(id)), "[0, 0]");
  expectNothingLeft();
}

TEST_F(StreamsTest, RawRequestsNeverStartTheGrabber) {
  const std::string id = subscribe("a");
  push();
  fDevice->stopFrameGrabber(0);
  EXPECT_EQ(fDevice->getDirectRawImageRemote(id).getSize(), 12) << "the frame from before";
  EXPECT_TRUE(fDevice->isFrameGrabberOff(0));
  EXPECT_FALSE(fDevice->getImageRemote(id).isValid())
      << "a request for a converted image restarts it";
  EXPECT_FALSE(fDevice->isFrameGrabberOff(0));
  expectNothingLeft();
}

TEST_F(StreamsTest, AskingForSharedMemoryLeavesNoHold) {
  const std::string multi = subscribeAll("m", {1, 0}, {kQVGA, kVGA}, {kRGB, kYuv});
  push(0);
  push(1);
  EXPECT_EQ(outcome([&] { return fDevice->getDirectRawImageInterprocess(multi); }),
            "OXError: Multi stream module can't call this method use releaseDirectRawImages "
            "instead");
  EXPECT_EQ(DeviceProbe(*fDevice).lentFrames(1), 0);
  EXPECT_EQ(fDevice->getImagesRemote(multi).getSize(), 3) << "nothing prevents the next request";
  ASSERT_EQ(show(fDevice->getImagesLocal(multi)), "[true, true]");
  EXPECT_THROW(fDevice->getDirectRawImageInterprocess(multi), OXError);
  EXPECT_EQ(show(fDevice->releaseImages(multi)), "[1, 1]") << "a hold from before stays";

  // Its current camera is now one on which it has no buffers; it must not use another subscriber's.
  const std::string mono = subscribe("a");
  call("setActiveCameras", multi, Ints{});
  push(0);
  EXPECT_THROW(fDevice->getDirectRawImageInterprocess(multi), OXError);
  EXPECT_EQ(DeviceProbe(*fDevice).lentFrames(0), 0);
  ASSERT_TRUE(fDevice->getDirectRawImageLocal(mono));
  EXPECT_THROW(fDevice->getDirectRawImageInterprocess(multi), OXError);
  EXPECT_EQ(DeviceProbe(*fDevice).lentFrames(0), 1);
  EXPECT_EQ(fDevice->getDirectRawImageInterprocess(mono), "lastVideoBuffer");
  EXPECT_TRUE(fDevice->getDirectRawImageRemote(mono).isValid())
      << "for one stream the call has silently ended the hold";
  fLog.clear();
  EXPECT_EQ(fDevice->getDirectRawImageInterprocess("nobody"), "");
  EXPECT_EQ(fLog.records(2),
            "getDirectRawImageInterprocess: getDirectRawImageInterprocess(nobody) : module nobody "
            "unknown!\n\n");
  expectNothingLeft();
}

}  // namespace
}  // namespace OX::test
