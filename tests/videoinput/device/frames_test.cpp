// Streams of frames: each one once and the newest, shared with requests, whatever others do.
#include <array>
#include <thread>

#include <oxframework/oxerror.h>
#include "camerarecord.h"
#include "frames_fixture.h"
#include "subscriberrecord.h"
#include "support/allocations.h"

namespace OX::test {
namespace {

using testing::HasSubstr;

class Frames : public SimulatorTest {
 protected:
  std::uint64_t conversions(int pCamera = 0) const {
    return DeviceProbe(*fDevice).camera(pCamera).fConversionCount;
  }
  /// What is left over when no frame is kept.
  std::string leftovers() const {
    const DeviceProbe probe(*fDevice);
    return probe.complaints() + (probe.lentFrames(0) ? "frames are lent" : "");
  }
};

TEST_F(Frames, EachPushIsOneFrameAndTheNewestCounts) {
  subscribe("a");
  push(0, 320, 240, 1);
  const Stream stream = open(*fDevice);
  EXPECT_EQ(next(*stream), "nothing") << "none from before the stream";
  EXPECT_EQ(stream->newestFrame(0), 0u);
  EXPECT_EQ(stream->newestAgeUs(0), -1);
  push(0, 320, 240, 200);
  fClock.advanceUs(70);
  EXPECT_EQ(stream->newestFrame(0), 2u);
  EXPECT_EQ(stream->newestAgeUs(0), 70);
  EXPECT_EQ(next(*stream), "2:188");
  EXPECT_EQ(next(*stream, 2), "nothing") << "although an image of a request would be young enough";
  push(0, 320, 240, 0);
  push(0, 320, 240, 255);
  EXPECT_EQ(next(*stream, 2), "4:235") << "two pushes with one stamp are two frames";
  push(0, 320, 240, 0);
  EXPECT_EQ(next(*stream, 4), "5:16");
  EXPECT_EQ(next(*stream, 4, Pixels::kRaw), "5:16");
  EXPECT_FALSE(fDevice->putImage(0, 320, 240, OXValue(3)));
  EXPECT_EQ(next(*stream, 5), "nothing") << "a refused push is no frame";
  const std::string larger = subscribe("larger", kVGA);
  EXPECT_EQ(next(*stream, 4), "nothing") << "the camera was opened again: no old frame, enlarged";
  EXPECT_EQ(stream->newestFrame(0), 0u);
  push(0, 320, 240, 255);
  EXPECT_EQ(next(*stream, 5), "6:235");
  fDevice->stopFrameGrabber(0);
  push(0, 320, 240, 0);
  EXPECT_EQ(next(*stream, 6), "nothing") << "starts the camera, as a request does";
  push(0, 320, 240, 0);
  EXPECT_EQ(next(*stream, 7), "8:16");
  Frame frame;
  EXPECT_EQ(stream->take(1, 0, Pixels::kConverted, frame), Result::kFailed);
  EXPECT_THAT(fLog.records(2), HasSubstr("take(s) : there is no stream 1: it has 1"));
  EXPECT_EQ(leftovers(), "");
}

TEST_F(Frames, OneConversionServesStreamsAndRequests) {
  std::vector<Stream> streams;
  for (int i = 0; i < 8; ++i) streams.push_back(open(*fDevice, kQVGA, kRGB));
  const std::string id = subscribe("a", kQVGA, kRGB, 30);
  push();
  std::vector<Frame> frames(streams.size());
  for (std::size_t i = 0; i < streams.size(); ++i)
    ASSERT_EQ(streams[i]->take(0, 0, Pixels::kConverted, frames[i]), Result::kFrame);
  EXPECT_EQ(fDevice->getImageLocal(id)->fData, frames[0].image().fData);
  EXPECT_EQ(conversions(), 1u);
  fDevice->releaseImage(id);
  for (Frame& frame : frames) frame.giveBack();
  fClock.advanceUs(50'000);
  push();
  const OXImage* const image = fDevice->getImageLocal(id);
  ASSERT_EQ(streams[0]->take(0, 1, Pixels::kConverted, frames[0]), Result::kFrame);
  EXPECT_EQ(image->fData, frames[0].image().fData) << "the other way round";
  EXPECT_EQ(conversions(), 2u);
  EXPECT_EQ(image->fTimeStamp, frames[0].image().fTimeStamp);
  EXPECT_EQ(frames[0].arrivedUs(), fClock.nowUs());
  frames[0].giveBack();
  fDevice->releaseImage(id);
  EXPECT_EQ(leftovers(), "");
  const auto status = fDevice->subscriberStatus();
  EXPECT_EQ(status[1].id + " " + std::to_string(status[1].served), "s 2");
  const StageDurations& stages = fDevice->stages();
  EXPECT_EQ(report::text(stages.push.count(), stages.resample.count(), stages.convert.count()),
            "222");
}

// Frames whose columns are the bits of their number.
constexpr int kBits = 16;

OXValue numbered(int pNumber) {
  std::vector<unsigned char> pixels(320 * 240 * 3);
  for (std::size_t i = 0; i < pixels.size(); ++i) {
    const auto column = static_cast<int>(i / 3 % 320 / (320 / kBits));
    pixels[i] = pNumber >> column & 1 ? 255 : 0;
  }
  OXValue value;
  value.SetBinary(pixels.data(), static_cast<int>(pixels.size()));
  return value;
}

// -1 when it is not of one frame.
int numberOf(const OXImage& pImage) {
  int number = -1;
  for (const int row : {0, pImage.fHeight / 2, pImage.fHeight - 1}) {
    int read = 0;
    for (int bit = 0; bit < kBits; ++bit) {
      const int x = pImage.fWidth / kBits * bit + pImage.fWidth / kBits / 2;
      if (pImage.fData[(row * pImage.fWidth + x) * pImage.fNbLayers] > 128) read |= 1 << bit;
    }
    if (number >= 0 && read != number) return -1;
    number = read;
  }
  return number;
}

// Until a push of another size is complete, the frame before is still the newest.
TEST_F(Frames, PushesOfTwoSizesTearNoFrame) {
  constexpr int kPushes = 1000;
  const Stream stream = open(*fDevice);
  std::atomic<bool> running{true};
  std::thread pusher([&] {
    for (int i = 0; i < kPushes; ++i) push(0, i % 2 ? 640 : 320, i % 2 ? 480 : 240, i % 256);
    running = false;
  });
  int frames = 0;
  int torn = 0;
  for (std::uint64_t last = 0; running;) {
    Frame frame;
    if (stream->take(0, last, Pixels::kConverted, frame) != Result::kFrame) continue;
    last = frame.number();
    const std::vector<unsigned char> pixels = bytesOf(frame.image());
    ++frames;
    if (std::count(pixels.begin(), pixels.end(), pixels[0]) !=
        static_cast<std::ptrdiff_t>(pixels.size()))
      ++torn;
  }
  pusher.join();
  EXPECT_GT(frames, 0);
  EXPECT_EQ(torn, 0);
}

TEST_F(Frames, EachFrameComesOnceInOrderWhilePushesAndOthersRace) {
  constexpr int kPushes = 400;
  const auto listener = boost::make_shared<CountingListener>();
  fDevice->setFrameListener(listener);
  const std::string id = subscribe("a", kQVGA, kRGB, 30);
  std::vector<OXValue> images;
  for (int i = 0; i <= kPushes; ++i) images.push_back(numbered(i));
  std::atomic<bool> running{true};
  std::vector<std::thread> threads;
  std::array<std::string, 6> faults;
  std::array<std::uint64_t, 6> last{};
  std::array<Stream, 6> streams;
  for (std::size_t i = 0; i < streams.size(); ++i)
    streams[i] = open(*fDevice, kQVGA, i % 2 ? kRGB : kYuv);
  for (std::size_t i = 0; i < streams.size(); ++i)
    threads.emplace_back([&, i] {
      Frame kept;  // a client keeps one while it takes the next
      std::vector<unsigned char> target(320 * 240 * 3);
      const Pixels pixels = i == 4 ? Pixels::kRaw : Pixels::kConverted;
      const FrameTarget where = i > 2 ? FrameTarget{} : FrameTarget{target.data(), target.size()};
      for (bool isLast = false; !isLast;) {
        isLast = !running;
        Frame frame;
        const Result result = streams[i]->take(0, last[i], pixels, frame, where);
        if (result == Result::kNothingNew) continue;
        if (result != Result::kFrame) faults[i] += "failed; ";
        if (result != Result::kFrame) continue;
        if (frame.number() <= last[i]) faults[i] += "again; ";
        if (numberOf(frame.image()) != static_cast<int>(frame.number()))
          faults[i] += std::to_string(frame.number()) + " shows " +
                       std::to_string(numberOf(frame.image())) + "; ";
        last[i] = frame.number();
        isLast = false;
        kept = std::move(frame);
      }
    });
  threads.emplace_back([&] {  // a subscriber, and one whose connection ends all the time
    while (running) {
      outcome([&] { return fDevice->getImageRemote(id); });
      const Stream brief = open(*fDevice, kQVGA, kHSY, "brief");
      next(*brief);
      while (!brief->end()) std::this_thread::yield();
    }
  });
  for (int i = 1; i <= kPushes; ++i) {
    fClock.advanceUs(1000);
    ASSERT_TRUE(fDevice->putImage(0, 320, 240, images[static_cast<std::size_t>(i)]));
  }
  running = false;
  for (std::thread& thread : threads) thread.join();
  for (std::size_t i = 0; i < streams.size(); ++i) {
    EXPECT_EQ(faults[i], "") << "stream " << i;
    EXPECT_EQ(last[i], std::uint64_t{kPushes}) << "stream " << i;
  }
  EXPECT_GE(listener->fFrames, kPushes);
  EXPECT_EQ(leftovers(), "");
  for (const Stream& stream : streams) EXPECT_TRUE(stream->end());
  fDevice->unsubscribe(id);
  EXPECT_EQ(DeviceProbe(*fDevice).pools(), "0/0 0/0");
}

TEST_F(Frames, ATargetGetsTheBytesOfTheSharedImage) {
  const std::vector<int> formats{kYuv, kHsy, kYUV422, kYUV,   kRGB,
                                 kHSY, kBGR, kYYCbCr, kH2RGB, kHSMixed};
  std::vector<unsigned char> pixels(640 * 480 * 3);
  for (std::size_t i = 0; i < pixels.size(); ++i)
    pixels[i] = static_cast<unsigned char>(i * i / 7 + i);
  OXValue image;
  image.SetBinary(pixels.data(), static_cast<int>(pixels.size()));
  for (const int resolution : {kQQVGA, kQVGA, kVGA})
    for (const int format : formats) {
      const Stream stream = open(*fDevice, resolution, format);
      const std::string keepsTheSize = subscribe("high", kVGA, format == kYuv ? kRGB : kYuv);
      ASSERT_TRUE(fDevice->putImage(0, 640, 480, image));
      std::vector<unsigned char> target(1280 * 960 * 3, 0xA5);
      Frame frame;
      const std::uint64_t before = conversions();
      ASSERT_EQ(stream->take(0, 0, Pixels::kConverted, frame, {target.data(), target.size()}),
                Result::kFrame);
      EXPECT_EQ(static_cast<void*>(frame.image().fData), target.data());
      const std::vector<unsigned char> direct = bytesOf(frame.image());
      EXPECT_EQ(target[direct.size()], 0xA5) << "nothing beyond the image";
      const OXValue reply = fDevice->getImageRemote(stream->id());
      const auto* const bytes = static_cast<const unsigned char*>(reply[6].GetBinary());
      // The first one was in the target and in no pool, but of the format that fills no image.
      const std::uint64_t expected = before + (format == kHsy ? 1 : 2);
      EXPECT_EQ(conversions(), expected);
      EXPECT_TRUE(std::equal(direct.begin(), direct.end(), bytes, bytes + reply[6].getSize()))
          << "format " << format;
      target.assign(target.size(), 0x5A);
      ASSERT_EQ(stream->take(0, 0, Pixels::kConverted, frame, {target.data(), target.size()}),
                Result::kFrame);
      EXPECT_EQ(conversions(), expected) << "copied";
      EXPECT_EQ(bytesOf(frame.image()), direct) << "format " << format;
      EXPECT_EQ(target[direct.size()], 0x5A);
      target[0] = 77;
      for (const Pixels kind : {Pixels::kConverted, Pixels::kRaw})
        EXPECT_EQ(stream->take(0, 0, kind, frame, {target.data(), 19199}), Result::kFailed);
      EXPECT_EQ(target[0], 77);
      frame.giveBack();
      EXPECT_TRUE(stream->end());
      fDevice->unsubscribe(keepsTheSize);
    }
  EXPECT_EQ(leftovers(), "");
}

TEST_F(Frames, AClientMayKeepEightAndOthersGoOn) {
  const Stream stream = open(*fDevice);
  const std::string id = subscribe("a", kQVGA, kYuv);
  std::vector<Frame> kept;
  for (int i = 1; i <= 8; ++i) {
    fClock.advanceUs(50'000);
    push(0, 320, 240, i * 20);
    const Pixels pixels = i % 2 ? Pixels::kConverted : Pixels::kRaw;
    ASSERT_EQ(stream->take(0, 0, pixels, kept.emplace_back()), Result::kFrame) << i;
    EXPECT_TRUE(fDevice->getImageRemote(id).isValid()) << i;
    EXPECT_TRUE(fDevice->setColorSpace(id, i % 2 ? kRGB : kYuv)) << i;
  }
  push();
  EXPECT_EQ(next(*stream), "failed");
  EXPECT_EQ(fLog.records(2),
            "take: take(s) : the client keeps 8 frames already: give one back first\n");
  for (int i = 1; i <= 8; ++i) {
    const OXImage& image = kept[static_cast<std::size_t>(i - 1)].image();
    const int luma = (i * 20 * 219 + 127) / 255 + 16;
    EXPECT_NEAR(image.fData[0], luma, 1) << i;
    EXPECT_EQ(image.fData[0], image.fData[image.getSizeBytes() - 2]);
  }
  EXPECT_EQ(fDevice->subscriberStatus()[1].holds, 0);
  EXPECT_TRUE(stream->end());
  EXPECT_EQ(kept[0].image().fHeight, 240) << "a frame outlives its stream";
  kept.clear();
  fDevice->unsubscribe(id);
  EXPECT_EQ(leftovers(), "");
}

TEST_F(Frames, TheSteadyStateAllocatesNothing) {
  const Stream stream = open(*fDevice, kQVGA, kRGB);
  const Stream second = open(*fDevice, kQVGA, kRGB);
  std::array<Frame, 4> kept;
  Frame other;
  std::vector<unsigned char> target(320 * 240 * 3);
  constexpr std::uint64_t kFirstRounds = 20;  // which make the spare buffers
  for (std::uint64_t i = 0; i < 2 * kFirstRounds; ++i) {
    push();
    const long pushed = allocations();
    ASSERT_EQ(stream->take(0, i, i % 3 ? Pixels::kConverted : Pixels::kRaw, kept[i % 4]),
              Result::kFrame);
    ASSERT_EQ(second->take(0, i, Pixels::kConverted, other,
                           i % 2 ? FrameTarget{target.data(), target.size()} : FrameTarget{}),
              Result::kFrame);
    ASSERT_TRUE(i < kFirstRounds || allocations() == pushed) << i;
  }
}

TEST_F(Frames, SettingsOfOthersChangeNoStream) {
  const Stream stream = open(*fDevice, kVGA, kRGB, "s", 0, 25);
  const std::string& id = stream->id();
  EXPECT_EQ(fDevice->getFrameRate(0), 25);
  EXPECT_TRUE(fDevice->setResolution(id, kQQVGA));
  EXPECT_TRUE(fDevice->setColorSpace(id, kYuv));
  EXPECT_TRUE(fDevice->setFrameRate(id, 7));
  EXPECT_EQ(fDevice->getResolution(0), kVGA) << "the camera does not fall below the stream";
  EXPECT_EQ(fDevice->getFrameRate(0), 25);
  EXPECT_TRUE(fDevice->setActiveCamera(id, 1));
  push(0, 640, 480, 100);
  push(1, 640, 480, 200);
  Frame frame;
  ASSERT_EQ(stream->take(0, 0, Pixels::kConverted, frame), Result::kFrame);
  EXPECT_EQ(report::text(frame.image().fWidth, " ", frame.image().fColorSpace, " ",
                         int{frame.image().fCameraId}, " ", int{frame.image().fData[0]}),
            "640 11 0 100");
  const FrameFormat expected = stream->formats()[0];
  EXPECT_EQ(report::text(expected.camera, " ", expected.resolution, " ", expected.colorSpace),
            "0 2 11");
}

TEST_F(Frames, ASubscriptionIsTheDevicesOwn) {
  const auto refusal = [&](const FrameFormat& pFormat, const char* pName) {
    const auto text = [](const auto& pCall) { return outcome(pCall); };
    const std::string frames =
        text([&] { return fDevice->subscribeFrames(pName, {pFormat}, false, 30)->id(); });
    const std::string images = text([&] {
      return fDevice->subscribeCamera(pName, pFormat.camera, pFormat.resolution, pFormat.colorSpace,
                                      30);
    });
    EXPECT_EQ(frames, images);
    return frames;
  };
  EXPECT_THAT(refusal({0, 9, kRGB}, "x"), HasSubstr("is an invalid Resolution"));
  EXPECT_THAT(refusal({0, kVGA, 99}, "x"), HasSubstr("is not a valid color space"));
  EXPECT_THAT(refusal({7, kVGA, kRGB}, "x"), HasSubstr("is not a valid camera index"));
  const Stream large = open(*fDevice, k4VGA, kRGB, "s", -1, 30);
  EXPECT_EQ(fDevice->getFrameRate(large->id()), 30) << "not lowered to 5";
  EXPECT_EQ(large->formats()[0].camera, 0);
  EXPECT_EQ(fDevice->getFrameRate(open(*fDevice, kQVGA, kRGB, "s", 1, 900)->id()), 255);
  EXPECT_EQ(open(*fDevice, kQVGA, kRGB, "s")->id(), "s_3");
  for (int i = 4; i <= 8; ++i) open(*fDevice);
  EXPECT_THAT(refusal({0, kVGA, kRGB}, "s"), HasSubstr("8 instance of : s"));
  fDevice->unsubscribeAllInstances("s");
  const Stream both = fDevice->subscribeFrames("m", {{0, kQVGA, kYuv}, {1, kVGA, kRGB}}, true, 1);
  EXPECT_EQ(fDevice->getFrameRate(both->id()), 5);
  EXPECT_THAT(outcome([&] {
                return fDevice->subscribeFrames("m", {{0, 1, 0}, {0, 1, 0}}, true, 5)->id();
              }),
              HasSubstr("using several time the same camera is forbidden"));
  push(1, 640, 480, 9);
  Frame frame;
  EXPECT_EQ(both->take(0, 0, Pixels::kConverted, frame), Result::kNothingNew);
  EXPECT_EQ(both->take(1, 0, Pixels::kConverted, frame), Result::kFrame);
  EXPECT_EQ(frame.image().fCameraId, 1);
}

TEST_F(Frames, WhoeverEndsAStreamItIsOver) {
  const auto listener = boost::make_shared<CountingListener>();
  fDevice->setFrameListener(listener);
  Frame frame;
  const auto ends = [&](const char* pHow, const auto& pEnd) {
    const Stream stream = open(*fDevice);
    push(0, 320, 240, 50);
    ASSERT_EQ(stream->take(0, 0, Pixels::kConverted, frame), Result::kFrame);
    EXPECT_FALSE(stream->isOver());
    const int before = listener->fEnds;
    pEnd(*stream);
    EXPECT_TRUE(stream->isOver()) << pHow;
    EXPECT_EQ(listener->fEnds, before + 1) << pHow;
    EXPECT_EQ(next(*stream), "over");
    EXPECT_TRUE(stream->end()) << "again";
    EXPECT_EQ(DeviceProbe(*fDevice).countSubscribers(), 0u);
  };
  ends("end", [](FrameSubscription& pStream) { EXPECT_TRUE(pStream.end()); });
  // Of a frame that is kept nobody takes notice.
  const std::int64_t slept = fClock.sleptUs();
  ends("unsubscribe", [&](FrameSubscription& pStream) { fDevice->unsubscribe(pStream.id()); });
  ends("all", [&](FrameSubscription&) { fDevice->unsubscribeAllInstances("s"); });
  EXPECT_LT(fClock.sleptUs() - slept, 10'000);
  EXPECT_EQ(frame.image().fHeight, 240);
  const Stream stream = open(*fDevice);
  startDevice();
  EXPECT_TRUE(stream->isOver());
  EXPECT_EQ(next(*stream), "over");
  frame.giveBack();
}

}  // namespace
}  // namespace OX::test
