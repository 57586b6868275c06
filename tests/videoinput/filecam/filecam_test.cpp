// The camera that replays a recording: what it serves when, and what must never stop it.
#include "filecam_fixture.h"

#include <fstream>

#include "support/allocations.h"

namespace OX::test {
namespace {

using testing::HasSubstr;

TEST_F(FileCamTest, ModeZeroStepsWhenAsked) {
  play(record(4), 0, false);
  const std::string id = subscribe();
  EXPECT_EQ(serve(id), "1@1") << "the first request steps once";
  EXPECT_EQ(serve(id), "1@1") << "and nothing more until it is told to";
  fDevice->nextImage();
  EXPECT_EQ(serve(id), "2@2");
  fDevice->previousImage();
  EXPECT_EQ(serve(id), "1@2+1us") << "stamps never go back";
  fDevice->nextImage();
  EXPECT_EQ(serve(id), "2@2+2us");
  for (int i = 0; i < 3; ++i) {
    fDevice->nextImage();
    serve(id);
  }
  fDevice->nextImage();
  EXPECT_EQ(serve(id).substr(0, 2), "3@") << "without loop it stays on the last image";
  EXPECT_EQ(fDevice->getCurrentImageNumber(), 3);
}

TEST_F(FileCamTest, ModeZeroFollowsASpeedThatIsSet) {
  play(record(6), 0, false);
  const std::string id = subscribe();
  EXPECT_EQ(serve(id), "1@1");
  fDevice->replaySpeed(10.f);
  fClock.advanceUs(99'999);
  EXPECT_EQ(serve(id), "1@1");
  fClock.advanceUs(1);
  EXPECT_EQ(serve(id), "2@2");
  fDevice->replaySpeed(std::nanf(""));
  fClock.advanceUs(100'000);
  EXPECT_EQ(serve(id), "3@3") << "not a number leaves the speed as it is";
  for (const float slow : {0.f, -0.f, 1e-30f, 1e-45f}) {
    fDevice->replaySpeed(slow);
    fClock.advanceUs(3'600'000'000);
    EXPECT_EQ(serve(id), "3@3") << slow;
  }
}

TEST_F(FileCamTest, ModeOneFollowsTheRecordedMoments) {
  const struct {
    bool loop;
    std::int64_t pausesUs[4];
    const char* served[4];
    const char* why;
  } kCases[] = {
      {false, {0, 100'001, 100'000, 300'000}, {"0@0", "1@1", "2@2", "5@5"}, "skips two"},
      {true,
       {50'001, 500'000, 100'000, 100'000},
       {"0@0", "5@5", "0@6", "1@7"},
       "a loop of 6 images takes 7/6 of their span of 500 ms in whole microseconds"},
      {false, {0, 3'600'000'000, 0, 0}, {"0@0", "5@5", "5@5", "5@5"}, "an hour, without loop"},
  };
  for (const auto& test : kCases) {
    play(record(6), 1, test.loop);
    const std::string id = subscribe();
    fDevice->startFrameGrabber(0);
    for (int i = 0; i < 4; ++i) {
      fClock.advanceUs(test.pausesUs[i]);
      const std::string served = serve(id);
      // The length of a loop is not a whole number of steps: only the image is compared then.
      const std::string wanted = test.served[i];
      EXPECT_EQ(served.substr(0, served.find('@')), wanted.substr(0, wanted.find('@')))
          << test.why << ", request " << i << " served " << served;
    }
    fDevice->unsubscribe(id);
  }
}

TEST_F(FileCamTest, ALongPauseInALoopCostsNoMoreThanAShortOne) {
  play(record(3), 1, true);
  const std::string id = subscribe();
  ASSERT_EQ(serve(id), "0@0");
  // Three images 100 ms apart loop in (3 + 1) * 200 / 3 = 266.666 ms.
  const std::int64_t loopUs = 266'666;
  fClock.advanceUs(std::int64_t{1'000'000} * loopUs + 150'000);
  EXPECT_EQ(serve(id).substr(0, 2), "1@");
}

// Each of these once ended in an endless loop, a crash or a service that could not be used again.
TEST_F(FileCamTest, NothingInAFileOrARangeStopsTheService) {
  const std::string none = "OXError: Can't open video file.";
  const struct {
    int images, mode;
    bool loop;
    OXValue range;
    std::int64_t stepUs;
    std::string opening;
    const char* why;
  } kCases[] = {
      {4, 1, true, OXValue::array(0, 0), kStepUs, "", "a loop of one image has no length"},
      {4, 1, true, OXValue(), 0, "", "all images of one moment"},
      {4, 1, true, OXValue(), -kStepUs, "", "moments that fall"},
      {4, 1, true, OXValue::array(3, 1), kStepUs, "", "a range that runs backwards"},
      {4, 1, false, OXValue::array(9, 12), kStepUs, none, "a range behind the file"},
      {4, 1, true, OXValue::array(-5, 2), kStepUs, none, "a range before the file"},
      {0, 1, true, OXValue::array(-1, 5), kStepUs, none, "no image at all"},
      {4, 7, true, OXValue(), kStepUs, "", "an unknown mode"},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.why);
    play(record(test.images, 320, 240, 0, test.stepUs), test.mode, test.loop, test.range);
    const std::string subscribed = outcome([&] { return subscribe("x"); });
    EXPECT_EQ(subscribed, test.opening.empty() ? "\"x\"" : test.opening);
    fClock.advanceUs(10'000'000);
    for (int i = 0; i < 3; ++i) outcome([&] { return serve("x"); });
    outcome([&] {
      fDevice->previousImage();
      return 0;
    });
    EXPECT_TRUE(fDevice->stopFrameGrabber(0));
    fDevice->unsubscribe("x");
    EXPECT_EQ(outcome([&] {
                fDevice->unsubscribe("x");
                return 0;
              }),
              "OXError: Cannot unsubscribe \"x\": module unknown from OXVideoDevice.")
        << "also a subscription that failed can be ended";
    play(record(4), 0, false);
    const std::string good = subscribe("good");
    EXPECT_EQ(serve(good), "1@1");
    fDevice->unsubscribe(good);
  }
}

TEST_F(FileCamTest, FilesThatCannotBePlayedSaySo) {
  const std::string junk = path("junk.oxv");
  std::ofstream(junk) << "this is no recording";
  EXPECT_EQ(outcome([&] { return subscribe(); }), "OXError: unable to open the video file")
      << "no video was chosen";
  EXPECT_TRUE(fDevice->isFrameGrabberOff(0));
  EXPECT_TRUE(fDevice->stopFrameGrabber(0)) << "the failed start is over";
  fDevice->unsubscribe("a");
  const std::string good = record(4);
  play(good, 0, false);
  fLog.clear();
  for (const std::string& missing : {path("missing.oxv"), std::string(5000, 'x'), std::string()}) {
    play(missing, 1, true);
    EXPECT_EQ(fLog.all().back().message, missing + " file doesn't exist. Return!");
  }
  const std::string id = subscribe();
  EXPECT_EQ(serve(id), "1@1") << "the earlier choice is still in force";
  EXPECT_EQ(outcome([&] {
              play(junk, 0, false);
              return 0;
            }),
            "OXError: unable to open the video file");
  EXPECT_EQ(outcome([&] {
              play(good, 0, false, OXValue::array("x", "y"));
              return 0;
            }),
            "OXError: Value is string instead of int");
}

TEST_F(FileCamTest, AnyFormatIsReplayedAndReduced) {
  play(record(3, 1280, 960), 0, false);
  EXPECT_EQ(fDevice->getResolution(0), k4VGA);
  const std::string full = fDevice->subscribe("full", k4VGA, kYuv, 5);
  const std::string small = fDevice->subscribe("small", kQQVGA, kYuv, 5);
  const OXValue large = fDevice->getImageRemote(full);
  const OXValue reduced = fDevice->getImageRemote(small);
  ASSERT_TRUE(large.isValid() && reduced.isValid());
  EXPECT_EQ(large[6].getSize(), 1280 * 960);
  EXPECT_EQ(reduced[6].getSize(), 160 * 120);
  EXPECT_EQ(*static_cast<const unsigned char*>(reduced[6].GetBinary()), 1);
  play(record(3), 0, false);
  EXPECT_EQ(outcome([&] { return fDevice->subscribe("x", kVGA, kYuv, 5); }),
            "OXError: Could not subscribe module: x\n2 is an invalid Resolution; current device "
            "max resolution is \x01");
}

// Subscribers of an earlier video stay when one of no known size is chosen.
TEST_F(FileCamTest, AStrangeSizeIsNotReadBeyondItsEnd) {
  play(record(3, 640, 480), 0, false);
  const std::string id = fDevice->subscribe("a", kQQVGA, kRGB, 5);
  ASSERT_TRUE(fDevice->getImageRemote(id).isValid());
  play(record(3, 3000, 600), 0, false);
  fClock.advanceUs(10'000'000);
  EXPECT_EQ(fDevice->getImageRemote(id)[0].toInt(), 160);
  EXPECT_THAT(fLog.records(2),
              HasSubstr("A raw image of 3000 x 600 can't be converted to 160 x 120"));
}

TEST_F(FileCamTest, ReplayAllocatesNothing) {
  play(record(4), 1, true);
  const std::string id = subscribe();
  const auto deliver = [&] {
    fClock.advanceUs(kStepUs);
    if (fDevice->getImageLocal(id)) fDevice->releaseImage(id);
    if (fDevice->getDirectRawImageLocal(id)) fDevice->releaseDirectRawImage(id);
  };
  deliver();
  const long before = allocations();
  for (int i = 0; i < 20; ++i) deliver();
  EXPECT_EQ(allocations() - before, 0);
}

TEST_F(FileCamTest, ImagesOfACameraThatIsNotThereLeaveTheActiveOneAlone) {
  play(record(3, 320, 240, 5), 0, false);
  const std::string id = subscribe();
  EXPECT_EQ(fDevice->getImageRemote(id)[7].toInt(), 5) << "the reply says who took it";
  EXPECT_EQ(fDevice->getActiveCamera(), 0);
  EXPECT_THAT(fLog.records(2), HasSubstr("The recording has images of camera 5"));
}

TEST_F(FileCamTest, FiveHeldImagesAreWaitedForButNotForEver) {
  play(record(8), 0, true);
  std::vector<std::string> ids;
  for (int i = 0; i < 6; ++i) ids.push_back(subscribe());
  for (int i = 0; i < 5; ++i) {
    outcome([&] {
      return fDevice->getDirectRawImageLocal(ids[static_cast<std::size_t>(i)]) != nullptr;
    });
    fDevice->nextImage();
  }
  const std::int64_t slept = fClock.sleptUs();
  fDevice->getDirectRawImageLocal(ids[5]);
  EXPECT_LE(fClock.sleptUs() - slept, 1'100'000);
  for (const std::string& id : ids) fDevice->releaseDirectRawImage(id);
  fDevice->nextImage();
  EXPECT_NE(serve(ids[5]), "nothing") << "it goes on after the releases";
}

TEST_F(FileCamTest, APictureThatIsHeldSurvivesTheNextVideo) {
  play(record(3), 0, false);
  const std::string holder = subscribe();
  const OXImage* const held = fDevice->getDirectRawImageLocal(holder);
  ASSERT_TRUE(held);
  const std::vector<unsigned char> before(held->fData, held->fData + 100);
  play(record(3, 1280, 960), 0, false);
  const std::string other = fDevice->subscribe("other", kQVGA, kYuv, 5);
  EXPECT_TRUE(fDevice->getImageRemote(other).isValid());
  EXPECT_EQ(std::vector<unsigned char>(held->fData, held->fData + 100), before);
  EXPECT_TRUE(fDevice->releaseDirectRawImage(holder));
}

// With five holds the slot to be read ahead is one of the held ones.
TEST_F(FileCamTest, APictureThatIsHeldSurvivesPreviousImage) {
  play(record(20), 0, false);
  const auto hold = [&](const char* pName) {
    fDevice->nextImage();
    return fDevice->getDirectRawImageLocal(subscribe(pName));
  };
  for (const char* const name : {"a", "b", "c", "d"}) ASSERT_TRUE(hold(name));
  const OXImage* const held = hold("e");
  ASSERT_TRUE(held);
  ASSERT_TRUE(fDevice->releaseDirectRawImage("a"));
  const std::vector<unsigned char> before(held->fData, held->fData + 100);
  fDevice->previousImage();
  EXPECT_EQ(std::vector<unsigned char>(held->fData, held->fData + 100), before);
  EXPECT_EQ(serve("a").substr(0, 2), "4@") << "two before the image that was read last";
  for (const char* const name : {"b", "c", "d", "e"})
    EXPECT_TRUE(fDevice->releaseDirectRawImage(name));
  fDevice->nextImage();
  EXPECT_EQ(serve("a").substr(0, 2), "5@");
}

TEST_F(FileCamTest, ItHasItsOwnMethodsAndItsOwnWords) {
  play(record(3), 0, false);
  const auto call = [&](const char* pMethod, OXValue pArguments) {
    return outcome([&] { return fBroker->call("OXVideoDevice", pMethod, pArguments); });
  };
  EXPECT_EQ(call("getParam", OXValue::array(0, 14)), "1") << "camera first here";
  EXPECT_EQ(call("getParam", OXValue::array(14, 0)), "OXError: pId not handled in fileCam");
  EXPECT_EQ(call("getParam", OXValue::array(3, 14)),
            "OXError: Invalid camera parameter input reference.");
  EXPECT_EQ(call("setActiveCamera", OXValue::array(0)), "true");
  EXPECT_EQ(call("putImage", OXValue::array(0, 320, 240, "x")),
            "OXError: Only implemented for simulator");
  EXPECT_EQ(call("getCurrentImageNumber", OXValue::array()), "-1");
  const std::string multi = fDevice->subscribeCameras("m", std::vector<int>{0}, std::vector<int>{1},
                                                      std::vector<int>{9}, 5);
  EXPECT_EQ(call("getImagesRemote", OXValue::array(multi)),
            "OXError: m failed to get images from one or several cameras");
  EXPECT_THAT(fLog.records(2), HasSubstr("xGetDirectRawImages(m) : FileCam doesn't provide "
                                         "MultiStream Management yet"));
}

// From the simulator's subscriber into a file and out of the file camera again.
TEST_F(SimulatorTest, WhatIsRecordedIsWhatIsReplayed) {
  constexpr int kImages = 90;
  const std::string file = testing::TempDir() + "/recorded" + std::to_string(::getpid()) + ".oxv";
  const std::string id = subscribe("a", kQVGA, kRGB, 30);
  push();
  fDevice->getImageRemote(id);
  ASSERT_TRUE(fDevice->recordVideo(id, file, kImages, 1));
  std::vector<OXValue> frames;
  const std::string witness = subscribe("witness");
  for (int i = 0; i < kImages; ++i) {
    fClock.advanceUs(1'033'333);
    push(0, 320, 240, i);
    ASSERT_TRUE(fDevice->getImageRemote(id).isValid());
    frames.push_back(fDevice->getDirectRawImageRemote(witness));
  }
  EXPECT_TRUE(fDevice->stopVideo(id));

  for (const int mode : {0, 1}) {
    SCOPED_TRACE("mode " + std::to_string(mode));
    const auto replayBroker = OXBroker::create();
    OXModule::createModule<OXMemory>(replayBroker);
    const auto camera = OXModule::createModule<OXVisionFileCam>(replayBroker);
    camera->setVideo(file, OXValue(), false, mode, 0);
    const std::string viewer = camera->subscribe("viewer", kQVGA, kYUV422, 30);
    // Mode 0 steps at the first request already; mode 1 goes with the recorded rhythm.
    for (int i = mode == 0 ? 1 : 0; i < kImages; ++i) {
      const OXValue image = camera->getDirectRawImageRemote(viewer);
      ASSERT_EQ(image, frames[static_cast<std::size_t>(i)]) << "image " << i;
      camera->nextImage();
      fClock.advanceUs(1'033'333);
    }
    replayBroker->shutdown();
  }
  std::filesystem::remove(file);
}

TEST_F(SimulatorTest, ARecordingTakesOneImageInAPeriodUntilItsTotal) {
  const struct {
    int total, period, requests, written;
    const char* why;
  } kCases[] = {
      {3, 2, 7, 3, "requests 2, 4 and 6"},
      {-1, 1, 4, 1, "there is no endless recording"},
      {3, 0, 5, 0, "a period of 0 never comes"},
      {3, INT32_MIN, 5, 0, "nor does the smallest one"},
  };
  const std::string file = testing::TempDir() + "/period" + std::to_string(::getpid()) + ".oxv";
  const std::string id = subscribe("a");
  for (const auto& test : kCases) {
    ASSERT_TRUE(fDevice->recordVideo(id, file, test.total, test.period)) << test.why;
    for (int i = 0; i < test.requests; ++i) {
      fClock.advanceUs(1'000'000);
      push();
      ASSERT_TRUE(fDevice->getDirectRawImageRemote(id).isValid());
    }
    fDevice->stopVideo(id);
    OXVideo video;
    ASSERT_TRUE(video.readVideo(file)) << test.why;
    EXPECT_EQ(video.getNumberOfImages(), test.written) << test.why;
  }
  EXPECT_FALSE(fDevice->recordVideo(id, "/no/such/folder/x.oxv", 3, 1));
  EXPECT_TRUE(fDevice->getDirectRawImageRemote(id).isValid()) << "a failed opening harms nothing";
  EXPECT_TRUE(fDevice->stopVideo(id));
  std::filesystem::remove(file);
}

}  // namespace
}  // namespace OX::test
