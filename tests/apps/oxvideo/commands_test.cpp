// The verbs against a device that answers as a test wants: what they ask, print and give back. They
// run in this process, so that a failure shows what was called.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <fstream>

#include <oxframework/oxremotebroker.h>
#include <oxframework/oxservices.h>
#include "fake_device.h"
#include "media/framesize.h"
#include "program.h"
#include "recorded.h"
#include "terminal/exitstatus.h"

namespace OX::test {
namespace {

using namespace cli;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

/// What went through a descriptor.
class Captured {
 public:
  Captured() : output(fDescriptor) {}
  ~Captured() { ::close(fDescriptor); }
  Captured(const Captured&) = delete;
  Captured& operator=(const Captured&) = delete;

  std::string text() const {
    std::string bytes(static_cast<std::size_t>(::lseek(fDescriptor, 0, SEEK_END)), '\0');
    if (::pread(fDescriptor, bytes.data(), bytes.size(), 0) < 0) return "unreadable";
    return bytes;
  }

 private:
  const int fDescriptor = ::memfd_create("captured", 0);

 public:
  OXOutput output;
};

struct RunResult {
  int status;
  std::string out;
  std::string err;
};

RunResult run(const std::vector<std::string>& pArguments) {
  Captured out, err;
  const int status = runProgram(pArguments, out.output, err.output);
  return {status, out.text(), err.text()};
}

class Verbs : public ::testing::Test {
 protected:
  explicit Verbs(bool pIsFileCamera = false) : fFake(pIsFileCamera) {}

  RunResult run(std::vector<std::string> pArguments) {
    pArguments.insert(pArguments.begin(), {"--broker", fFake.address});
    return test::run(pArguments);
  }

  FakeDevice& device() { return *fFake.device; }

  /// The calls so far of one method.
  std::vector<std::string> callsOf(const std::string& pMethod) {
    std::vector<std::string> result;
    for (const std::string& call : device().calls())
      if (call.starts_with(pMethod + "[")) result.push_back(call);
    return result;
  }

  /// Every subscription that was made was given up.
  void expectAllUnsubscribed() {
    const auto count = callsOf("subscribeCamera").size() + callsOf("subscribeCameras").size();
    EXPECT_GT(count, 0u);
    EXPECT_EQ(callsOf("unsubscribe").size(), count);
  }

  FakeBroker fFake;
};

class FileCameraVerbs : public Verbs {
 protected:
  FileCameraVerbs() : Verbs(true) {}
};

TEST(UsageErrors, IsSaidWithoutABroker) {
  const struct {
    std::vector<std::string> arguments;
    const char* said;
  } rows[] = {
      {{}, "no command given"},
      {{"frobnicate"}, "unknown command \"frobnicate\"\n"},
      {{"cameras", "--frob"}, "--frob"},
      {{"push", "test"}, "--camera"},
      {{"push", "test", "--camera", "-1"}, "--camera"},
      {{"push", "test", "--camera", "0", "--camera", "0"}, "twice"},
      {{"push", "test", "--camera", "0", "--size", "640x400"}, "or 160x120, 320x240"},
      {{"push", "test", "--camera", "0", "--fps", "0"}, "above 0"},
      {{"snapshot"}, "--output"},
      {{"snapshot", "-o", "a", "--colorspace", "kXYZ"}, "kYuv, kHsy, kYUV422"},
      {{"snapshot", "-o", "a", "--resolution", "kXGA"}, "kQQVGA, kQVGA, kVGA, k4VGA"},
      {{"snapshot", "-o", "-", "--json"}, "standard output"},
      {{"snapshot", "-o", "a.jpg"}, ".png"},
      {{"multi", "-o", "-", "--camera", "0", "--camera", "1"}, "one picture"},
      {{"watch", "--frames", "0"}, "--frames"},
      {{"call", "OXBroker"}, "METHOD"},
      {{"call", "OXBroker", "ping", "{}"}, "use an array"},
      {{"get"}, "--parameter"},
      {{"get", "zoom"}, "\"zoom\" is not a setting"},
      {{"get", "camera", "--camera", "1"}, "leave out --camera"},
      {{"get", "fps", "--camera", "1", "--subscriber", "s"}, "--subscriber"},
      {{"set", "resolution"}, "one value"},
      {{"set", "fps", "fast"}, "\"fast\" is not a value: expected a whole number"},
      {{"angles", "0.5"}, "SECOND"},
      {{"record", "a.oxv"}, "--frames"},
      {{"record", "a.oxv", "--frames", "0"}, "--frames 0: expected 1 or more\n"},
      {{"record", "a.oxv", "--frames", "x"}, "--frames x: expected a whole number, 1 or more\n"},
      {{"record", "a.oxv", "--frames", "1", "--timeout", "0"},
       "--timeout 0: expected 0.1 to 86400\n"},
      {{"play", "a.oxv", "--range", "9:3"}, "FIRST:LAST"},
      {{"play", "a.oxv", "--mode", "2"}, "--mode"},
      {{"play", "a.oxv", "--stream", "-1"}, "--stream -1: expected 0 or more\n"},
      {{"play", "a.oxv", "--stream", "99999999999"}, "expected 0 to 2147483647\n"},
      {{"set", "fps", "defualt"}, "did you mean default?"},
      {{"angles", "nan", "1"}, "FIRST nan: expected a number, -1000000 to 1000000\n"},
      {{"angles", "1e39", "1"}, "FIRST 1e39: expected -1000000 to 1000000\n"},
      {{"get", "fps", "--subscriber", ""}, "--subscriber \"\": expected a value\n"},
      {{"record", "", "--frames", "1"}, "OUT \"\": expected a value\n"},
      {{"call", "OXBroker", ""}, "METHOD \"\": expected a value\n"},
      {{"speed", "nan"}, "RATE nan: expected a number, 0.0001 to 10000\n"},
      {{"speed", "0"}, "RATE 0: expected 0.0001 to 10000\n"},
      {{"snapshot", "--camera", "300"}, "--camera 300: expected 0 to 255\n"},
      {{"snapshot", "--camera", "1.5"}, "--camera 1.5: expected a whole number, 0 to 255\n"},
      {{"multi", "--camera", "1", "--camera", "300"}, "--camera 300: expected 0 to 255\n"},
      {{"snapshot", "--camera", ""}, "--camera \"\": expected"},
      {{"snapshot", "--camera"}, "--camera needs a value\n"},
      {{"snapshot", "--camera", "0", "--camera", "1"}, "--camera was given 2 times"},
      {{"--color", "alway", "cameras"}, "expected auto, always or never; did you mean always?"},
      {{"snapsht"}, "unknown command \"snapsht\"; did you mean snapshot?"},
      {{"cameras", "--brokr=x"}, "unknown option \"--brokr\"; did you mean --broker?"},
      {{"--brokr", "x", "cameras"}, "unknown option \"--brokr\"; did you mean --broker?"},
      {{"next", "1"}, "unexpected word \"1\"\n"},
  };
  for (const auto& row : rows) {
    const RunResult ran = run(row.arguments);
    const std::string line = ::testing::PrintToString(row.arguments);
    EXPECT_EQ(ran.status, kUsageError) << line;
    EXPECT_THAT(ran.err, HasSubstr(row.said)) << line;
    EXPECT_EQ(ran.out, "") << line;
  }
}

TEST(UsageErrors, HelpOfEveryVerbShowsAnExample) {
  for (const char* verb :
       {"modules", "methods", "call", "cameras", "subscribers", "push", "snapshot", "watch", "get",
        "set", "multi", "angles", "record", "play", "next", "previous", "speed", "position"}) {
    const RunResult ran = run({verb, "--help"});
    EXPECT_EQ(ran.status, kDone) << verb;
    EXPECT_THAT(ran.out, HasSubstr("Example:\n  oxvideo " + std::string(verb))) << verb;
  }
}

TEST(NoBroker, TheAddressAndAWayOutAreNamed) {
  const ScratchFolder folder;
  const std::string address = "unix:" + folder.file("nobody");
  const RunResult ran = run({"cameras", "--broker", address});
  EXPECT_EQ(ran.status, kFailed);
  EXPECT_THAT(ran.err, HasSubstr("no broker at " + address));
  EXPECT_THAT(ran.err, HasSubstr("oxbroker --load libvideoinput.so --listen " + address));
}

TEST_F(Verbs, CallHandsOverJsonAndShowsTheResult) {
  device().answer("echo", [](const OXValue& p) { return p; });
  const RunResult ran =
      run({"call", "OXVideoDevice", "echo", "[1,[2.5]]", "-3", "word", "watch", "--flag", "null"});
  EXPECT_EQ(ran.status, kDone) << ran.err;
  EXPECT_EQ(ran.out, "[[1,[2.5]],-3,\"word\",\"watch\",\"--flag\",null]\n");

  device().answer("getImageRemote", [](const OXValue&) { return imageReply(1); });
  const std::string file = fFake.folder.file("pixels");
  const RunResult image = run({"call", "OXVideoDevice", "getImageRemote", "me", "--output", file});
  EXPECT_THAT(image.out, HasSubstr("{\"binary\":57600}"));
  EXPECT_EQ(std::filesystem::file_size(file), 57600u);
  const std::size_t calls = device().calls().size();
  EXPECT_THAT(run({"call", "OXVideoDevice", "getImageRemote", "me", "-o", file}).err,
              HasSubstr("--overwrite"));
  EXPECT_EQ(device().calls().size(), calls) << "refused before the call";
  EXPECT_EQ(run({"call", "OXVideoDevice", "echo", "-o", file, "--overwrite"}).status, kFailed)
      << "no binary";
  EXPECT_EQ(std::filesystem::file_size(file), 57600u) << "the former content stays";
  EXPECT_EQ(run({"call", "OXVideoDevice", "getImageRemote", "me", "-o", "-"}).out.size(), 57600u);
  EXPECT_EQ(run({"call", "OXVideoDevice", "echo", "-o", "-", "--json"}).status, kUsageError);

  device().answer("refuse", [](const OXValue&) -> OXValue {
    throw OXError("Camera", "refuse()", "max is \x01", "some/place.cpp", 7);
  });
  const RunResult refused = run({"call", "OXVideoDevice", "refuse"});
  EXPECT_EQ(refused.status, kFailed);
  EXPECT_EQ(refused.err, "oxvideo: error: Camera::refuse()\n\tmax is \\x01\n")
      << "made safe for a terminal";
  EXPECT_THAT(run({"-v", "call", "OXVideoDevice", "refuse"}).err,
              HasSubstr("\n\tsome/place.cpp:7"));
}

TEST_F(Verbs, AnErrorOfTheDeviceIsFollowedByWhatWouldBeRight) {
  device().answer("getCameraModel", [](const OXValue& p) -> OXValue {
    if (p[0].toInt() < 2) return 2;
    throw OXError("OXVideoDevice", "getCameraModel", "getCameraModel(2) : invalid Camera index", "",
                  0);
  });
  const struct {
    const char* text;
    const char* hint;
  } rows[] = {
      {"getFrameRate(9) : invalid Camera index", "\n  this device has cameras 0 and 1\n"},
      {"GetFrameRate(no) : module no unknown!", "\n  no subscriber has this id"},
      {"Bad input parameter ID", "frame-rate, buffers"},
      {"There is no module \"OXVideDevice\"", "did you mean OXVideoDevice?\n"},
      {"replay mode 3 unknown!", "replay mode 3 unknown!\n"},
  };
  for (const auto& row : rows) {
    device().answer("fail", [&row](const OXValue&) -> OXValue {
      throw OXError("OXVideoDevice", "fail", row.text, "", 0);
    });
    const RunResult ran = run({"call", "OXVideoDevice", "fail"});
    EXPECT_EQ(ran.status, kFailed) << row.text;
    EXPECT_THAT(ran.err, HasSubstr(row.hint)) << row.text;
  }
  EXPECT_THAT(run({"methods", "OXVideoDevise"}).err, HasSubstr("did you mean OXVideoDevice?\n"));
  EXPECT_THAT(run({"call", "OXBroker", "getModuleLst"}).err,
              HasSubstr("lists its methods; did you mean getModuleList?\n"));
}

TEST_F(Verbs, CamerasAreAskedForUntilThereIsNoFurtherOne) {
  device().answer("getCameraModel", [](const OXValue& p) -> OXValue {
    if (p[0].toInt() < 2) return 2;
    throw OXError("OXVideoDevice", "getCameraModel", "getCameraModel(2) : invalid Camera index", "",
                  0);
  });
  for (const char* method : {"getResolution", "getActiveCamera"})
    device().answer(method, [](const OXValue&) { return 1; });
  device().answer("getColorSpace", [](const OXValue&) { return 9; });
  device().answer("getFrameRate", [](const OXValue& p) { return 5 + p[0].toInt(); });
  device().answer("isFrameGrabberOff", [](const OXValue& p) { return p[0].toInt() == 0; });
  EXPECT_EQ(run({"cameras"}).out,
            "CAMERA  MODEL    RESOLUTION     COLOUR SPACE  FPS  GRABBER\n"
            "0       MT9M114  kQVGA 320x240  kYUV422       5    off\n"
            "1 *     MT9M114  kQVGA 320x240  kYUV422       6    running\n");
  EXPECT_THAT(
      run({"cameras", "--json"}).out,
      StartsWith("[{\"camera\":0,\"model\":\"MT9M114\",\"resolution\":\"kQVGA\",\"width\":320,"));

  device().answer("getCameraModel", [](const OXValue&) -> OXValue {
    throw OXError("OXVideoDevice", "getCameraModel", "out of order", "", 0);
  });
  EXPECT_EQ(run({"cameras"}).status, kFailed) << "another error isn't the end of the cameras";
}

TEST_F(Verbs, SnapshotLeavesNothingBehindWhateverComes) {
  const std::string file = fFake.folder.file("a.png");
  const struct {
    OXValue reply;
    int status;
    const char* said;
  } rows[] = {
      {imageReply(5), kDone, "160x120 kRGB"},
      {OXValue(), kFailed, "no frame"},
      {OXValue("surprise"), kFailed, "invalid image"},
      {imageReply(5, 3), kFailed, "colour space 3"},
  };
  for (const auto& row : rows) {
    device().answer("getResolution", [](const OXValue&) { return 0; });
    device().answer("getImageRemote", [&row](const OXValue&) { return row.reply; });
    const RunResult ran = run({"snapshot", "-o", file, "--timeout", "0"});
    EXPECT_EQ(ran.status, row.status) << row.said;
    EXPECT_THAT(ran.err, HasSubstr(row.said));
    EXPECT_EQ(std::filesystem::remove(file), row.status == kDone) << row.said;
    expectAllUnsubscribed();
  }
  device().answer("getImageRemote", [](const OXValue&) { return imageReply(5); });
  EXPECT_THAT(run({"snapshot", "-o", "-"}).out, StartsWith("\x89PNG"));
  // A link, so that no device is at risk.
  const std::string link = fFake.folder.file("full");
  std::filesystem::create_symlink("/dev/full", link);
  const RunResult full = run({"snapshot", "-o", link});
  EXPECT_EQ(full.status, kFailed);
  EXPECT_THAT(full.err, HasSubstr("No space left on device"));
  EXPECT_TRUE(std::filesystem::is_symlink(link)) << "what isn't a file of ours stays";
  expectAllUnsubscribed();
}

TEST_F(Verbs, ASubscriptionThatFailsIsTakenBackAllTheSame) {
  device().answer("subscribeCamera", [](const OXValue&) -> OXValue {
    throw OXError("OXVideoDevice", "subscribe", "Could not launch the startFrameGrabber function.",
                  "", 0);
  });
  device().answer("getResolution", [](const OXValue&) { return 0; });
  EXPECT_EQ(run({"snapshot", "-o", fFake.folder.file("a.png")}).status, kFailed);
  expectAllUnsubscribed();
}

TEST_F(Verbs, WatchCountsEachFrameOnce) {
  std::atomic<int> asked = 0;
  device().answer("getFrameRate", [](const OXValue&) { return 200; });
  device().answer("getResolution", [](const OXValue&) { return 0; });
  // Each frame three times, and every tenth request brings none.
  device().answer("getImageRemote", [&asked](const OXValue&) {
    const int request = asked++;
    return request % 10 == 9 ? OXValue() : imageReply(1 + request / 3);
  });
  const RunResult ran = run({"watch", "--frames", "5", "--json"});
  EXPECT_EQ(ran.status, kDoneWithLosses) << ran.err;
  EXPECT_THAT(ran.out, HasSubstr("\"frames\":5,"));
  EXPECT_THAT(ran.out, HasSubstr("\"requests\":13,"));
  EXPECT_THAT(ran.out, HasSubstr("\"empty\":1}"));
  expectAllUnsubscribed();

  device().answer("getImageRemote", [](const OXValue&) { return OXValue(); });
  EXPECT_EQ(run({"watch", "--frames", "5", "--timeout", "0"}).status, kFailed);
  expectAllUnsubscribed();
}

TEST_F(Verbs, FramesAreWaitedForWhereTheBrokerSaysWhen) {
  const boost::shared_ptr<FakeDevice> streams(new FakeDevice(fFake.broker, false, "OXVideoStream"));
  streams->initModule();
  std::atomic<int> asked = 0;
  streams->answer("open", [](const OXValue& p) { return p[0]; });
  streams->answer("statistics", [](const OXValue&) { return OXValue::array(4, 2, 0, 0, 0, 0); });
  // Two requests whose time is over for each frame.
  streams->answer("next", [&asked](const OXValue&) {
    return ++asked % 3 == 0 ? imageReply(asked) : OXValue();
  });
  device().answer("getFrameRate", [](const OXValue&) { return 30; });
  device().answer("getResolution", [](const OXValue&) { return 0; });
  const RunResult watched = run({"watch", "--frames", "4", "--json"});
  EXPECT_EQ(watched.status, kDone) << watched.err;
  for (const char* part : {"\"frames\":4,", "\"requests\":12,", "\"skipped\":2,"})
    EXPECT_THAT(watched.out, HasSubstr(part));
  EXPECT_THAT(callsOf("getImageRemote"), ::testing::IsEmpty());
  EXPECT_THAT(run({"watch", "--frames", "4"}).out, HasSubstr("push to receipt"));

  // What the camera has already may do; a film that is paused brings nothing else.
  device().answer("getImageRemote", [](const OXValue&) { return imageReply(5); });
  const std::string picture = fFake.folder.file("a.png");
  EXPECT_EQ(run({"snapshot", "-o", picture}).status, kDone);
  EXPECT_EQ(asked, 24);
  device().answer("getImageRemote", [](const OXValue&) { return OXValue(); });
  EXPECT_EQ(run({"snapshot", "-o", picture, "--overwrite"}).status, kDone);
  EXPECT_EQ(asked, 27);
  EXPECT_THAT(callsOf("subscribeCamera"), ::testing::IsEmpty());
  const std::vector<std::string> calls = streams->calls();
  const auto count = [&](const std::string& pMethod) {
    return std::count_if(calls.begin(), calls.end(), [&](const std::string& pCall) {
      return pCall.starts_with(pMethod + "[");
    });
  };
  EXPECT_EQ(count("open"), 4);
  EXPECT_EQ(count("close"), 4);
}

TEST_F(Verbs, WatchEndsQuietlyWhenNobodyReadsIt) {
  std::signal(SIGPIPE, SIG_IGN);
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  ::close(ends[0]);
  device().answer("getFrameRate", [](const OXValue&) { return 200; });
  device().answer("getResolution", [](const OXValue&) { return 0; });
  device().answer("getImageRemote", [](const OXValue&) { return imageReply(1); });
  OXOutput closed(ends[1]);
  Captured err;
  EXPECT_EQ(runProgram({"watch", "--frames", "1", "--broker", fFake.address}, closed, err.output),
            kDone);
  EXPECT_EQ(err.text(), "camera 0 runs at 160x120\n");
  ::close(ends[1]);
  expectAllUnsubscribed();
}

TEST_F(Verbs, PushFeedsWhatIsExpected) {
  device().answer("getExpectedImageParameters",
                  [](const OXValue&) { return OXValue::array(OXValue::array(160, 120), 100); });
  device().answer("putImage", [](const OXValue& p) { return p[3].getSize() == 160 * 120 * 3; });
  const RunResult ran = run({"push", "test", "--camera", "1", "--camera", "0", "--frames", "3"});
  EXPECT_TRUE(ran.status == kDone || ran.status == kDoneWithLosses) << ran.status << ran.err;
  EXPECT_THAT(ran.err, HasSubstr("camera 1: 3 pushed, "));
  EXPECT_EQ(callsOf("putImage").size(), 6u);
  EXPECT_EQ(callsOf("putImage").front(), "putImage[1,160,120,{\"binary\":57600}]");

  // A broker without events is asked again, sooner than 250 frames have gone.
  std::atomic<int> asked = 0;
  device().answer("getExpectedImageParameters", [&asked](const OXValue&) {
    const bool first = asked++ == 0;
    return OXValue::array(first ? OXValue::array(160, 120) : OXValue::array(320, 240), 100);
  });
  device().answer("putImage", [](const OXValue& p) { return p[3].isBinary(); });
  run({"push", "test", "--camera", "0", "--frames", "250"});
  EXPECT_EQ(callsOf("putImage").back(), "putImage[0,320,240,{\"binary\":230400}]");

  device().answer("putImage", [](const OXValue&) { return false; });
  const RunResult refused = run({"push", "test", "--camera", "0"});
  EXPECT_EQ(refused.status, kFailed);
  EXPECT_THAT(refused.err, HasSubstr("refused a frame of 320x240"));

  device().answer("getExpectedImageParameters",
                  [](const OXValue&) { return OXValue::array(OXValue::array(-1, -1), 5); });
  EXPECT_EQ(run({"push", "test", "--camera", "0"}).status, kFailed);
  EXPECT_THAT(run({"push", fFake.folder.file("no.mp4"), "--camera", "0", "--size", "160x120"}).err,
              HasSubstr("[[-1,-1],5]"));
}

TEST_F(Verbs, PushFollowsTheEventAtOnce) {
  OXModule::createModule<OXMemory>(fFake.broker);
  device().answer("getExpectedImageParameters",
                  [](const OXValue&) { return OXValue::array(OXValue::array(160, 120), 1); });
  device().answer("putImage", [this](const OXValue& p) {
    const auto raise = [&](const OXValue& pValue) {
      fFake.broker->call("OXMemory", "raiseEvent",
                         OXValue::array("VideoInput/ExpectedImage", pValue));
    };
    if (p[1].toInt() != 160) return true;
    raise("nonsense");
    raise(OXValue::array(-1, 640, 480, 30));
    raise(OXValue::array(1, 640, 480, 30));
    raise(OXValue::array(0, 320, 240, 50));
    return true;
  });
  const auto began = std::chrono::steady_clock::now();
  const RunResult ran = run({"push", "test", "--camera", "0", "--frames", "5"});
  // At one a second, as it began, that would take four.
  EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(2)) << ran.err;
  EXPECT_EQ(callsOf("getExpectedImageParameters").size(), 1u);
  const auto larger = StartsWith("putImage[0,320,240");
  EXPECT_THAT(callsOf("putImage"),
              ElementsAre(StartsWith("putImage[0,160,120"), larger, larger, larger, larger));
}

// Pushed, skipped and dropped add up, whatever the machine was busy with.
TEST_F(Verbs, PushAccountsForEveryFrameOfTheSource) {
  device().answer("putImage", [](const OXValue&) { return true; });
  const struct {
    std::vector<std::string> options;
    int fps;  ///< that the camera expects
    int frames;
    const char* said;
    const char* why;
  } rows[] = {
      {{"lavfi:color=size=32x24:rate=50:duration=0.6"},
       10,
       30,
       " skipped (nobody wanted more), ",
       "a camera that takes fewer"},
      {{"lavfi:color=size=32x24:rate=50:duration=0.6", "--fps", "10"},
       30,
       30,
       " skipped (--fps 10), ",
       "a user who wants fewer"},
      {{"lavfi:color=size=32x24:rate=10:duration=0.6"},
       50,
       6,
       " of them again), 0 skipped, ",
       "a camera that takes more"},
  };
  for (const auto& row : rows) {
    device().answer("getExpectedImageParameters", [&](const OXValue&) {
      return OXValue::array(OXValue::array(160, 120), row.fps);
    });
    std::vector<std::string> arguments{"push"};
    arguments.insert(arguments.end(), row.options.begin(), row.options.end());
    arguments.insert(arguments.end(), {"--camera", "0", "--json"});
    const RunResult ran = run(arguments);
    EXPECT_THAT(ran.err, HasSubstr(row.said)) << row.why;
    const auto value = [&](const std::string& pName) {
      const auto at = ran.out.find("\"" + pName + "\":");
      return at == std::string::npos ? -1000 : std::stoi(ran.out.substr(at + pName.size() + 3));
    };
    EXPECT_EQ(value("frames"), row.frames) << row.why << ran.out;
    const int counted = value("pushed") - value("repeated") + value("skipped");
    // A slot that was missed accounts for a frame at most: it might have had none of its own.
    EXPECT_LE(counted, row.frames) << row.why << ran.out;
    EXPECT_GE(counted + value("dropped"), row.frames) << row.why << ran.out;
  }
}

/// Tells what it is given of one camera.
class FakeStatus : public OXModule {
 public:
  FakeStatus(boost::shared_ptr<OXBroker> pBroker, OXValue pCameras)
      : OXModule(std::move(pBroker), "OXVideoStatus"), fCameras(std::move(pCameras)) {}
  void execute(const std::string&, const OXValue&, OXValue& pResult) override {
    pResult = fCameras;
  }

 private:
  const OXValue fCameras;
};

TEST_F(Verbs, PushLeavesACameraToItsFeeder) {
  device().answer("getExpectedImageParameters",
                  [](const OXValue&) { return OXValue::array(OXValue::array(160, 120), 50); });
  device().answer("putImage", [](const OXValue&) { return true; });
  const auto client = OXRemoteBroker::connect(fFake.address);
  client->call("OXBroker", "setClientName", OXValue::array("oxvideo push test"));
  // As the service describes a connection without a name.
  const std::string address = fFake.address + " (process " + std::to_string(::getpid()) +
                              ", user " + std::to_string(::getuid()) + ")";
  const struct {
    const char* feeder;
    int ageMs;
    const char* kind;
    bool isRefused;
    const char* why;
  } rows[] = {
      {"oxvideo push test", 100, "push", true, "somebody is there"},
      {"oxvideo push film.mkv", 100, "push", false, "somebody who has gone"},
      {address.c_str(), 100, "push", true, "somebody without a name"},
      {"local", 2000, "push", true, "a module of the broker"},
      {"oxvideo push test", 2001, "push", false, "it has stopped"},
      {"", -1, "push", false, "never fed"},
      {"", 10, "replay", false, "a file camera, which refuses by itself"},
  };
  for (const auto& row : rows) {
    const OXValue size = OXValue::array(160, 120);
    const OXValue camera =
        OXValue::array(0, 2, size, 9, 5, 3, OXValue::array(size), 5, 30, OXValue::array(1, 0), size,
                       row.feeder, 30.0f, 0, row.ageMs, row.kind);
    boost::shared_ptr<FakeStatus>(new FakeStatus(fFake.broker, OXValue::array(camera)))
        ->initModule();
    std::vector<std::string> arguments{"push", "test", "--camera", "0", "--frames", "1"};
    const RunResult ran = run(arguments);
    EXPECT_EQ(ran.status, row.isRefused ? kFailed : kDone) << row.why << ran.err;
    if (row.isRefused) {
      EXPECT_THAT(ran.err, HasSubstr(std::string("camera 0 is being fed by ") + row.feeder));
      EXPECT_THAT(ran.err, HasSubstr("--anyway"));
    }
    arguments.push_back("--anyway");
    EXPECT_EQ(run(arguments).status, kDone) << row.why;
    fFake.broker->unregisterModule("OXVideoStatus");
  }
}

TEST_F(Verbs, GetAndSetReachTheRightOperation) {
  device().answer("getActiveCamera", [](const OXValue&) { return 1; });
  std::atomic<int> value = 1;
  for (const char* method :
       {"getResolution", "getColorSpace", "getFrameRate", "getParam", "getCameraParameter"})
    device().answer(method, [&value](const OXValue&) { return value.load(); });
  for (const char* method :
       {"setResolution", "setActiveCamera", "setCameraParameter", "setCameraParameterToDefault"})
    device().answer(method, [](const OXValue&) { return true; });
  device().answer("setParam", [&value](const OXValue& p) {
    if (p[1].toInt() != 3) value = p[1].toInt();
    return OXValue();
  });
  const struct {
    std::vector<std::string> arguments;
    const char* call;
    int status;
  } rows[] = {
      {{"get", "resolution"}, "getResolution[1]", kDone},
      {{"get", "fps", "--camera", "0"}, "getFrameRate[0]", kDone},
      {{"get", "colorspace", "--subscriber", "s"}, "getColorSpace[\"s\"]", kDone},
      {{"get", "camera"}, "getActiveCamera[]", kDone},
      {{"get", "camera", "--subscriber", "s"}, "getActiveCamera[\"s\"]", kDone},
      {{"get", "--parameter", "buffers", "--camera", "0"}, "getParam[16,0]", kDone},
      {{"get", "--parameter", "15", "--subscriber", "s"}, "getCameraParameter[\"s\",15]", kDone},
      {{"set", "resolution", "kVGA", "--camera", "0"}, "setParam[14,2,0]", kDone},
      {{"set", "fps", "3", "--camera", "0"}, "setParam[15,3,0]", kFailed},
      {{"set", "resolution", "kVGA", "--subscriber", "s"}, "setResolution[\"s\",2]", kDone},
      {{"set", "camera", "1"}, "setActiveCamera[1]", kDone},
      {{"set", "--parameter", "resolution", "VGA", "--subscriber", "s"},
       "setCameraParameter[\"s\",14,2]",
       kDone},
      {{"set", "--parameter", "select", "default"}, "setParamDefault[18]", kDone},
      {{"set", "fps", "default", "--subscriber", "s"},
       "setCameraParameterToDefault[\"s\",15]",
       kDone},
      {{"set", "fps", "default", "--camera", "0"}, "", kUsageError},
  };
  for (const auto& row : rows) {
    const std::size_t before = device().calls().size();
    const RunResult ran = run(row.arguments);
    const auto calls = device().calls();
    const std::string line = ::testing::PrintToString(row.arguments);
    EXPECT_EQ(ran.status, row.status) << line << ran.err;
    const auto added =
        std::vector<std::string>(calls.begin() + static_cast<std::ptrdiff_t>(before), calls.end());
    if (row.status != kUsageError) {
      EXPECT_THAT(added, ::testing::Contains(row.call)) << line;
    }
  }
  EXPECT_EQ(run({"get", "resolution"}).out, "kVGA\n");
  EXPECT_EQ(run({"get", "resolution", "--json"}).out,
            "{\"name\":\"resolution\",\"value\":2,\"text\":\"kVGA\"}\n");
  EXPECT_THAT(run({"set", "fps", "3"}).err, HasSubstr("asked for 3, camera 1 stays at 2\n"));
  device().answer("setParam", [&value](const OXValue&) {
    value = 15;
    return OXValue();
  });
  const RunResult rounded = run({"set", "fps", "12"});
  EXPECT_EQ(rounded.out + rounded.err, "15\nasked for 12, got 15\n");
  device().answer("setResolution", [](const OXValue&) { return false; });
  EXPECT_EQ(run({"set", "resolution", "kVGA", "--subscriber", "s"}).status, kFailed);
}

TEST_F(Verbs, MultiWritesAFileForEachCameraAndCountsTheMissing) {
  device().answer("getResolution", [](const OXValue&) { return 0; });
  OXValue image = imageReply(5);
  const OXValue pixels = image[6];
  image[6] = OXValue(OXValue::Array());
  device().answer("getImagesRemote", [=](const OXValue&) {
    return OXValue::array(image, OXValue(OXValue::Array()), pixels);
  });
  const RunResult ran = run({"multi", "-o", fFake.folder.file("now.png"), "--camera", "1",
                             "--camera", "0", "--colorspace", "kRGB", "--colorspace", "kHSY"});
  EXPECT_EQ(ran.status, kDoneWithLosses) << ran.err;
  EXPECT_EQ(ran.out, fFake.folder.file("now-1.png") + "\n");
  EXPECT_TRUE(std::filesystem::exists(fFake.folder.file("now-1.png")));
  EXPECT_THAT(callsOf("subscribeCameras").front(), HasSubstr(",[1,0],[0,0],[11,12],5]"));
  expectAllUnsubscribed();

  device().answer("getImagesRemote", [](const OXValue&) { return OXValue(); });
  EXPECT_EQ(run({"multi", "-o", "x.png", "--camera", "0"}).status, kFailed);
  EXPECT_EQ(
      run({"multi", "-o", "x.png", "--camera", "0", "--colorspace", "kHSY", "--colorspace", "kRGB"})
          .status,
      kUsageError);
}

TEST_F(Verbs, AnglesGoThereAndBackInBothUnits) {
  device().answer("getAngularPositionFromImagePosition",
                  [](const OXValue&) { return OXValue::array(0.5f, -0.25f); });
  device().answer("getImagePositionFromAngularPosition", [](const OXValue& p) { return p[1]; });
  EXPECT_EQ(run({"angles", "0.25", "0.75", "--unit", "radians"}).out,
            "horizontal 0.5  vertical -0.25  radians\n");
  EXPECT_EQ(run({"angles", "0.25", "0.75"}).out,
            "horizontal 28.6479  vertical -14.3239  degrees\n");
  EXPECT_EQ(run({"angles", "180", "-90", "--back"}).out, "x 3.14159  y -1.5708\n");
  device().answer("getAngularSizeFromImageSize", [](const OXValue&) { return OXValue("no"); });
  EXPECT_EQ(run({"angles", "1", "1", "--extent"}).status, kFailed);
}

TEST_F(Verbs, RecordAsksOnceForEachNewFrame) {
  std::atomic<int> clock = 0;
  device().answer("getFrameRate", [](const OXValue&) { return 200; });
  device().answer("getResolution", [](const OXValue&) { return 0; });
  device().answer("recordVideo", [](const OXValue&) { return true; });
  // A new frame at every third look.
  device().answer("getImageRemote",
                  [&clock](const OXValue&) { return imageReply(1 + clock++ / 3, kYuv); });
  device().answer("getDirectRawImageRemote",
                  [&clock](const OXValue&) { return imageReply(1 + clock / 3, kYUV422); });
  const RunResult ran =
      run({"record", "some/out.oxv", "--camera", "0", "--frames", "4", "--period", "2"});
  EXPECT_EQ(ran.status, kDone) << ran.err;
  EXPECT_EQ(callsOf("getDirectRawImageRemote").size(), 8u);
  ASSERT_EQ(callsOf("recordVideo").size(), 1u);
  EXPECT_THAT(callsOf("recordVideo").front(),
              HasSubstr("\"" + std::filesystem::absolute("some/out.oxv").string() + "\",4,2]"));
  EXPECT_EQ(callsOf("stopVideo").size(), 1u);
  expectAllUnsubscribed();

  device().answer("recordVideo", [](const OXValue&) { return false; });
  EXPECT_EQ(run({"record", "out.oxv", "--frames", "1"}).status, kFailed);
  device().answer("recordVideo", [](const OXValue&) { return true; });
  device().answer("getImageRemote", [](const OXValue&) { return OXValue(); });
  EXPECT_THAT(run({"record", "out.oxv", "--frames", "1", "--timeout", "0.1"}).err,
              HasSubstr("ended after 0 of 1 frames"));
  expectAllUnsubscribed();
}

/// The fake device with the service beside it, which tells what a test wants.
class StatusVerbs : public Verbs {
 protected:
  StatusVerbs() {
    fStatus.reset(new FakeDevice(fFake.broker, false, "OXVideoStatus"));
    fStatus->initModule();
    device().answer("getActiveCamera", [](const OXValue&) { return 0; });
    device().answer("getResolution", [](const OXValue&) { return 0; });
    device().answer("getFrameRate", [](const OXValue&) { return 30; });
    device().answer("getImageRemote", [](const OXValue&) { return imageReply(5000); });
    device().answer("getDirectRawImageRemote", [](const OXValue&) { return imageReply(5000); });
    device().answer("recordVideo", [](const OXValue&) { return true; });
    tellCamera({160, 120}, {160, 120}, 12);
    fStatus->answer("getSubscribers", [](const OXValue&) { return OXValue(OXValue::Array()); });
  }

  /// Camera 0 runs at a size and was pushed another one this long ago, with the stamp 5 ms.
  void tellCamera(FrameSize pRunsAt, FrameSize pPushed, int pAgeMs, bool pIsReplay = false,
                  int pStampUs = 5000) {
    const OXValue sizes = OXValue::array(OXValue::array(160, 120), OXValue::array(1280, 960));
    const OXValue camera = OXValue::array(
        0, 2, OXValue::array(pRunsAt.width, pRunsAt.height), 9, 30, 3, sizes, 5, 30,
        OXValue::array(0, pStampUs), OXValue::array(pPushed.width, pPushed.height), "feeder", 30.0f,
        0, pAgeMs, pIsReplay ? "replay" : "push", "a field of a later version");
    fStatus->answer("getCameras", [camera](const OXValue&) { return OXValue::array(camera); });
  }

  void tellRecording(int pImages, const char* pState, const char* pReason, int pMissing) {
    fStatus->answer("getRecordings", [=, this](const OXValue&) {
      const std::string call = callsOf("recordVideo").back();
      const std::string id = call.substr(13, call.find('"', 13) - 13);
      return OXValue::array(OXValue::array(id, "x.oxv", pImages, pImages * 614400.0f, pState,
                                           pReason, pMissing, OXValue::array(7, 0),
                                           OXValue::array(8, 500000), 90, 30, 1));
    });
  }

  boost::shared_ptr<FakeDevice> fStatus;
};

TEST_F(StatusVerbs, SnapshotSaysWhatItWasMadeOf) {
  const std::string file = fFake.folder.file("a.png");
  const struct {
    const char* why;
    FrameSize runsAt, pushed;
    int ageMs;
    bool isReplay;
    int status;
    const char* said;
  } rows[] = {
      {"real and young", {160, 120}, {160, 120}, 12, false, kDone, "of camera 0, 12 ms old\n"},
      {"more pixels than asked for", {160, 120}, {320, 240}, 12, false, kDone, "12 ms old\n"},
      {"fewer", {160, 120}, {80, 60}, 12, false, kDone, "12 ms old, enlarged from 80x60\n"},
      {"old",
       {160, 120},
       {160, 120},
       5900,
       false,
       kFailed,
       "the newest image of camera 0 is 5.9 s old, more than --max-age 2: not fed for 5.9 s"},
      {"a replay's stamps are old", {160, 120}, {160, 120}, 5900, true, kDone, "160x120 kRGB"},
  };
  for (const auto& row : rows) {
    tellCamera(row.runsAt, row.pushed, row.ageMs, row.isReplay);
    const RunResult ran = run({"snapshot", "-o", file, "--timeout", "0.1"});
    EXPECT_EQ(ran.status, row.status) << row.why << ran.err;
    EXPECT_THAT(ran.err, HasSubstr(row.said)) << row.why;
    EXPECT_EQ(std::filesystem::remove(file), row.status == kDone) << row.why;
  }
  tellCamera({160, 120}, {160, 120}, 5900);
  EXPECT_EQ(run({"snapshot", "-o", file, "--max-age", "10"}).status, kDone);
  const RunResult exists = run({"snapshot", "-o", file, "--max-age", "10"});
  EXPECT_EQ(exists.status, kFailed);
  EXPECT_THAT(exists.err, HasSubstr("exists"));
  EXPECT_EQ(run({"snapshot", "-o", file, "--max-age", "10", "--overwrite"}).status, kDone);

  // The feeder learns of the larger size after the third image.
  std::atomic<int> asked = 0;
  device().answer("getImageRemote", [&](const OXValue&) {
    const int stamp = 5000 + 1000 * ++asked;
    tellCamera({160, 120}, asked < 4 ? FrameSize{80, 60} : FrameSize{160, 120}, 1, false, stamp);
    return imageReply(stamp);
  });
  EXPECT_THAT(run({"snapshot", "-o", file, "--overwrite"}).err, Not(HasSubstr("enlarged")));
  EXPECT_EQ(asked, 4);

  device().answer("getImageRemote", [](const OXValue&) { return OXValue(); });
  tellCamera({1280, 960}, {320, 240}, 12);
  EXPECT_THAT(run({"snapshot", "-o", file, "--overwrite", "--timeout", "0"}).err,
              HasSubstr("fed with 320x240, camera 0 runs at 1280x960: not delivered"));
}

TEST_F(StatusVerbs, LooksSayWhenRateOrSizeCameOtherwise) {
  const std::string file = fFake.folder.file("a.png");
  std::atomic<int> rate = 5;
  device().answer("getFrameRate",
                  [&](const OXValue& p) { return p[0].isInt() ? 30 : rate.load(); });
  device().answer("setFrameRate", [&](const OXValue& p) {
    rate = p[1].toInt();
    return true;
  });
  const struct {
    std::vector<std::string> arguments;
    const char* said;
  } rows[] = {
      {{"watch", "--frames", "1", "--fps", "60", "--resolution", "k4VGA"},
       "asked for 60 a second, got 5: 1280x960 starts at 5; --force-fps\n"},
      {{"watch", "--frames", "1", "--fps", "60", "--force-fps"},
       "asked for 60 a second, got 30: camera 0 can do 5 to 30\n"},
      {{"watch", "--frames", "1", "--fps", "30", "--force-fps"}, "camera 0 runs at 160x120\n"},
      {{"watch", "--frames", "1", "--fps", "3"},
       "asked for 3 a second, got 5: 5 is where a subscription starts; --force-fps\n"},
      {{"watch", "--frames", "1", "--resolution", "kVGA"}, "asked for 640x480, got 160x120"},
      {{"watch", "--frames", "1", "--colorspace", "kHSY", "--resolution", "kQQVGA"},
       "asked for kHSY, got kRGB\n"},
      {{"snapshot", "-o", file, "--overwrite", "--fps", "20"}, "asked for 20 a second, got 5: "},
      {{"snapshot", "-o", file, "--overwrite"}, "160x120 kRGB of camera 0"},
  };
  for (const auto& row : rows) {
    rate = 5;
    const RunResult ran = run(row.arguments);
    EXPECT_EQ(ran.status, kDone) << ran.err;
    EXPECT_THAT(ran.err, HasSubstr(row.said)) << ::testing::PrintToString(row.arguments);
    EXPECT_LE(std::count(ran.err.begin(), ran.err.end(), '\n'), 2) << ran.err;
  }
}

TEST_F(StatusVerbs, RecordSaysWhatThereIsAtItsEnd) {
  const std::string file = fFake.folder.file("film.oxv");
  std::atomic<int> stamp = 0;
  device().answer("getImageRemote", [&](const OXValue&) { return imageReply(++stamp); });
  device().answer("getDirectRawImageRemote", [&](const OXValue&) { return imageReply(stamp); });
  const struct {
    const char* why;
    int images;
    const char* state;
    const char* reason;
    int missing;
    int status;
    std::vector<const char*> said;
  } rows[] = {
      {"all",
       46,
       "complete",
       "complete",
       0,
       kDone,
       {"film.oxv: 46 images, 1.5 s, 30.0 a second, 0 missing, 28 MB\n"}},
      {"gaps", 46, "complete", "complete", 2, kDoneWithLosses, {", 2 missing, "}},
      {"a full disk",
       13,
       "failed",
       "film.oxv: No space left on device",
       0,
       kFailed,
       {"film.oxv: 13 images, ", "ended after 13 of 46 frames", "No space left on device"}},
      {"ended by somebody else",
       13,
       "stopped",
       "its subscriber left",
       0,
       kFailed,
       {"ended after 13 of 46 frames", "its subscriber left"}},
  };
  for (const auto& row : rows) {
    tellRecording(row.images, row.state, row.reason, row.missing);
    const RunResult ran = run({"record", file, "--frames", "46"});
    EXPECT_EQ(ran.status, row.status) << row.why << ran.err;
    for (const char* said : row.said) EXPECT_THAT(ran.err, HasSubstr(said)) << row.why;
    EXPECT_THAT(run({"record", file, "--frames", "46", "--json"}).out,
                HasSubstr("\"images\":" + std::to_string(row.images)))
        << row.why;
  }
  device().answer("recordVideo", [](const OXValue&) { return false; });
  tellRecording(0, "failed", "no such folder", 0);
  EXPECT_THAT(run({"record", file, "--frames", "1"}).err,
              HasSubstr("can't write " + file + "\n  no such folder"));
  std::ofstream(file) << "x";
  const RunResult exists = run({"record", file, "--frames", "1"});
  EXPECT_EQ(exists.status, kFailed);
  EXPECT_THAT(exists.err, HasSubstr("exists"));
  expectAllUnsubscribed();
}

TEST_F(StatusVerbs, RecordSaysThatItWaitsAndThatImagesChangeTheirSize) {
  const std::string file = fFake.folder.file("film.oxv");
  tellRecording(3, "complete", "complete", 0);
  tellCamera({160, 120}, {160, 120}, -1);
  std::atomic<int> asked = 0;
  device().answer("getImageRemote",
                  [&](const OXValue&) { return ++asked < 4 ? OXValue() : imageReply(asked); });
  device().answer("getDirectRawImageRemote", [&](const OXValue&) {
    OXValue image = imageReply(asked);
    if (asked > 5) image[0] = 80;
    if (asked > 5) image[1] = 240;
    return image;
  });
  const RunResult ran = run({"record", file, "--frames", "3"});
  EXPECT_EQ(ran.status, kDoneWithLosses) << ran.err;
  EXPECT_THAT(ran.err, StartsWith("waiting for a first image of camera 0: not fed\n"));
  EXPECT_THAT(ran.err, HasSubstr("80x240 and no longer 160x120"));
}

TEST_F(StatusVerbs, SubscribersAreListedAndRemoved) {
  fStatus->answer("getSubscribers", [](const OXValue&) {
    return OXValue::array(OXValue::array(
        "robot_2", "robot", OXValue(std::vector<int>{0}), OXValue::array(OXValue::array(640, 480)),
        OXValue(std::vector<int>{11}), 15, OXValue(std::vector<int>{30}), 90, 1500, 1));
  });
  EXPECT_EQ(run({"subscribers"}).out,
            "ID       OWNER  CAMERAS  SIZES    COLOUR SPACES  FPS       SERVED  HELD  LAST\n"
            "robot_2  robot  0        640x480  kRGB           15 of 30  90      1     1.5 s ago\n");
  EXPECT_EQ(run({"subscribers", "--json"}).out,
            "[{\"id\":\"robot_2\",\"owner\":\"robot\",\"cameras\":[0],\"sizes\":[\"640x480\"],"
            "\"colorspaces\":[\"kRGB\"],\"fps\":15,\"camera_fps\":[30],\"served\":90,\"held\":1,"
            "\"age_ms\":1500}]\n");
  const RunResult unknown = run({"subscribers", "--remove", "robot"});
  EXPECT_EQ(unknown.status, kFailed);
  EXPECT_THAT(unknown.err, HasSubstr("no subscriber \"robot\"\n  subscribed are: robot_2"));
  EXPECT_TRUE(callsOf("unsubscribe").empty());
  EXPECT_EQ(run({"subscribers", "--remove", "robot_2"}).status, kDone);
  EXPECT_THAT(callsOf("unsubscribe"), ElementsAre("unsubscribe[\"robot_2\"]"));

  for (const OXValue& reply : {OXValue(3), OXValue::array(3), OXValue::array(OXValue::array("id")),
                               OXValue::array(OXValue::array("id", "", OXValue::array("zero")))}) {
    fStatus->answer("getSubscribers", [&](const OXValue&) { return reply; });
    const RunResult ran = run({"subscribers"});
    EXPECT_EQ(ran.status, kFailed);
    EXPECT_THAT(ran.err, HasSubstr("the broker sent")) << ran.err;
  }
}

TEST_F(StatusVerbs, CamerasSayWhetherImagesArrive) {
  const struct {
    int ageMs;
    bool isReplay;
    const char* said;
  } rows[] = {
      {12, false, "  fed, 30 a second, 12 ms old  "},
      {-1, false, "  not fed  "},
      {5900, false, "  not fed for 5.9 s  "},
      {12, true, "  replay, 30 a second  "},
      {5900, true, "  replay, nobody asked for 5.9 s  "},
  };
  for (const auto& row : rows) {
    tellCamera({160, 120}, {160, 120}, row.ageMs, row.isReplay);
    EXPECT_THAT(run({"cameras"}).out, HasSubstr(row.said));
  }
  EXPECT_THAT(run({"cameras"}).out, HasSubstr("160x120 to 1280x960, 5 to 30 a second"));
  EXPECT_THAT(run({"cameras", "--json"}).out, HasSubstr("\"sizes\":[\"160x120\",\"1280x960\"]"));
  EXPECT_TRUE(callsOf("getCameraModel").empty()) << "each probe leaves a record in the log";
}

TEST_F(Verbs, ReplayNeedsAFileCamera) {
  for (const char* verb : {"next", "position"}) {
    const RunResult ran = run({verb});
    EXPECT_EQ(ran.status, kFailed);
    EXPECT_THAT(ran.err, HasSubstr("oxbroker --load libvideoinput.so --source file"));
  }
}

TEST_F(FileCameraVerbs, ReplayIsSteered) {
  const std::string file = fFake.folder.file("a.oxv");
  EXPECT_THAT(run({"play", file}).err, HasSubstr(file));
  std::ofstream(file) << "x";
  EXPECT_EQ(run({"play", file}).status, kFailed) << "no recording";
  EXPECT_EQ(run({"play", ""}).status, kUsageError);
  std::filesystem::remove(file);
  record(file, {{160, 120, kYUV422, 8}, {160, 120, kYUV422, 8}}, steady(20, 33'000));
  EXPECT_THAT(run({"play", file, "--stream", "2"}).err, HasSubstr("no stream 2"));
  EXPECT_THAT(run({"play", file, "--range", "10:11"}).err, HasSubstr("has images 0 to 9"));
  EXPECT_THAT(callsOf("setVideo"), ::testing::IsEmpty());
  device().answer("startFrameGrabber", [](const OXValue&) { return true; });
  EXPECT_EQ(run({"play", file}).status, kDone);
  EXPECT_EQ(
      run({"play", file, "--mode", "0", "--loop", "--range", "2:7", "--stream", "1", "--json"}).out,
      "{\"file\":\"" + file + "\",\"mode\":0,\"loop\":true,\"range\":[2,7],\"stream\":1}\n");
  EXPECT_THAT(callsOf("setVideo"), ElementsAre("setVideo[\"" + file + "\",null,false,1,0]",
                                               "setVideo[\"" + file + "\",[2,7],true,0,1]"));
  device().answer("getCurrentImageNumber", [](const OXValue&) { return 17; });
  EXPECT_EQ(run({"position"}).out, "17\n");
  EXPECT_EQ(run({"position", "--json"}).out, "{\"position\":17}\n");
  EXPECT_EQ(run({"next"}).out, "");
  EXPECT_EQ(run({"previous"}).status, kDone);
  device().answer("getCurrentImageNumber", [](const OXValue&) { return -1; });
  EXPECT_EQ(run({"position"}).out, "-1\n");
  EXPECT_THAT(run({"next"}).err, HasSubstr("nothing is being replayed"));
  EXPECT_EQ(run({"next"}).status, kFailed);
  device().answer("getCurrentImageNumber", [](const OXValue&) { return 17; });
  EXPECT_EQ(run({"previous", "--json"}).out, "{\"position\":17}\n");
  EXPECT_EQ(run({"speed", "12.5", "--json"}).out, "{\"images_per_second\":12.5}\n");
  EXPECT_EQ(callsOf("nextImage").size(), 3u);
  EXPECT_EQ(callsOf("previousImage").size(), 2u);
  EXPECT_THAT(callsOf("replaySpeed"), ElementsAre("replaySpeed[12.5]"));
}

}  // namespace
}  // namespace OX::test
