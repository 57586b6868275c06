// Many threads at once on one device: no reply is torn, nothing hangs, and all counters return to
// zero.
#include <array>
#include <cstdlib>
#include <deque>
#include <iostream>
#include <memory>
#include <thread>

#include <oxframework/oxerror.h>
#include "frames_fixture.h"
#include "random_client.h"
#include "videoinput/filecam/filecam_fixture.h"

namespace OX::test {
namespace {

// Each round pushes a frame of one shade; a reply that mixes two frames would have more than one.
bool isOneShade(const OXValue& pReply) {
  const auto* const pixels = static_cast<const unsigned char*>(pReply[6].GetBinary());
  return std::all_of(pixels, pixels + pReply[6].getSize(),
                     [&](unsigned char pPixel) { return pPixel == pixels[0]; });
}

TEST_F(SimulatorTest, RemoteRepliesStayWholeWhateverOthersDo) {
  constexpr int kRounds = 60;
  std::atomic<bool> running{true};
  std::atomic<int> torn{0};
  std::atomic<int> images{0};
  std::vector<std::thread> threads;
  threads.emplace_back([&] {
    for (int shade = 0; running; ++shade) {
      fClock.advanceUs(40'000);
      push(0, 320, 240, shade % 256);
    }
  });
  // Another client that knows every id releases images and ends subscriptions while replies are
  // being copied.
  threads.emplace_back([&] {
    while (running) {
      for (const char* id : {"a", "a_2", "a_3"}) {
        outcome([&] { return fDevice->releaseImage(id); });
        outcome([&] { return fDevice->releaseDirectRawImage(id); });
      }
      outcome([&] {
        fDevice->unsubscribe("a");
        return 0;
      });
    }
  });
  std::vector<std::thread> readers;
  for (int reader = 0; reader < 3; ++reader)
    readers.emplace_back([&, reader] {
      for (int round = 0; round < kRounds; ++round) {
        outcome([&] {
          const std::string id = subscribe("a", kQVGA, kYuv, 30);
          const OXValue reply =
              reader == 0 ? fDevice->getDirectRawImageRemote(id) : fDevice->getImageRemote(id);
          // A raw frame of grey is Y, 128, Y, 128: only a luma image has one shade.
          if (reply.getSize() == 12 && reader != 0 && !isOneShade(reply)) ++torn;
          if (reply.getSize() == 12) ++images;
          fDevice->unsubscribe(id);
          return 0;
        });
      }
    });
  for (std::thread& thread : readers) thread.join();
  running = false;
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(torn, 0);
  EXPECT_GT(images, 0);
  for (const char* base : {"a"}) fDevice->unsubscribeAllInstances(base);
  EXPECT_EQ(DeviceProbe(*fDevice).complaints(), "");
  EXPECT_EQ(DeviceProbe(*fDevice).lentFrames(0), 0);
}

/// OX_STRESS_SECONDS, 2 s if that is unset.
std::chrono::seconds stressTime() {
  const char* const seconds = std::getenv("OX_STRESS_SECONDS");
  return std::chrono::seconds(seconds ? std::atoi(seconds) : 2);
}

// What no client may meet: a turn that has not ended for ten seconds, and a pool one buffer short.
int countFaults(CaptureLog& pLog) {
  int faults = 0;
  for (const ki::log::Record& record : pLog.take())
    for (const char* const text : {"has been under way", "find available buffer", "no free buffer"})
      if (record.message.find(text) != std::string::npos) {
        std::cout << record.message << std::endl;
        ++faults;
      }
  return faults;
}

/// Opens a stream, takes its frames, keeps some of them, and ends it, over and over.
class StreamClient {
 public:
  StreamClient(OXVisionVideoInput& pDevice, unsigned int pSeed)
      : fDevice(pDevice), fRandom(pSeed) {}

  void step() {
    try {
      const Stream stream = open(fDevice, xPick(0, 2), xPick(0, 1) ? kYuv : kRGB, "stream", 0);
      std::uint64_t last = 0;
      for (int i = xPick(1, 60); i > 0; --i) {
        last = xTake(*stream, last);
        if (xPick(0, 3) == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
      }
      while (!stream->end()) std::this_thread::yield();
    } catch (const OXError&) {
      // All ids are in use, or the recording has no images of that size.
    }
  }

  int frames() const { return fFrames; }
  const std::string& complaint() const { return fComplaint; }

 private:
  int xPick(int pFrom, int pTo) { return std::uniform_int_distribution<int>(pFrom, pTo)(fRandom); }

  std::uint64_t xTake(FrameSubscription& pStream, std::uint64_t pLast) {
    Frame frame;
    const FrameTarget target =
        xPick(0, 2) == 0 ? FrameTarget{fTarget.data(), fTarget.size()} : FrameTarget{};
    if (pStream.take(0, pLast, xPick(0, 4) ? Pixels::kConverted : Pixels::kRaw, frame, target) !=
        Result::kFrame)
      return pLast;
    ++fFrames;
    if (frame.number() <= pLast) fComplaint = "the same frame again";
    const OXImage& image = frame.image();
    if (image.fColorSpace == kYuv &&
        std::count(image.fData, image.fData + image.getSizeBytes(), image.fData[0]) !=
            static_cast<std::ptrdiff_t>(image.getSizeBytes()))
      fComplaint = "a torn frame";
    const std::uint64_t number = frame.number();
    if (!target.data) fKept[static_cast<std::size_t>(xPick(0, 3))] = std::move(frame);
    return number;
  }

  OXVisionVideoInput& fDevice;
  std::mt19937 fRandom;
  std::vector<unsigned char> fTarget = std::vector<unsigned char>(1280 * 960 * 3);
  std::array<Frame, 4> fKept;
  int fFrames = 0;
  std::string fComplaint;
};

/// Eight random clients at once and two of streams, on the system's clock. pFeed is called beside
/// them all the time: it makes frames arrive.
void stress(OXVisionVideoInput& pDevice, CaptureLog& pLog, const std::vector<std::string>& pFiles,
            const std::function<void()>& pFeed) {
  constexpr std::chrono::seconds kLongestCall(30);
  OXClock::set(nullptr);
  ki::log::setLevel(0);
  const unsigned int seed = std::random_device()();
  SCOPED_TRACE("seeds from " + std::to_string(seed));
  const std::string path = testing::TempDir() + "parallel" + std::to_string(::getpid()) + "_";
  std::atomic<int> busy{8};
  std::atomic<bool> running{true};
  std::deque<RandomClient> clients;
  std::vector<std::thread> threads;
  for (int i = 0; i < busy; ++i)
    clients.emplace_back(*pDevice.getParentBroker(), seed + static_cast<unsigned int>(i),
                         path + std::to_string(i), pFiles);
  for (RandomClient& client : clients) client.checkShades();
  for (RandomClient& client : clients)
    threads.emplace_back([&] {
      const auto end = std::chrono::steady_clock::now() + stressTime();
      while (std::chrono::steady_clock::now() < end) client.step();
      --busy;
    });
  threads.emplace_back([&] {
    while (running) pFeed();
  });
  std::array<std::unique_ptr<StreamClient>, 2> streamers;
  for (auto& streamer : streamers) {
    streamer = std::make_unique<StreamClient>(pDevice, seed);
    threads.emplace_back([&] {
      while (running) streamer->step();
    });
  }
  // Gives back what a client holds that changes a setting or leaves, so that it waits no longer.
  threads.emplace_back([&] {
    while (running)
      for (const char* const name : {"a", "b", "c"})
        for (int instance = 1; instance <= 8; ++instance) {
          const std::string id = name + (instance == 1 ? "" : "_" + std::to_string(instance));
          std::this_thread::sleep_for(std::chrono::milliseconds(1));
          outcome([&] { return pDevice.releaseImage(id); });
          outcome([&] { return pDevice.releaseImages(id); });
        }
  });
  int faults = 0;
  while (busy > 0) {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    faults += countFaults(pLog);
    bool isStuck = false;
    for (const RandomClient& client : clients) {
      const std::string call = client.stuckFor(kLongestCall);
      if (call.empty()) continue;
      std::cout << "a call does not end: " << call << std::endl;
      isStuck = true;
    }
    if (isStuck) std::abort();  // its thread can't be joined
  }
  running = false;
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(faults + countFaults(pLog), 0);
  int calls = 0;
  int replies = 0;
  for (const RandomClient& client : clients) {
    EXPECT_EQ(client.complaint(), "");
    calls += client.calls();
    replies += client.replies();
  }
  EXPECT_GT(replies, 0);
  for (auto& streamer : streamers) {
    EXPECT_EQ(streamer->complaint(), "");
    EXPECT_GT(streamer->frames(), 0);
    streamer.reset();  // with the frames that it kept
  }
  testing::Test::RecordProperty("calls", calls);
  std::cout << calls << " calls, " << replies << " replies" << std::endl;

  const DeviceProbe probe(pDevice);
  EXPECT_EQ(probe.complaints(), "");
  std::vector<std::string> left;
  for (const auto& entry : probe.subscribers()) left.push_back(entry.first);
  for (const std::string& id : left) {
    outcome([&] { return pDevice.releaseImage(id); });
    pDevice.unsubscribe(id);
  }
  EXPECT_EQ(probe.complaints(), "");
  for (int i = 0; i < probe.cameras(); ++i) EXPECT_EQ(probe.lentFrames(i), 0) << "camera " << i;
  for (int i = 0; i < 8; ++i) std::filesystem::remove(path + std::to_string(i));
}

// Camera 1 gets a frame now and then: who wants its first one waits.
TEST_F(SimulatorTest, EightClientsDoAnythingAtOnce) {
  int round = 0;
  stress(*fDevice, fLog, {}, [&] {
    ++round;
    push(round % 16 == 0 ? 1 : 0, 320, 240, round % 256);
    std::this_thread::sleep_for(std::chrono::milliseconds(3));
  });
}

TEST_F(FileCamTest, EightClientsDoAnythingAtOnce) {
  const std::vector<std::string> files{recordStamps("small.oxv", {1, 2, 3, 4, 5, 6, 7}, 320, 240),
                                       recordStamps("large.oxv", {10000, 90000}, 640, 480)};
  play(files[0], 0, true);
  stress(*fDevice, fLog, files, [&] {
    fDevice->nextImage();
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  });
}

}  // namespace
}  // namespace OX::test
