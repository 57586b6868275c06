// Image and time stamp of every request of a replay: worked by hand, and against a model that takes
// no shortcuts.
#include <cstdlib>
#include <fstream>
#include <random>
#include <sstream>

#include "filecam_fixture.h"
#include "replay_model.h"

namespace OX::test {
namespace {

/// Overwrites the last byte of the pixels of one image.
void damage(const std::string& pFile, int pImage) {
  OXVideo video;
  ASSERT_TRUE(video.readVideo(pFile));
  const auto frame = video.getFrameInfo(pImage + 1, 0);
  ASSERT_TRUE(frame);
  std::fstream file(pFile, std::ios::in | std::ios::out | std::ios::binary);
  file.seekp(frame->fOffset - 1);
  file.put('\xAA');
  ASSERT_TRUE(file.good());
}

class ReplayTest : public FileCamTest {
 protected:
  /// Plays a script of requests (r), nextImage (n), previousImage (p), a stop and a start (s), and
  /// pauses in milliseconds; returns what the requests served.
  std::string run(const std::string& pScript) {
    const std::string id = subscribe();
    std::istringstream script(pScript);
    std::string served;
    for (std::string word; script >> word;) {
      if (word == "r") {
        served += (served.empty() ? "" : " ") + request(id);
      } else if (word == "n") {
        fDevice->nextImage();
      } else if (word == "p") {
        fDevice->previousImage();
      } else if (word == "s") {
        EXPECT_TRUE(fDevice->stopFrameGrabber(0));
        EXPECT_TRUE(fDevice->startFrameGrabber(0));
      } else {
        fClock.advanceUs(std::stoll(word) * 1000);
      }
    }
    return served;
  }
};

// All recordings begin at 1000000 and have 100000 us between images.
TEST_F(ReplayTest, ServesTheImagesAndStampsWorkedByHand) {
  const OXValue all;
  const struct {
    const char* why;
    int images, damaged, mode;
    bool loop;
    OXValue range;
    const char* script;
    const char* served;
  } kCases[] = {
      {"past the end after a step back: the image that is not there leaves the old picture", 5, -1,
       0, false, all, "r n r p r n r n r n r n r n r",
       "(1,1100000) (2,1200000) (1,1200001) (2,1200002) (3,1300000) (4,1400000) (2,1400001) "
       "(4,1400001)"},
      {"the same in a loop: 6 steps of 5 images, from a current stamp of 1400001", 5, -1, 0, true,
       all, "r n r p r n r n r n r n r n r n r",
       "(1,1100000) (2,1200000) (1,1200001) (2,1200002) (3,1300000) (4,1400000) (2,1400001) "
       "(0,1480001) (1,1580001)"},
      {"a damaged image: the slot's old picture under a stamp of its own", 20, 7, 0, false, all,
       "r n r n r n r n r n r n r n r",
       "(1,1100000) (2,1200000) (3,1300000) (4,1400000) (5,1500000) (6,1600000) (2,1600001) "
       "(8,1800000)"},
      {"a still picture in a loop has no length and keeps its stamp", 1, -1, 0, true, all,
       "r r n r n r", "(0,1000000) (0,1000000) (0,1000000) (0,1000000)"},
      {"stepped back in time: caught up with by the next request", 20, -1, 1, false, all,
       "550 r p r", "(5,1500000) (5,1500002)"},
      {"a range that was stepped back runs one image past its end", 20, -1, 1, false,
       OXValue::array(0, 9), "550 r p r 300 r 100 r 100 r 100 r",
       "(5,1500000) (5,1500002) (8,1800000) (9,1900000) (10,2000000) (9,2050101)"},
      {"opened in mid-range, the passes of a loop overlap", 20, -1, 1, true, all,
       "1550 r s r 3000 r", "(15,2500000) (17,2700000) (17,5640000)"},
      {"counted below the first image by previousImage and opened anew", 4, -1, 1, false, all,
       "r p 90 r p s r 150 r", "(0,1000000) (1,1000002) (0,1000000) (1,1100000)"},
      {"mode 2 serves what is current once and is mode 1 from then on", 5, -1, 2, false, all,
       "250 r r", "(0,1000000) (2,1200000)"},
      {"a range that begins before the file", 4, -1, 0, false, OXValue::array(-1, 3), "r n r",
       "(1,1100000) (2,1200000)"},
      {"played to the end and opened anew", 4, -1, 1, false, all, "1000 r s r",
       "(3,1300000) (3,1300000)"},
  };
  for (const auto& test : kCases) {
    const std::string file = record(test.images);
    if (test.damaged >= 0) damage(file, test.damaged);
    startDevice();
    play(file, test.mode, test.loop, test.range);
    EXPECT_EQ(run(test.script), test.served) << test.why;
  }
}

/// One device and one model, driven by the same random calls.
class RandomReplay {
 public:
  struct Recording {
    std::string file;
    ReplayModel::Stamps stamps;
  };

  RandomReplay(OXVisionFileCam& pDevice, FakeClock& pClock,
               const std::vector<Recording>& pRecordings, int pMode, unsigned int pSeed)
      : fDevice(pDevice), fClock(pClock), fRecordings(pRecordings), fMode(pMode), fRandom(pSeed) {}

  /// The calls up to the first difference and what it is; empty when there was none.
  template <typename Request>
  std::string run(Request pRequest) {
    // The first range has images: a subscription starts the grabber.
    const Recording& recording = fRecordings[xPick(fRecordings.size())];
    const int last = static_cast<int>(recording.stamps.size()) - 1;
    const int first = xPick(0, last);
    xSetVideo(recording, first, xPick(first, last));
    const std::string id = fDevice.subscribe("a", kQQVGA, kYUV422, 30);
    fModel.start(fClock.localNowUs() - kStartedUs);
    for (int i = xPick(5, 60); i > 0; --i) {
      if (const std::string wrong = xStep(); !wrong.empty()) return fHistory + wrong;
      if (xPick(0, 2) == 0) continue;
      const std::string wanted = fModel.request(fClock.localNowUs());
      const std::string served = pRequest(id);
      fHistory += " " + served;
      if (served != wanted) return fHistory + ", wanted " + wanted;
    }
    return "";
  }

 private:
  static constexpr std::int64_t kStartedUs = 100;  // what a start sleeps after the opening

  int xPick(int pFrom, int pTo) { return std::uniform_int_distribution<int>(pFrom, pTo)(fRandom); }
  std::size_t xPick(std::size_t pCount) {
    return std::uniform_int_distribution<std::size_t>(0, pCount - 1)(fRandom);
  }

  void xSetVideo(const Recording& pRecording, int pFirst, int pLast) {
    const bool loop = xPick(0, 1) == 1;
    const bool whole = xPick(0, 1) == 1;
    fHistory += " setVideo(" + std::to_string(pRecording.stamps.size()) + " images" +
                (whole ? "" : " " + std::to_string(pFirst) + ".." + std::to_string(pLast)) +
                (loop ? ", loop)" : ")");
    fDevice.setVideo(pRecording.file, whole ? OXValue() : OXValue::array(pFirst, pLast), loop,
                     fMode, 0);
    fModel.setVideo(pRecording.stamps, whole ? 0 : pFirst, whole ? INT32_MAX : pLast, loop, fMode);
  }

  /// What is wrong; empty when nothing is.
  std::string xStart() {
    const bool starts = fModel.start(fClock.localNowUs());
    bool started = false;
    try {
      started = fDevice.startFrameGrabber(0);
    } catch (const OXError&) {
    }
    fHistory += started ? " start" : " start fails";
    return started == starts ? "" : ", wanted the other";
  }

  std::string xStep() {
    switch (xPick(0, 19)) {
      case 0:
        fHistory += " stop";
        fModel.stop();
        fDevice.stopFrameGrabber(0);
        return xPick(0, 3) > 0 ? xStart() : "";
      case 1: {
        const Recording& recording = fRecordings[xPick(fRecordings.size())];
        const int images = static_cast<int>(recording.stamps.size());
        xSetVideo(recording, xPick(-1, images), xPick(-1, images + 1));
        return xPick(0, 3) > 0 ? xStart() : "";
      }
      case 2:
        return xStart();
      case 3: {
        const float speed = static_cast<float>(xPick(0, 3) * 10);
        fHistory += " speed " + std::to_string(speed);
        fDevice.replaySpeed(speed);
        fModel.speed(static_cast<double>(speed));
        return "";
      }
      case 4:
      case 5:
      case 6:
        fHistory += " previous";
        fDevice.previousImage();
        fModel.previous();
        return "";
      case 7:
      case 8:
      case 9:
      case 10:
      case 11:
        fHistory += " next";
        fDevice.nextImage();
        fModel.next();
        return "";
      default: {
        const int pauseUs = xPick(0, 9) == 0 ? xPick(0, 2'000'000) : xPick(0, 200'000);
        fHistory += " +" + std::to_string(pauseUs);
        fClock.advanceUs(pauseUs);
        return "";
      }
    }
  }

  OXVisionFileCam& fDevice;
  FakeClock& fClock;
  const std::vector<Recording>& fRecordings;
  const int fMode;
  std::mt19937 fRandom;
  ReplayModel fModel;
  std::string fHistory;
};

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int kRuns = 200;
#else
constexpr int kRuns = 1000;
#endif

/// OX_REPLAY_RUNS random runs of each mode.
int numberOfRuns() {
  const char* const runs = std::getenv("OX_REPLAY_RUNS");
  return runs ? std::max(std::atoi(runs), 1) : kRuns;
}

TEST_F(ReplayTest, EqualsTheModelInRandomRuns) {
  std::mt19937 random(1);
  std::vector<RandomReplay::Recording> recordings;
  for (const int longestStepUs : {0, 100'000}) {  // 0: every step has 100 ms
    for (int images = 1; images <= 8; ++images) {
      ReplayModel::Stamps stamps{kFirstStampUs};
      while (stamps.size() < static_cast<std::size_t>(images))
        stamps.push_back(stamps.back() + (longestStepUs ? std::uniform_int_distribution<int>(
                                                              500, longestStepUs)(random)
                                                        : kStepUs));
      const std::string name = std::to_string(recordings.size()) + ".oxv";
      recordings.push_back({recordStamps(name.c_str(), stamps, 160, 120), stamps});
    }
  }
  const int runs = numberOfRuns();
  for (const int mode : {0, 1}) {
    int differing = 0;
    std::string first;
    for (int seed = 1; seed <= runs; ++seed) {
      startDevice();
      RandomReplay replay(*fDevice, fClock, recordings, mode, static_cast<unsigned int>(seed));
      const std::string difference =
          replay.run([&](const std::string& pId) { return request(pId); });
      if (difference.empty()) continue;
      if (++differing == 1) first = "seed " + std::to_string(seed) + ":" + difference;
    }
    EXPECT_EQ(differing, 0) << "of " << runs << " runs of mode " << mode << "; " << first;
  }
}

}  // namespace
}  // namespace OX::test
