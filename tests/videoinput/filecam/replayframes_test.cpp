// The frames of a replay: each step to another image once, with the moment of the next one.
#include "camerarecord.h"
#include "filecam_fixture.h"
#include "videoinput/device/frames_fixture.h"

namespace OX::test {
namespace {

class ReplayFrames : public FileCamTest {
 protected:
  void openStream() { fStream = open(*fDevice, kQVGA, kYUV422); }
  /// "number:shade" of the next frame, and " in N ms" or " later" for the one after it.
  std::string take() {
    const std::string result = next(*fStream, fAfter);
    fAfter = std::max(fAfter, fStream->newestFrame(0));
    const auto left = fDevice->untilNextFrame(0);
    return result + (left ? " in " + std::to_string((left->count() + 999) / 1000) + " ms" : " ...");
  }
  std::string takeAfter(int pMs) {
    fClock.advanceUs(pMs * 1000);
    return take();
  }

  Stream fStream;
  std::uint64_t fAfter = 0;
};

TEST_F(ReplayFrames, ImageByImage) {
  play(record(5), 0, false);
  openStream();
  EXPECT_EQ(take(), "1:1 ...") << "paused after the first step";
  EXPECT_EQ(takeAfter(5000), "nothing ...");
  fDevice->nextImage();
  EXPECT_EQ(fDevice->untilNextFrame(0)->count(), 0);
  EXPECT_EQ(take(), "2:2 ...");
  fDevice->previousImage();
  EXPECT_EQ(take(), "3:1 ...");
  fDevice->replaySpeed(10.f);
  EXPECT_EQ(takeAfter(100), "4:2 in 100 ms");
  EXPECT_EQ(takeAfter(60), "nothing in 40 ms");
  EXPECT_EQ(takeAfter(40), "5:3 in 100 ms");
  EXPECT_EQ(takeAfter(500), "6:4 in 100 ms") << "one image, whatever the number of periods";
  EXPECT_EQ(takeAfter(100), "nothing ...") << "the range ends one later after previousImage";
  fDevice->nextImage();
  EXPECT_EQ(take(), "nothing ...") << "a request reads the last image again: no frame";
  EXPECT_EQ(next(*fStream, 5), "6:4") << "which is still the newest";
  EXPECT_EQ(DeviceProbe(*fDevice).complaints(), "");
  EXPECT_EQ(DeviceProbe(*fDevice).lentFrames(0), 0);
}

TEST_F(ReplayFrames, ImageByImageInALoop) {
  play(record(2), 0, true);
  openStream();
  std::string taken;
  for (int i = 0; i < 5; ++i) {
    taken += take() + " ";
    fDevice->nextImage();
  }
  EXPECT_EQ(taken, "1:1 ... 2:0 ... 3:1 ... 4:0 ... 5:1 ... ");
  play(record(1), 0, true);
  EXPECT_EQ(take(), "6:0 ...") << "numbers rise over recordings; the stream opens the camera";
  fDevice->nextImage();
  EXPECT_EQ(take(), "7:0 ...") << "a loop of one image";
}

TEST_F(ReplayFrames, ByTimeStamps) {
  play(record(8), 1, false);
  openStream();
  EXPECT_EQ(take(), "1:0 in 100 ms");
  EXPECT_EQ(takeAfter(101), "2:1 in 99 ms");
  EXPECT_EQ(takeAfter(98), "nothing in 1 ms");
  const std::string id = subscribe("a");
  fClock.advanceUs(2000);
  EXPECT_EQ(serve(id), "2@2");
  EXPECT_EQ(take(), "3:2 in 99 ms") << "the step of a request";
  EXPECT_EQ(takeAfter(300), "6:5 in 99 ms") << "two were passed over";
  EXPECT_EQ(takeAfter(1000), "8:7 ...");
  EXPECT_EQ(serve(id).substr(0, 2), "7@");
  EXPECT_EQ(takeAfter(1000), "nothing ...");
  fDevice->stopFrameGrabber(0);
  EXPECT_EQ(fDevice->untilNextFrame(0), std::nullopt);
}

TEST_F(ReplayFrames, ByTimeStampsInALoop) {
  play(record(3), 1, true);
  openStream();
  std::string taken;
  for (int i = 0; i < 6; ++i) taken += takeAfter(i ? 101 : 0) + " ";
  // A pass takes (n + 1) / n times the distance of its first and its last image: 266.7 ms.
  EXPECT_EQ(taken,
            "1:0 in 100 ms 2:1 in 99 ms 3:2 in 65 ms 4:0 in 64 ms 5:1 in 63 ms 6:2 in 29 ms ");
}

TEST_F(ReplayFrames, RawTakesOpenTheNextRecordingToo) {
  play(record(8), 1, false);
  openStream();
  EXPECT_EQ(take(), "1:0 in 100 ms");
  play(record(5), 1, false);
  EXPECT_EQ(next(*fStream, 1, Pixels::kRaw), "2:0");
  fClock.advanceUs(101'000);
  EXPECT_EQ(next(*fStream, 2, Pixels::kRaw), "3:1") << "from the beginning of its range";
  fDevice->stopFrameGrabber(0);
  fClock.advanceUs(101'000);
  EXPECT_EQ(next(*fStream, 3, Pixels::kRaw), "nothing") << "stopped, and nothing else is selected";
  EXPECT_EQ(next(*fStream, 2, Pixels::kRaw), "3:1") << "which is still the newest";
}

TEST_F(ReplayFrames, ARecordingIsDueAfterOneThatCouldNotBeOpened) {
  play(record(8), 1, false);
  openStream();
  EXPECT_EQ(take(), "1:0 in 100 ms");
  const std::string gone = recordStamps("gone.oxv", {1, 2}, 320, 240);
  play(gone, 1, false);
  std::filesystem::remove(gone);
  EXPECT_EQ(next(*fStream, 1, Pixels::kRaw), "failed");
  EXPECT_EQ(fDevice->untilNextFrame(0), std::nullopt) << "not tried again and again";
  play(record(5), 1, false);
  const auto left = fDevice->untilNextFrame(0);
  ASSERT_TRUE(left);
  EXPECT_EQ(left->count(), 0);
  EXPECT_EQ(next(*fStream, 1, Pixels::kRaw), "2:0");
}

TEST_F(ReplayFrames, OneConversionServesARequestAndAStream) {
  play(record(3), 0, false);
  const Stream stream = open(*fDevice, kQVGA, kRGB);
  const std::string id = fDevice->subscribe("a", kQVGA, kRGB, 30);
  const OXImage* const image = fDevice->getImageLocal(id);
  ASSERT_TRUE(image);
  Frame frame;
  ASSERT_EQ(stream->take(0, 0, Pixels::kConverted, frame), Result::kFrame);
  EXPECT_EQ(frame.image().fData, image->fData);
  EXPECT_EQ(DeviceProbe(*fDevice).camera(0).fConversionCount, 1u);
  fDevice->releaseImage(id);
}

TEST_F(ReplayFrames, AListenerIsToldOfStepsAndOfChanges) {
  const auto listener = boost::make_shared<CountingListener>();
  fDevice->setFrameListener(listener);
  const auto told = [&] { return listener->fFrames.exchange(0) > 0; };
  play(record(5), 0, false);
  EXPECT_TRUE(told()) << "setVideo";
  const std::string id = subscribe();
  EXPECT_TRUE(told()) << "opening";
  serve(id);
  EXPECT_TRUE(told()) << "a step";
  fDevice->releaseDirectRawImage(id);
  serve(id);
  EXPECT_FALSE(told()) << "a request between steps";
  fDevice->nextImage();
  EXPECT_TRUE(told()) << "nextImage";
  fDevice->replaySpeed(3.f);
  EXPECT_TRUE(told()) << "replaySpeed";
  fDevice->previousImage();
  EXPECT_TRUE(told()) << "previousImage";
  fDevice->setFrameListener({});
  fDevice->nextImage();
  EXPECT_FALSE(told());
}

TEST_F(ReplayFrames, NothingStaysOfAStreamThatCannotBeOpened) {
  EXPECT_EQ(outcome([&] { return open(*fDevice, kQVGA, kYUV422)->id(); }),
            "OXError: unable to open the video file");
  EXPECT_EQ(outcome([&] { return subscribe("a"); }), "OXError: unable to open the video file");
  EXPECT_EQ(DeviceProbe(*fDevice).subscribers().count("s"), 0u);
  EXPECT_EQ(DeviceProbe(*fDevice).subscribers().count("a"), 1u) << "unlike a subscriber";
}

// Requests would find the ring held; streams leave it to them.
TEST_F(ReplayFrames, KeptFramesDoNotHoldTheRing) {
  play(record(40), 0, true);
  const Stream stream = open(*fDevice, kQVGA, kYUV422);
  std::vector<Frame> kept(8);
  const std::string id = subscribe("a");
  for (int i = 0; i < 30; ++i) {
    fDevice->nextImage();
    ASSERT_EQ(stream->take(0, 0, Pixels::kRaw, kept[static_cast<std::size_t>(i) % 7]),
              Result::kFrame);
    EXPECT_EQ(serve(id).substr(0, 1), std::to_string(i + 1).substr(0, 1));
  }
  for (int i = 23; i < 30; ++i) {
    const OXImage& image = kept[static_cast<std::size_t>(i) % 7].image();
    EXPECT_EQ(image.fData[0], i + 1);
    EXPECT_EQ(image.fData[image.getSizeBytes() - 1], i + 1);
  }
  EXPECT_EQ(fLog.records(2), "");
}

}  // namespace
}  // namespace OX::test
