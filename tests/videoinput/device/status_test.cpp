// What OXVideoStatus tells, against what was done: images that were lent, frames that were pushed,
// a replay that was asked for, recordings that ended in every way.
#include <sys/resource.h>

#include <csignal>
#include <filesystem>

#include "../filecam/filecam_fixture.h"
#include "oxvisionvideostatus/oxvideostatus.h"
#include "support/device_fixture.h"

namespace OX::test {
namespace {

/// The status of a fixture's device, as lines.
class Status {
 public:
  explicit Status(const boost::shared_ptr<OXBroker>& pBroker)
      : fBroker(pBroker), fModule(OXModule::createModule<OXVideoStatus>(pBroker)) {}

  OXValue ask(const char* pMethod) {
    return fBroker->call("OXVideoStatus", pMethod, OXValue(OXValue::Array()));
  }
  std::string subscribers() { return show(ask("getSubscribers")); }
  /// "stamp size feeder rate dropped age source" of a camera.
  std::string feed(int pCamera = 0) {
    const OXValue camera = ask("getCameras")[pCamera];
    std::string text;
    for (int i = 9; i < camera.getSize(); ++i) text += (i > 9 ? " " : "") + show(camera[i]);
    return text;
  }
  /// "images bytes state reason missing" of the latest recording.
  std::string recording() {
    const OXValue recordings = ask("getRecordings");
    if (recordings.getSize() == 0) return "none";
    const OXValue last = recordings[recordings.getSize() - 1];
    return show(last[2]) + " " + show(last[3]) + " " + last[4].toString() + ": " +
           last[5].toString() + ", missing " + show(last[6]);
  }

 private:
  boost::shared_ptr<OXBroker> fBroker;
  boost::shared_ptr<OXVideoStatus> fModule;
};

class SimulatorStatus : public SimulatorTest {
 protected:
  std::string path(const char* pName) const {
    return testing::TempDir() + std::to_string(::getpid()) + pName;
  }

  /// Records one raw image at each of these times, in ms from now.
  void recordAt(const std::string& pId, const std::vector<int>& pTimesMs) {
    const std::int64_t start = fClock.nowUs();
    for (const int time : pTimesMs) {
      fClock.setUs(start + time * 1000);
      push();
      fDevice->getDirectRawImageRemote(pId);
    }
  }

  Status fStatus{fBroker};
};

TEST_F(SimulatorStatus, CountsWhatEverySubscriberWasServed) {
  EXPECT_EQ(fStatus.subscribers(), "[]");
  const std::string id = subscribe("a", kVGA, kRGB, 15);
  const std::string follower = subscribe("b", kVGA, kRGB, 15);
  const std::string multi = fDevice->subscribeCameras("m", OXValue(std::vector<int>{1, 0}),
                                                      OXValue(std::vector<int>{0, 1}),
                                                      OXValue(std::vector<int>{0, 9}), 10);
  const auto line = [&](const char* pId) {
    const OXValue subscribers = fStatus.ask("getSubscribers");
    for (const OXValue& subscriber : subscribers.toArray())
      if (subscriber[0].toString() == pId) return show(subscriber);
    return std::string("unknown");
  };
  EXPECT_EQ(line("a"), "[\"a\", \"\", [0], [[640, 480]], [11], 15, [15], 0, -1, 0]");
  EXPECT_EQ(line("m"),
            "[\"m\", \"\", [1, 0], [[160, 120], [320, 240]], [0, 9], 10, [15, 15], 0, -1, 0]");
  push(0, 640, 480);
  push(1, 640, 480);

  // Every way of taking an image counts it, whoever made it; the pair of each is its release.
  const struct {
    const char* what;
    std::string id;
    std::function<void()> take;
    std::function<void()> release;
    int served, held;
  } rows[] = {
      {"converted", "a", [&] { fDevice->getImageLocal("a"); }, [&] { fDevice->releaseImage("a"); },
       1, 1},
      {"shared", "b", [&] { fDevice->getImageLocal("b"); }, [&] { fDevice->releaseImage("b"); }, 1,
       1},
      {"remote", "a", [&] { fDevice->getImageRemote("a"); }, [] {}, 1, 0},
      {"raw", "a", [&] { fDevice->getDirectRawImageLocal("a"); },
       [&] { fDevice->releaseDirectRawImage("a"); }, 1, 1},
      {"raw, remote", "a", [&] { fDevice->getDirectRawImageRemote("a"); }, [] {}, 1, 0},
      {"for nobody", "a", [&] { fDevice->getDirectRawImageInterprocess("a"); }, [] {}, 0, 0},
      {"several", "m", [&] { fDevice->getImagesLocal("m"); }, [&] { fDevice->releaseImages("m"); },
       2, 2},
      {"several, remote", "m", [&] { fDevice->getImagesRemote("m"); }, [] {}, 2, 0},
      {"several raw", "m", [&] { fDevice->getDirectRawImagesLocal("m"); },
       [&] { fDevice->releaseDirectRawImages("m"); }, 2, 2},
      {"several raw, remote", "m", [&] { fDevice->getDirectRawImagesRemote("m"); }, [] {}, 2, 0},
  };
  std::map<std::string, int> served;
  for (const auto& row : rows) {
    row.take();
    served[row.id] += row.served;
    fClock.advanceUs(7'000);
    const auto end = [&](int pHeld) {
      return ", " + std::to_string(served[row.id]) + ", " + (row.served ? "7" : "14") + ", " +
             std::to_string(pHeld) + "]";
    };
    EXPECT_THAT(line(row.id.c_str()), testing::EndsWith(end(row.held))) << row.what;
    row.release();
    EXPECT_THAT(line(row.id.c_str()), testing::EndsWith(end(0))) << row.what;
  }
  // Nothing was served: the hold that is there stays the only one.
  fDevice->getImageLocal("a");
  EXPECT_THROW(fDevice->getImageLocal("a"), OXError);
  EXPECT_THAT(line("a"), testing::HasSubstr(", " + std::to_string(served["a"] + 1) + ", 0, 1]"));
  fDevice->unsubscribe("b");
  EXPECT_EQ(line("b"), "unknown");
}

TEST_F(SimulatorStatus, TellsWhatWasPushed) {
  EXPECT_EQ(fStatus.feed(), "[] [] \"\" 0f 0 -1 \"push\"");
  for (int i = 0; i < 40; ++i) {
    fClock.advanceUs(25'000);
    ASSERT_TRUE(push(0, 640, 480));
  }
  fClock.advanceUs(12'000);
  const std::string stamp = "[1700000001, 0] [640, 480] \"local\"";
  EXPECT_EQ(fStatus.feed(0), stamp + " 40f 0 12 \"push\"");
  EXPECT_EQ(fStatus.feed(1), "[] [] \"\" 0f 0 -1 \"push\"") << "each camera by itself";
  EXPECT_FALSE(push(0, 641, 480));
  fClock.advanceUs(6'000'000);
  EXPECT_EQ(fStatus.feed(0), stamp + " 0f 0 6012 \"push\"") << "refused, and no longer fed";
  fClock.setUs(FakeClock::kStartUs);
  EXPECT_EQ(fStatus.feed(0), stamp + " 40f 0 0 \"push\"") << "a clock that was set back";
  EXPECT_EQ(show(fStatus.ask("getCameras")[1]),
            "[1, 2, [320, 240], 9, 5, 0, [[160, 120], [320, 240], [640, 480], [1280, 960]], 5, 30, "
            "[], [], \"\", 0f, 0, -1, \"push\"]");
}

TEST_F(SimulatorStatus, TellsHowRecordingsEnded) {
  const std::string file = path("status.oxv");
  const std::string id = subscribe("a", kQVGA, kYUV422, 10);
  EXPECT_EQ(fStatus.recording(), "none");
  // QVGA has 153600 bytes; at 10 a second a gap of more than 150 ms lacks images.
  const struct {
    const char* why;
    int wanted, period;
    std::vector<int> timesMs;
    std::function<void()> end;
    const char* expected;
  } rows[] = {
      {"all came",
       3,
       1,
       {0, 100, 200},
       [&] { fDevice->stopVideo(id); },
       "3 460800f complete: complete, missing 0"},
      {"by the request after the last",
       2,
       1,
       {0, 100, 200},
       [] {},
       "2 307200f complete: complete, missing 0"},
      {"under way", 9, 1, {0, 100}, [] {}, "2 307200f recording: , missing 0"},
      {"a new one began", 1, 1, {0, 1}, [] {}, "1 153600f complete: complete, missing 0"},
      {"a gap just short of one and a half periods, and one just longer",
       9,
       1,
       {0, 150, 301},
       [&] { fDevice->stopVideo(id); },
       "3 460800f stopped: stopped, missing 1"},
      {"gaps of three and of ten",
       9,
       1,
       {0, 300, 1300},
       [&] { fDevice->stopVideo(id); },
       "3 460800f stopped: stopped, missing 11"},
      {"every second image",
       3,
       2,
       {0, 100, 200, 300, 600, 700},
       [&] { fDevice->stopVideo(id); },
       "3 460800f complete: complete, missing 1"},
      {"changed its size",
       9,
       1,
       {0},
       [&] { fDevice->setResolution(id, kQQVGA); },
       "1 153600f stopped: its subscriber changed its resolution, missing 0"},
      {"changed its colours",
       9,
       1,
       {0},
       [&] { fDevice->setColorSpace(id, kRGB); },
       "1 153600f stopped: its subscriber changed its color space, missing 0"},
      {"left",
       9,
       1,
       {0},
       [&] { fDevice->unsubscribe(id); },
       "1 153600f stopped: its subscriber left, missing 0"},
  };
  for (const auto& row : rows) {
    ASSERT_TRUE(fDevice->recordVideo(id, file, row.wanted, row.period)) << row.why;
    recordAt(id, row.timesMs);
    row.end();
    EXPECT_EQ(fStatus.recording(), row.expected) << row.why;
  }
  const OXValue second = fStatus.ask("getRecordings")[2];
  EXPECT_EQ(show(second[4]) + show(second[5]),
            "\"stopped\"\"another recording of its subscriber began\"");

  subscribe("a", kQVGA, kYUV422, 10);
  EXPECT_FALSE(fDevice->recordVideo("a", "/nowhere/x.oxv", 1, 1));
  EXPECT_EQ(fStatus.recording(),
            "0 0f failed: /nowhere/x.oxv: No such file or directory, missing 0");
  for (int i = 0; i < 80; ++i) fDevice->recordVideo("a", "/nowhere/" + std::to_string(i), 1, 1);
  const OXValue kept = fStatus.ask("getRecordings");
  EXPECT_EQ(kept.getSize(), 64) << "the latest are kept";
  EXPECT_EQ(kept[63][1].toString(), "/nowhere/79");
  std::filesystem::remove(file);
}

// A limit on the size of files stands for the disk: both end in the middle of an image.
TEST_F(SimulatorStatus, AFullDiskEndsTheRecordingWhereItWasFull) {
  const std::string file = path("full.oxv");
  const std::string id = subscribe("a", kQVGA, kYUV422, 10);
  ASSERT_TRUE(fDevice->recordVideo(id, file, 30, 1));
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  const auto onSignal = std::signal(SIGXFSZ, SIG_IGN);
  const rlimit small{2'000'000, before.rlim_max};
  setrlimit(RLIMIT_FSIZE, &small);
  recordAt(id, {0, 100, 200, 300, 400, 500, 600, 700, 800, 900, 1000, 1100, 1200, 1300, 1400});
  setrlimit(RLIMIT_FSIZE, &before);
  std::signal(SIGXFSZ, onSignal);
  const std::string ended = "13 1.9968e+06f failed: " + file +
                            ": at byte 2000000: File too large; the recording ends "
                            "after 13 frames, missing 0";
  EXPECT_EQ(fStatus.recording().substr(0, 26), ended.substr(0, 26));
  EXPECT_THAT(fStatus.recording(), testing::HasSubstr("the recording ends after 13 frames"));
  fDevice->stopVideo(id);
  EXPECT_THAT(fStatus.recording(), testing::HasSubstr("the recording ends after 13 frames"))
      << "stopping it later changes nothing";
  std::filesystem::remove(file);
}

TEST_F(SimulatorStatus, EndsWithTheDevice) {
  fBroker->unregisterModule("OXVideoDevice");
  fDevice.reset();
  EXPECT_EQ(outcome([&] { return fStatus.ask("getCameras"); }),
            "OXError: there is no video device in this broker");
  const auto empty = OXBroker::create();
  EXPECT_EQ(outcome([&] {
              OXModule::createModule<OXVideoStatus>(empty);
              return true;
            }),
            "OXError: there is no video device in this broker");
  empty->shutdown();
}

TEST_F(FileCamTest, StatusTellsTheStepsOfAReplay) {
  Status status(fBroker);
  play(record(20), 1, false);
  const std::string id = subscribe();
  EXPECT_EQ(status.feed(), "[] [] \"\" 0f 0 -1 \"replay\"");
  EXPECT_EQ(serve(id), "0@0");
  EXPECT_EQ(serve(id), "0@0");
  fClock.advanceUs(5'000);
  EXPECT_EQ(status.feed(), "[1, 0] [320, 240] \"\" 0f 0 5 \"replay\"")
      << "one step, asked for twice";
  fClock.advanceUs(kStepUs);
  serve(id);
  EXPECT_THAT(status.feed(), testing::HasSubstr("[1, 100000] [320, 240] \"\" 9.5"));
  fClock.advanceUs(10 * kStepUs);
  serve(id);
  EXPECT_THAT(status.feed(), testing::HasSubstr("[2, 100000] [320, 240] \"\" "));
  EXPECT_THAT(status.feed(), testing::EndsWith(" 9 0 \"replay\"")) << "nine were passed over";
  EXPECT_EQ(show(status.ask("getCameras")[0][6]), "[[160, 120], [320, 240]]")
      << "no size that was not recorded";
}

}  // namespace
}  // namespace OX::test
