// The real programs: a broker with the simulator camera, fed and viewed by oxvideo.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <png.h>

#include <csignal>
#include <fstream>
#include <memory>
#include <sstream>

#include <oxframework/oxdefinitions.h>
#include <oxframework/oxremotebroker.h>
#include "child.h"
#include "device/imagereply.h"
#include "media/picture.h"
#include "recorded.h"
#include "recordings/inputrecording.h"
#include "scratch_folder.h"
#include "terminal/exitstatus.h"
#include "video_file.h"

namespace OX::test {
namespace {

using namespace cli;
using ::testing::AnyOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;

struct RunResult {
  int status;
  std::string out;
  std::string err;
};

std::string contentOf(const std::string& pPath) {
  std::ostringstream content;
  content << std::ifstream(pPath, std::ios::binary).rdbuf();
  return content.str();
}

struct Pixels {
  int width = 0;
  int height = 0;
  std::vector<unsigned char> rgb;
};

Pixels readPng(const std::string& pPath) {
  png_image image = {};
  image.version = PNG_IMAGE_VERSION;
  if (!png_image_begin_read_from_file(&image, pPath.c_str())) return {};
  image.format = PNG_FORMAT_RGB;
  Pixels pixels{static_cast<int>(image.width), static_cast<int>(image.height),
                std::vector<unsigned char>(PNG_IMAGE_SIZE(image))};
  png_image_finish_read(&image, nullptr, pixels.rgb.data(), 0, nullptr);
  return pixels;
}

std::vector<unsigned char> bytesOf(const CameraImage& pImage) {
  return {pImage.pixels, pImage.pixels + pImage.sizeBytes()};
}

class Programs : public ::testing::Test {
 protected:
  void SetUp() override {
    std::ofstream(file("VideoInput.xml"))
        << R"(<preferences module="VideoInput">)"
        << R"(<entry name="source" description="where images come from" value="SimulatorCam"/>)"
        << "</preferences>";
    startBroker();
  }

  void startBroker() {
    fBroker = std::make_unique<Child>(
        std::vector<std::string>{OXBROKER_PROGRAM, "--load", VIDEOINPUT_LIBRARY, "--preferences",
                                 file(""), "--listen", "unix:" + file("broker")},
        file("broker.log"));
    ASSERT_THAT(fBroker->readLine(), StartsWith("listening on ")) << contentOf(file("broker.log"));
  }

  void TearDown() override {
    fFeeder.reset();
    if (fBroker->id() < 0) return;  // the test has ended it
    fBroker->signal(SIGTERM);
    EXPECT_EQ(fBroker->wait(), 0) << contentOf(file("broker.log"));
  }

  std::string file(const std::string& pName) const { return fFolder.file(pName); }

  std::unique_ptr<Child> start(std::vector<std::string> pArguments, const char* pErrors) {
    pArguments.insert(pArguments.begin(), {OXVIDEO_PROGRAM, "--broker", "unix:" + file("broker")});
    return std::make_unique<Child>(pArguments, file(pErrors));
  }

  RunResult run(const std::vector<std::string>& pArguments) {
    const auto child = start(pArguments, "run.log");
    std::string out = child->readAll();
    const int status = child->wait();
    return {status, std::move(out), contentOf(file("run.log"))};
  }

  /// Feeds camera 0 from now on.
  void feed(std::vector<std::string> pArguments) {
    pArguments.insert(pArguments.begin(), "push");
    pArguments.insert(pArguments.end(), {"--camera", "0"});
    fFeeder = start(pArguments, "push.log");
  }

  /// A subscriber of a verb that has ended is unknown to the device.
  void expectUnsubscribed(const char* pVerb, pid_t pId) {
    const std::string id = std::string("oxvideo_") + pVerb + "_" + std::to_string(pId) + "_1";
    const RunResult ran = run({"call", "OXVideoDevice", "getResolution", id});
    EXPECT_EQ(ran.status, kFailed);
    EXPECT_THAT(ran.err, HasSubstr(id));
  }

  ScratchFolder fFolder;
  std::unique_ptr<Child> fBroker, fFeeder;
};

TEST_F(Programs, AVideoIsSeenUprightInItsColours) {
  VideoFile video;
  video.width = 640;
  video.height = 480;
  ASSERT_TRUE(writeVideo(file("quadrants.mkv"), video));
  feed({file("quadrants.mkv"), "--loop"});

  // Where a colour space loses something, what is left of the four colours. Hues come with room:
  // the device mixes green in them otherwise than in its RGB.
  const Rgb grey[4] = {{89, 89, 89}, {116, 116, 116}, {75, 75, 75}, {188, 188, 188}};
  const Rgb hues[4] = {{255, 0, 0}, {0, 255, 17}, {0, 32, 255}, {255, 240, 0}};
  const struct {
    const char* colorSpace;
    const char* resolution;
    int width;
    const Rgb (&expected)[4];
    int tolerance;
  } rows[] = {
      {"kRGB", "kVGA", 640, kQuadrants, 8},     {"kBGR", "kQVGA", 320, kQuadrants, 8},
      {"kYUV422", "kQVGA", 320, kQuadrants, 8}, {"kYUV", "kQQVGA", 160, kQuadrants, 8},
      {"kYYCbCr", "kVGA", 640, kQuadrants, 8},  {"kYuv", "kVGA", 640, grey, 8},
      {"kHSY", "kVGA", 640, kQuadrants, 60},    {"kH2RGB", "kVGA", 640, hues, 60},
  };
  for (const auto& row : rows) {
    const std::string png = file(std::string(row.colorSpace) + ".png");
    const RunResult ran = run(
        {"snapshot", "-o", png, "--colorspace", row.colorSpace, "--resolution", row.resolution});
    ASSERT_EQ(ran.status, kDone) << ran.err;
    const Pixels pixels = readPng(png);
    ASSERT_EQ(pixels.width, row.width);
    ASSERT_EQ(pixels.height, row.width * 3 / 4);
    EXPECT_EQ(quadrantFaults(pixels.rgb, pixels.width, pixels.height, row.expected, row.tolerance),
              "")
        << row.colorSpace;
  }
  for (const char* colorSpace : {"kHsy", "kHSMixed"})
    EXPECT_EQ(
        run({"snapshot", "-o", file("hue.png"), "--overwrite", "--colorspace", colorSpace}).status,
        kDone);

  fFeeder->signal(SIGINT);
  EXPECT_THAT(fFeeder->wait(), AnyOf(kDone, kDoneWithLosses)) << "a loop runs until it is stopped";
  EXPECT_THAT(contentOf(file("push.log")), HasSubstr(" pushed"));
}

TEST_F(Programs, PushComesBackAfterTheBroker) {
  feed({"test", "--fps", "30", "--reconnect"});
  const std::vector<std::string> look{"watch", "--frames", "2", "--fps", "30"};
  EXPECT_THAT(run(look).status, AnyOf(kDone, kDoneWithLosses));
  fBroker->signal(SIGTERM);
  ASSERT_EQ(fBroker->wait(), 0);
  startBroker();
  EXPECT_THAT(run(look).status, AnyOf(kDone, kDoneWithLosses));
  fFeeder->signal(SIGINT);
  EXPECT_THAT(fFeeder->wait(), AnyOf(kDone, kDoneWithLosses));
  EXPECT_THAT(contentOf(file("push.log")), HasSubstr("the broker is back after "));
}

TEST_F(Programs, WatchSeesFramesAndLeavesAtASignal) {
  feed({"test", "--fps", "30"});
  const RunResult some = run({"watch", "--frames", "10", "--fps", "30", "--json"});
  EXPECT_THAT(some.status, AnyOf(kDone, kDoneWithLosses)) << some.err;
  EXPECT_THAT(some.out, HasSubstr("\"summary\":{\"camera\":0,"));
  EXPECT_THAT(some.out, HasSubstr("\"frames\":10,"));

  const struct {
    std::vector<std::string> arguments;
    int signal;
    std::vector<int> statuses;
    const char* why;
  } rows[] = {
      {{"watch"}, SIGINT, {kDone, kDoneWithLosses}, "it runs until it is stopped"},
      {{"watch", "--frames", "1000000"}, SIGINT, {128 + SIGINT}, "cut short"},
      {{"watch", "--frames", "1000000"}, SIGTERM, {128 + SIGTERM}, "cut short"},
      {{"watch", "--frames", "1000000"}, SIGHUP, {128 + SIGHUP}, "cut short"},
  };
  for (const auto& row : rows) {
    const auto watch = start(row.arguments, "watch.log");
    EXPECT_THAT(watch->readLine(), HasSubstr("fps"));
    const pid_t id = watch->id();
    watch->signal(row.signal);
    EXPECT_THAT(watch->readAll(), HasSubstr("camera 0, kQVGA, kRGB")) << "the summary";
    EXPECT_THAT(row.statuses, ::testing::Contains(watch->wait())) << row.why;
    expectUnsubscribed("watch", id);
  }

  std::signal(SIGHUP, SIG_IGN);  // what this process ignores, its child does
  const auto nohup = start({"watch", "--frames", "10", "--fps", "5"}, "watch.log");
  std::signal(SIGHUP, SIG_DFL);
  nohup->readLine();
  nohup->signal(SIGHUP);
  EXPECT_THAT(nohup->readAll(), HasSubstr("10 frames"));
  EXPECT_THAT(nohup->wait(), AnyOf(kDone, kDoneWithLosses));

  const auto watch = start({"watch"}, "watch.log");
  watch->readLine();
  const pid_t id = watch->id();
  watch->closeOutput();
  EXPECT_EQ(watch->wait(), kDone) << "like watch | head -1";
  EXPECT_EQ(contentOf(file("watch.log")), "camera 0 runs at 320x240\n") << "no error";
  expectUnsubscribed("watch", id);
}

TEST_F(Programs, TheWayOutWithoutABrokerWorksWhenPasted) {
  const std::string address = "unix:" + file("another broker");
  const std::vector<std::string> cameras{OXVIDEO_PROGRAM, "--broker", address, "cameras"};
  EXPECT_EQ(Child(cameras, file("none.log")).wait(), kFailed);
  const std::string said = contentOf(file("none.log"));
  const std::size_t begin = said.find("start one: ");
  ASSERT_NE(begin, std::string::npos) << said;
  const std::string line = said.substr(begin + 11, said.find('\n', begin) - begin - 11);

  Child pasted({"/bin/sh", "-c", "cd / && exec " + line}, file("pasted.log"));
  EXPECT_EQ(pasted.readLine(), "listening on " + address) << line << contentOf(file("pasted.log"));
  Child found(cameras, file("none.log"));
  EXPECT_THAT(found.readAll(), HasSubstr("MT9M114"));
  EXPECT_EQ(found.wait(), kDone);
}

// The broker writes the file, so its end must close it; without an index it would be a damaged one.
TEST_F(Programs, ABrokerThatLosesItsTerminalClosesItsRecordings) {
  feed({"test", "--fps", "30"});
  ASSERT_EQ(run({"snapshot", "-o", file("a.png")}).status, kDone);
  const auto client = OXRemoteBroker::connect("unix:" + file("broker"));
  const auto call = [&](const char* pMethod, const OXValue& pArguments) {
    return client->call("OXVideoDevice", pMethod, pArguments);
  };
  const OXValue id = call("subscribeCamera", OXValue::array("left", 0, kQVGA, kYUV422, 30));
  ASSERT_TRUE(call("recordVideo", OXValue::array(id, file("left.oxv"), 100, 1)).toBool());
  bool recorded = false;
  for (int tries = 0; tries < 20 && !recorded; ++tries)
    recorded = parseImageReply(call("getDirectRawImageRemote", OXValue::array(id))).has_value();
  ASSERT_TRUE(recorded);
  fBroker->signal(SIGHUP);
  EXPECT_EQ(fBroker->wait(), 0) << contentOf(file("broker.log"));
  const RunResult verified = run({"verify", file("left.oxv")});
  EXPECT_EQ(verified.status, kDone) << verified.out << verified.err;
}

TEST_F(Programs, AFilmThatASignalCutsShortSaysSo) {
  VideoFile video;
  video.width = 160;
  video.height = 120;
  video.frames = 2000;
  video.fps = 5;
  video.color = [](int, double, double) { return Rgb{9, 9, 9}; };
  ASSERT_TRUE(writeVideo(file("long.mkv"), video));
  feed({file("long.mkv")});
  ASSERT_EQ(run({"snapshot", "-o", file("a.png")}).status, kDone);
  fFeeder->signal(SIGINT);
  EXPECT_EQ(fFeeder->wait(), 128 + SIGINT);
}

TEST_F(Programs, ACallsSubscriptionStaysIfItIsAskedTo) {
  const auto subscribe = [&](std::vector<std::string> pBegin, const char* pName) {
    pBegin.insert(pBegin.end(), {"OXVideoDevice", "subscribeCamera", pName, "0", "1", "11", "15"});
    return run(pBegin).out;
  };
  EXPECT_EQ(subscribe({"call", "--keep"}, "kept"), "\"kept\"\n");
  EXPECT_EQ(subscribe({"call"}, "gone"), "\"gone\"\n");
  RunResult looked{kDone, "", ""};
  for (int attempt = 0; attempt < 100 && looked.status != kFailed; ++attempt)
    looked = run({"call", "OXVideoDevice", "getResolution", "gone"});
  EXPECT_EQ(looked.status, kFailed) << "gone with the call's connection";
  EXPECT_EQ(run({"call", "OXVideoDevice", "getResolution", "kept"}).out, "1\n");
  EXPECT_EQ(run({"call", "OXVideoDevice", "unsubscribe", "kept"}).status, kDone);
}

TEST_F(Programs, TheServiceCanBeExploredAndSet) {
  EXPECT_THAT(run({"modules"}).out, HasSubstr("OXVideoDevice\n"));
  const RunResult methods = run({"methods", "OXVideoDevice"});
  EXPECT_THAT(methods.out, HasSubstr("OXVideoDevice: 84 methods"));
  EXPECT_THAT(methods.out, HasSubstr("bool setResolution(string name, int resolution)\n"));
  EXPECT_THAT(run({"methods", "OXVideoDevice", "--json"}).out,
              StartsWith("[{\"name\":\"unsubscribe\""));

  EXPECT_EQ(run({"call", "OXVideoDevice", "resolutionToSizes", "2"}).out, "[640,480]\n");
  EXPECT_EQ(run({"call", "OXVideoDevice", "nothing"}).status, kFailed);
  EXPECT_EQ(run({"set", "resolution", "kVGA", "--camera", "1"}).out, "kVGA\n");
  EXPECT_EQ(run({"set", "fps", "12", "--camera", "1"}).out, "15\n")
      << "what the camera makes of it";
  EXPECT_EQ(run({"get", "--parameter", "buffers"}).out, "4\n");
  EXPECT_THAT(run({"cameras"}).out, HasSubstr("1       MT9M114  kVGA 640x480"));
  EXPECT_EQ(run({"angles", "0.5", "0.5"}).out, "horizontal -0  vertical 0  degrees\n");
  EXPECT_EQ(run({"snapshot", "-o", file("a.png"), "--camera", "7"}).status, kFailed);
  EXPECT_EQ(run({"push", "test", "--camera", "7", "--size", "160x120", "--fps", "5"}).status,
            kFailed);
}

TEST_F(Programs, SeveralCamerasInOneCall) {
  feed({"test", "--camera", "1", "--fps", "15"});
  ASSERT_EQ(run({"snapshot", "-o", file("a.png"), "--camera", "1", "--resolution", "kVGA"}).status,
            kDone);
  const RunResult ran = run({"multi", "-o", file("now.png"), "--camera", "1", "--camera", "0",
                             "--resolution", "kVGA", "--resolution", "kQQVGA"});
  ASSERT_EQ(ran.status, kDone) << ran.err;
  EXPECT_EQ(readPng(file("now-1.png")).width, 640);
  EXPECT_EQ(readPng(file("now-0.png")).width, 160);
}

TEST_F(Programs, VerbsOutliveTheirBroker) {
  feed({"test", "--fps", "30"});
  const auto watch = start({"watch", "--reconnect", "--fps", "30"}, "watch.log");
  const auto record =
      start({"record", file("film.oxv"), "--frames", "100000", "--fps", "30"}, "record.log");
  for (int line = 0; line < 60 && contentOf(file("film.oxv")).size() < 1'000'000; ++line)
    watch->readLine();
  fBroker->signal(SIGKILL);
  fBroker->wait();
  EXPECT_EQ(record->wait(), kFailed);
  EXPECT_THAT(contentOf(file("record.log")), ::testing::ContainsRegex("film.oxv: [0-9]+ images, "))
      << "read from the file";
  EXPECT_THAT(contentOf(file("record.log")), HasSubstr("has ended"));

  startBroker();
  fFeeder.reset();
  feed({"test", "--fps", "30"});
  for (int line = 0; line < 60; ++line) {
    watch->readLine();
    if (contentOf(file("watch.log")).find("connected again") != std::string::npos) break;
  }
  EXPECT_THAT(contentOf(file("watch.log")), HasSubstr("connected again after"));
  const RunResult subscribers = run({"subscribers", "--json"});
  EXPECT_THAT(subscribers.out, HasSubstr("\"owner\":\"oxvideo_watch_"));
}

// A frame has the same bytes whether it is imported or pushed, and a picture those of kRGB.
TEST_F(Programs, PixelsAreThoseOfTheDevice) {
  const std::vector<unsigned char> rgb = noise(320 * 240 * 3, 7);
  std::ofstream(file("noise.png"), std::ios::binary) << encodePng({320, 240, rgb});
  ASSERT_EQ(run({"import", file("noise.png"), file("noise.oxv"), "--frames", "1"}).status, kDone);
  OXInputRecording recording(file("noise.oxv"));
  const CameraImage recorded = recording.image(0, 0);
  ASSERT_TRUE(recorded.pixels) << recording.error();

  const auto broker = OXRemoteBroker::connect("unix:" + file("broker"));
  const auto call = [&](const char* pMethod, const OXValue& pArguments) {
    return broker->call("OXVideoDevice", pMethod, pArguments);
  };
  OXValue pushed;
  pushed.SetBinary(rgb.data(), static_cast<int>(rgb.size()));
  const auto push = [&] {
    ASSERT_TRUE(call("putImage", OXValue::array(0, 320, 240, pushed)).toBool());
  };
  const OXValue id = call("subscribeCamera", OXValue::array("pixels", 0, kQVGA, kYUV422, 30));
  push();
  const auto raw = parseImageReply(call("getDirectRawImageRemote", OXValue::array(id)));
  ASSERT_TRUE(raw);
  EXPECT_EQ(bytesOf(*raw), bytesOf(recorded)) << "import";

  call("setColorSpace", OXValue::array(id, kRGB));
  push();
  const auto colors = parseImageReply(call("getImageRemote", OXValue::array(id)));
  ASSERT_TRUE(colors);
  for (const int colorSpace : {kYUV422, kYUV, kYYCbCr}) {
    call("setColorSpace", OXValue::array(id, colorSpace));
    push();
    const auto image = parseImageReply(call("getImageRemote", OXValue::array(id)));
    ASSERT_TRUE(image);
    ASSERT_EQ(image->colorSpace, colorSpace);
    EXPECT_EQ(toPicture(*image).rgb, bytesOf(*colors)) << "picture of " << colorSpace;
  }
  call("unsubscribe", OXValue::array(id));
}

}  // namespace
}  // namespace OX::test
