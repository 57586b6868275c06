// Delivery of images: sharing and freshness, holds and releases, the remote reply, conversion.
#include <unistd.h>

#include <cstring>
#include <fstream>

#include "pixels/colour/kernels.h"
#include "subscriberrecord.h"
#include "support/allocations.h"
#include "support/device_fixture.h"

namespace OX::test {
namespace {

using testing::HasSubstr;

std::int64_t stampOf(const OXValue& pReply) {
  return (std::int64_t{pReply[4].toInt()} << 32) + static_cast<std::uint32_t>(pReply[5].toInt());
}

TEST_F(SimulatorTest, SubscribersOfOneFormatShareOneImage) {
  const std::string a = subscribe("a");
  const std::string b = subscribe("b");
  push();
  const OXImage* const image = fDevice->getImageLocal(a);
  ASSERT_TRUE(image);
  EXPECT_EQ(fDevice->getImageLocal(b), image);
  const auto readers = [&] {
    const DeviceProbe probe(*fDevice);
    return probe.subscribers().at(b)->fRequestedProperties[0]->fLockedImage->fReadLockCount.load();
  };
  EXPECT_EQ(readers(), 2);
  EXPECT_TRUE(fDevice->releaseImage(a));
  EXPECT_EQ(readers(), 1);
  EXPECT_TRUE(fDevice->releaseImage(a)) << "nothing to release is no failure";
  EXPECT_EQ(readers(), 1);
  EXPECT_EQ(outcome([&] { return fDevice->getImageLocal(b) != nullptr; }),
            "OXError: b previous image for camera 0 was not released !");
  EXPECT_EQ(readers(), 1) << "a refused second request leaves the first hold alone";
  fDevice->releaseImage(b);
  EXPECT_EQ(DeviceProbe(*fDevice).complaints(), "");
}

// A converted image is shared while it is no older than a period, in truncated milliseconds. In
// each case a newer frame has been pushed, so the time stamp shows which one was returned.
TEST_F(SimulatorTest, AnImageIsSharedForOnePeriodOfTheSubscribersRate) {
  const std::int64_t second = FakeClock::kStartUs;
  const struct {
    int fps;
    std::int64_t takenUs, askedUs;
    bool shared;
    const char* why;
  } kCases[] = {
      {30, second, second + 33'999, true, "33 ms, since fractions of a millisecond do not count"},
      {30, second, second + 34'000, false, "34 ms"},
      {7, second, second + 142'999, true, "1000 / 7 is 142"},
      {7, second, second + 143'000, false, "and not 143"},
      {30, second - 1'000, second + 1'000, true, "across the change of the second"},
      {30, second + 5'000'000, second, true, "a stamp ahead of the clock is fresh"},
  };
  for (const auto& test : kCases) {
    const std::string id = subscribe("a", kQVGA, kRGB, test.fps);
    fClock.setUs(test.takenUs);
    push();
    ASSERT_EQ(stampOf(fDevice->getImageRemote(id)), test.takenUs);
    fClock.setUs(test.takenUs + 1);
    push();
    fClock.setUs(test.askedUs);
    EXPECT_EQ(stampOf(fDevice->getImageRemote(id)) == test.takenUs, test.shared) << test.why;
    fDevice->unsubscribe(id);
  }
}

// A raw image that another subscriber holds is converted again, but only within its own second.
TEST_F(SimulatorTest, ARawImageIsSharedWithinItsSecondWhileItIsLent) {
  const struct {
    std::int64_t takenUs, askedUs;
    bool shared;
    const char* why;
  } kCases[] = {
      {FakeClock::kStartUs, FakeClock::kStartUs + 33'000, true, "young"},
      {FakeClock::kStartUs - 1'000, FakeClock::kStartUs + 1'000, false, "2 ms old, last second"},
  };
  for (const auto& test : kCases) {
    const std::string holder = subscribe("holder");
    const std::string asker = subscribe("asker", kQVGA, kRGB, 30);
    fClock.setUs(test.takenUs);
    push();
    const OXImage* const raw = fDevice->getDirectRawImageLocal(holder);
    ASSERT_TRUE(raw);
    fClock.setUs(test.takenUs + 1);
    push();
    fClock.setUs(test.askedUs);
    EXPECT_EQ(stampOf(fDevice->getImageRemote(asker)) == test.takenUs, test.shared) << test.why;
    fDevice->releaseDirectRawImage(holder);
    fDevice->unsubscribeAllInstances("holder");
    fDevice->unsubscribeAllInstances("asker");
    EXPECT_EQ(DeviceProbe(*fDevice).lentFrames(0), 0);
  }
}

// A change of the camera's resolution is written to lent raw images, whose pixels stay.
TEST_F(SimulatorTest, ARawImageIsSharedOnlyInTheSizeThatItsPixelsHave) {
  const std::string holder = subscribe("holder");
  const std::string asker = subscribe("asker", kQVGA, kYuv, 5);
  push(0, 320, 240, 50);
  const OXImage* const held = fDevice->getDirectRawImageLocal(holder);
  ASSERT_TRUE(held);
  subscribe("raisesTheCamera", kVGA);
  ASSERT_EQ(held->fWidth, 640);
  push(0, 320, 240, 200);
  const OXValue reply = fDevice->getImageRemote(asker);
  ASSERT_EQ(reply.getSize(), 12);
  const auto* const pixels = static_cast<const unsigned char*>(reply[6].GetBinary());
  EXPECT_GT(pixels[0], 150) << "the new frame";
  EXPECT_EQ(std::count(pixels, pixels + 320 * 240, pixels[0]), 320 * 240);
}

TEST_F(SimulatorTest, TheRemoteReplyIsTheImageAndLeavesNoHold) {
  const std::string id = fDevice->subscribeCamera("a", 1, kQQVGA, kRGB, 10);
  fClock.setUs(FakeClock::kStartUs);
  push(1, 160, 120, 255);
  const OXValue reply = call("getImageRemote", id);
  EXPECT_EQ(show(reply), "[160, 120, 3, 11, " + std::to_string(FakeClock::kStartUs >> 32) + ", " +
                             std::to_string(static_cast<int>(FakeClock::kStartUs & 0xFFFFFFFF)) +
                             ", <57600 bytes>, 1, 0f, 0f, 0f, 0f]");
  const auto* const pixels = static_cast<const unsigned char*>(reply[6].GetBinary());
  // White is luma 235 and (298 * 219) >> 8 is 254: there is no rounding.
  EXPECT_EQ(std::vector<unsigned char>(pixels, pixels + 3), std::vector<unsigned char>(3, 254));
  EXPECT_EQ(call("getImageRemote", id).getSize(), 12);
  EXPECT_EQ(DeviceProbe(*fDevice).complaints(), "");
  EXPECT_EQ(show(call("getImageLocal", id)), "invalid") << "a broker passes on no pointers";
  EXPECT_TRUE(fDevice->releaseImage(id)) << "but the hold was taken";
}

TEST_F(SimulatorTest, WithoutAFrameThereIsNoImageAndNoError) {
  const std::string id = subscribe("a");
  EXPECT_EQ(fDevice->getImageLocal(id), nullptr);
  EXPECT_EQ(fClock.sleptUs() / 1'000'000, 1) << "one second and no more";
  EXPECT_EQ(fLog.records(2),
            "xGetDirectRawImage: OXVideoDevice: Could not get image for subscriber \"a\". Check "
            "that the simulator is running.\n");
  EXPECT_THAT(fLog.records(4), HasSubstr("xGetImage(a): Failed to get a new raw image for "
                                         "subscriber \"a\""));
  EXPECT_EQ(show(call("getImageRemote", id)), "invalid");
  fClock.setSleepHook([&](unsigned int) { push(); });
  EXPECT_EQ(call("getImageRemote", id).getSize(), 12) << "a push ends the wait";
}

// The device converts exactly as its kernels do, here from a camera that runs at twice the size.
TEST_F(SimulatorTest, EveryColourSpaceMatchesItsKernel) {
  std::vector<unsigned char> pixels(640 * 480 * 3);
  std::uint32_t noise = 12345;
  for (unsigned char& pixel : pixels)
    pixel = static_cast<unsigned char>((noise = noise * 1664525u + 1013904223u) >> 24);
  const struct {
    int colorSpace;
    decltype(&kernels::yuv422ToRGB) kernel;
  } kCases[] = {
      {kYuv, kernels::yuv422ToYuv},       {kHsy, kernels::yuv422ToHsy},
      {kYUV422, kernels::yuv422ToYUV422}, {kYUV, kernels::yuv422ToYUV},
      {kRGB, kernels::yuv422ToRGB},       {kHSY, kernels::yuv422ToHSY},
      {kBGR, kernels::yuv422ToBGR},       {kYYCbCr, kernels::yuv422ToYYCbCr},
      {kH2RGB, kernels::yuv422ToH2RGB},   {kHSMixed, kernels::yuv422ToHSMixed},
  };
  subscribe("keepsTheCameraAtVga", kVGA);
  for (const auto& test : kCases) {
    OXValue image;
    image.SetBinary(pixels.data(), static_cast<int>(pixels.size()));
    fClock.advanceUs(1'000'000);
    ASSERT_TRUE(fDevice->putImage(0, 640, 480, image));
    const std::string raw = subscribe("raw", kVGA);
    const OXValue frame = fDevice->getDirectRawImageRemote(raw);
    fDevice->unsubscribe(raw);
    const std::string id = subscribe("a", kQVGA, test.colorSpace);
    const OXValue reply = fDevice->getImageRemote(id);
    ASSERT_EQ(reply.getSize(), 12);
    std::vector<unsigned char> expected(static_cast<std::size_t>(reply[6].getSize()), 0);
    test.kernel(static_cast<const unsigned char*>(frame[6].GetBinary()), 640, expected.data(), 320,
                240);
    EXPECT_EQ(std::memcmp(reply[6].GetBinary(), expected.data(), expected.size()), 0)
        << getColorSpaceName(test.colorSpace);
    fDevice->unsubscribe(id);
  }
}

TEST_F(SimulatorTest, AnUnknownColourSpaceYieldsAClearedImageAndARecord) {
  const std::string id = subscribe("x", kQQVGA, 3);
  push();
  const OXValue reply = fDevice->getImageRemote(id);
  ASSERT_EQ(reply.getSize(), 12);
  EXPECT_EQ(reply[2].toInt(), 3);
  const auto* const pixels = static_cast<const unsigned char*>(reply[6].GetBinary());
  EXPECT_EQ(std::count(pixels, pixels + reply[6].getSize(), 0), reply[6].getSize())
      << "no uninitialised memory is returned";
  EXPECT_THAT(fLog.records(2), HasSubstr("xConvertImage: Unknown colorSpace required"));
}

// Both kinds of hold use the same field; releasing by the other operation must not lose the
// camera's frame.
TEST_F(SimulatorTest, EitherReleaseEndsEitherHold) {
  const std::string id = subscribe("a");
  for (int i = 0; i < 6; ++i) {
    fClock.advanceUs(1'000'000);
    push();
    ASSERT_TRUE(fDevice->getDirectRawImageLocal(id)) << "round " << i;
    EXPECT_TRUE(fDevice->releaseImage(id));
    ASSERT_TRUE(fDevice->getImageLocal(id));
    EXPECT_TRUE(fDevice->releaseDirectRawImage(id));
    EXPECT_EQ(DeviceProbe(*fDevice).complaints(), "");
    EXPECT_EQ(DeviceProbe(*fDevice).lentFrames(0), 0);
  }
}

TEST_F(SimulatorTest, UnknownSubscribersAndTheOtherFamilyAreRefusedInKnownWords) {
  const OXValue multi = call("subscribeCameras", "m", std::vector<int>{0}, std::vector<int>{1},
                             std::vector<int>{9}, 10);
  const struct {
    const char* method;
    const char* unknown;
    const char* wrongFamily;
  } kCases[] = {
      {"getImageLocal", "getImageLocal(no) : module no unknown!", "use getImagesLocal instead"},
      {"getImageRemote", "getDirectRawImageRemote(no) : module no unknown!",
       "use getDirectRawImagesRemote instead"},
      {"releaseImage", "releaseImage(no) : module no unknown!",
       "use releaseDirectRawImages instead"},
  };
  for (const auto& test : kCases) {
    fLog.clear();
    EXPECT_EQ(outcome([&] { return call(test.method, "no"); }),
              std::string("OXError: ") + test.unknown);
    EXPECT_EQ(
        outcome([&] { return call(test.method, multi.toString()); }),
        std::string("OXError: Multi stream module can't call this method, ") + test.wrongFamily);
    EXPECT_EQ(fLog.records(2), std::string(test.method) + ": " + test.unknown + "\n" + test.method +
                                   ": Multi stream module can't call this method, " +
                                   test.wrongFamily + "\n");
  }
}

TEST_F(SimulatorTest, TheImagePathAllocatesNothing) {
  const std::string a = subscribe("a", kVGA, kRGB, 30);
  const std::string b = subscribe("b", kVGA, kRGB, 30);
  OXValue image;
  image.SetBinary(std::vector<char>(640 * 480 * 3).data(), 640 * 480 * 3);
  const auto deliver = [&] {
    fClock.advanceUs(40'000);
    fDevice->putImage(0, 640, 480, image);
    for (const std::string* id : {&a, &b})
      if (fDevice->getImageLocal(*id)) fDevice->releaseImage(*id);
    if (fDevice->getDirectRawImageLocal(a)) fDevice->releaseDirectRawImage(a);
  };
  deliver();
  const long before = allocations();
  for (int i = 0; i < 10; ++i) deliver();
  EXPECT_EQ(allocations() - before, 0);
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
// Every buffer has storage for the largest format, of which only what is used may cost memory.
TEST_F(SimulatorTest, SixtyFourSubscribersStayBelow120MiB) {
  const auto residentBytes = [] {
    long pages = 0;
    long resident = 0;
    std::ifstream("/proc/self/statm") >> pages >> resident;
    return resident * ::sysconf(_SC_PAGESIZE);
  };
  const long before = residentBytes();
  for (int i = 0; i < 64; ++i) {
    const std::string id = subscribe("s" + std::to_string(i), kQVGA, kRGB);
    push();
    ASSERT_TRUE(fDevice->getImageLocal(id));
  }
  EXPECT_LT(residentBytes() - before, 120L << 20);
}
#endif

}  // namespace
}  // namespace OX::test
