// Clients that end without a goodbye, with images held, recordings open and calls under way: the
// device is afterwards as if they had never been there.
#include <malloc.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <oxframework/oxremotebroker.h>
#include <oxframework/oxserver.h>
#include <oxframework/oxvideo.h>
#include "service.h"
#include "support/raw_client.h"

extern char** environ;

namespace OX::test {
namespace {

namespace fs = std::filesystem;

bool eventually(const std::function<bool()>& pCondition, std::chrono::seconds pLimit) {
  const auto deadline = std::chrono::steady_clock::now() + pLimit;
  while (!pCondition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::yield();
  }
  return true;
}

/// A simulator with both cameras fed, served on TCP and on a Unix-domain socket, by the real clock.
class LostClients : public testing::Test {
 protected:
  LostClients() : fFolder(testing::TempDir() + "ox_lost_" + std::to_string(::getpid())) {
    fs::create_directories(fFolder);
    OXModule::createModule<OXMemory>(fBroker);
    fDevice = OXModule::createModule<OXVisionSimulatorCam>(fBroker);
    // Before a frame is pushed: one that came before the grabber's start is not delivered.
    for (int camera = 0; camera < 2; ++camera) fDevice->startFrameGrabber(camera);
    fServer = std::make_unique<OXServer>(fBroker);
    fAddresses = {fServer->listen("127.0.0.1:0"), fServer->listen("unix:" + fFolder + "/socket")};
  }
  ~LostClients() override {
    fServer.reset();
    fDevice.reset();
    fBroker->shutdown();
    fs::remove_all(fFolder);
  }

  boost::shared_ptr<OXRemoteBroker> connect() const {
    return OXRemoteBroker::connect(fAddresses.front());
  }
  void feed(int pSeed = 0) {
    for (int camera = 0; camera < 2; ++camera)
      fDevice->putImage(camera, 320, 240, patternFrame(320, 240, pSeed));
  }
  OXValue connections() { return fBroker->call("OXBroker", "getConnections", OXValue::Array()); }
  /// Nobody is connected, and nobody is left of those who were.
  bool isDeserted() {
    return connections().getSize() == 0 && DeviceProbe(*fDevice).countSubscribers() == 0;
  }
  std::string leftovers() {
    const DeviceProbe probe(*fDevice);
    std::string text = probe.complaints();
    if (!probe.subscribers().empty()) text += "subscribers; ";
    if (probe.pools() != "0/0 0/0") text += "pools " + probe.pools() + "; ";
    for (int camera = 0; camera < 2; ++camera)
      if (probe.lentFrames(camera) != 0) text += "frames of a camera are lent; ";
    return text;
  }

  const std::string fFolder;
  CaptureLog fLog;
  boost::shared_ptr<OXBroker> fBroker = OXBroker::create();
  boost::shared_ptr<OXVisionSimulatorCam> fDevice;
  std::unique_ptr<OXServer> fServer;
  std::vector<std::string> fAddresses;
};

TEST_F(LostClients, LeaveNothingAndTheNinthSubscribesAsTheFirst) {
  using Device = std::function<OXValue(const char*, const OXValue&)>;
  const std::string film = fFolder + "/film.oxv";
  const auto one = [](const Device& pCall, int pCamera) {
    return pCall("subscribeCamera", OXValue::array("robot", pCamera, 1, 11, 30));
  };
  const auto both = [](const Device& pCall) {
    return pCall("subscribeCameras",
                 OXValue::array("robot", OXValue::array(0, 1), OXValue::array(1, 1),
                                OXValue::array(9, 9), 30));
  };
  const struct {
    const char* why;
    std::function<OXValue(const Device&)> subscribe;  ///< returns the id
  } kCases[] = {
      {"a converted image is held",
       [&](const Device& pCall) {
         const OXValue id = one(pCall, 0);
         pCall("getImageLocal", OXValue::array(id));
         return id;
       }},
      {"a raw image of the camera that was active before",
       [&](const Device& pCall) {
         const OXValue id = one(pCall, -1);
         pCall("getDirectRawImageLocal", OXValue::array(id));
         pCall("setActiveCamera", OXValue::array(1));
         pCall("setActiveCamera", OXValue::array(0));
         return id;
       }},
      {"raw images of two streams, one of which it has left",
       [&](const Device& pCall) {
         const OXValue id = both(pCall);
         pCall("getDirectRawImagesLocal", OXValue::array(id));
         pCall("setActiveCameras", OXValue::array(id, OXValue::array(1)));
         return id;
       }},
      {"a recording is open",
       [&](const Device& pCall) {
         const OXValue id = one(pCall, 1);
         EXPECT_TRUE(pCall("recordVideo", OXValue::array(id, film, 100, 1)).toBool())
             << "the file is not locked";
         for (int i = 0; i < 2; ++i) pCall("getDirectRawImageRemote", OXValue::array(id));
         pCall("getDirectRawImageLocal", OXValue::array(id));
         return id;
       }},
  };
  for (const auto& test : kCases) {
    for (int crash = 1; crash <= 9; ++crash) {
      feed(crash);
      auto client = connect();
      const OXValue id = test.subscribe([&](const char* pMethod, const OXValue& pArguments) {
        return client->call("OXVideoDevice", pMethod, pArguments);
      });
      ASSERT_EQ(id, OXValue("robot")) << test.why << ", crash " << crash;
      client.reset();
      ASSERT_TRUE(eventually([&] { return isDeserted(); }, std::chrono::seconds(3)))
          << test.why << ": three seconds, and not the ten of a leaver";
    }
    EXPECT_EQ(leftovers(), "") << test.why;
  }
  EXPECT_EQ(fLog.count(ki::log::kError), 0) << fLog.records(ki::log::kError);
  OXVideo video;
  ASSERT_TRUE(video.readVideo(film));
  EXPECT_TRUE(video.hasIndex());
  EXPECT_EQ(video.getNumberOfImages(), 3);
}

TEST_F(LostClients, GoAsSoonAsACallUnderWayHasEnded) {
  feed();
  const auto client = connect();
  const auto other = connect();
  client->call("OXVideoDevice", "subscribeCamera", OXValue::array("robot", 0, 1, 11, 30));
  fDevice->stopFrameGrabber(0);
  fDevice->startFrameGrabber(0);  // now a request waits a second for the first frame
  std::thread call(
      [&] { other->call("OXVideoDevice", "getImageRemote", OXValue::array("robot")); });
  ASSERT_TRUE(
      eventually([&] { return connections()[1][4].toInt() == 1; }, std::chrono::seconds(3)));
  client->close();
  call.join();
  other->close();
  EXPECT_TRUE(eventually([&] { return isDeserted(); }, std::chrono::seconds(3)));
  EXPECT_EQ(leftovers(), "");
}

/// How many are killed: OX_LOST_CLIENTS, 40 if that is unset.
int countOfKills() {
  const char* const count = std::getenv("OX_LOST_CLIENTS");
  return count ? std::max(1, std::atoi(count)) : 40;
}

class KilledClients : public LostClients {
 protected:
  pid_t start(const std::string& pAddress, unsigned int pSeed) {
    std::vector<std::string> words{OX_LOST_CLIENT, pAddress, std::to_string(pSeed), fFolder};
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    pid_t process = -1;
    const int failure =
        ::posix_spawn(&process, OX_LOST_CLIENT, nullptr, nullptr, arguments.data(), environ);
    EXPECT_EQ(failure, 0);
    return process;
  }

  static int countDescriptors() {
    int count = 0;
    for ([[maybe_unused]] const auto& entry : fs::directory_iterator("/proc/self/fd")) ++count;
    return count;
  }

  /// Kills so many clients, eight at a time, each at a random moment of its life.
  void kill(int pCount, std::mt19937& pRandom) {
    constexpr int kAtOnce = 8;
    for (int done = 0; done < pCount; done += kAtOnce) {
      std::vector<pid_t> clients;
      for (int i = 0; i < std::min(kAtOnce, pCount - done); ++i) {
        const unsigned int seed = pRandom() % 1'000'000;
        clients.push_back(start(fAddresses[seed % 2], seed));
      }
      for (const pid_t client : clients) {
        feed(client % 100);
        // The moment is the test's subject, not a wait for something.
        std::this_thread::sleep_for(std::chrono::milliseconds(pRandom() % 30));
        fSeen += static_cast<int>(DeviceProbe(*fDevice).countSubscribers());
        ::kill(client, SIGKILL);
        int status = 0;
        ASSERT_EQ(::waitpid(client, &status, 0), client);
        EXPECT_TRUE(WIFSIGNALED(status)) << "it ended by itself, with " << status;
      }
    }
  }

  int fSeen = 0;  ///< subscribers at the moments of death

  /// Bytes in use once nobody is connected, after a subscriber of the largest size came and went,
  /// which leaves the same number of buffers for later to be freed.
  std::size_t measure() {
    EXPECT_TRUE(eventually([&] { return isDeserted(); }, std::chrono::seconds(20)));
    EXPECT_EQ(leftovers(), "");
    EXPECT_EQ(fDevice->subscribe("robot", k4VGA, kRGB, 30), "robot");
    fDevice->unsubscribe("robot");
    fLog.clear();
    const struct mallinfo2 use = mallinfo2();
    return use.uordblks + use.hblkhd;
  }
};

TEST_F(KilledClients, AtAnyMoment) {
  const unsigned int seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  fDevice->subscribe("robot", k4VGA, kRGB, 30);
  fDevice->unsubscribe("robot");
  const int descriptors = countDescriptors();
  // What is allocated once, such as the buffers of the largest frames, is there after these.
  kill(16, random);
  const std::size_t before = measure();
  kill(countOfKills(), random);
  const std::size_t after = measure();
  EXPECT_LT(after, before + 1024 * 1024);
  EXPECT_GT(fSeen, countOfKills()) << "the dead had something to leave";
  EXPECT_EQ(countDescriptors(), descriptors);
  RecordProperty("bytes", static_cast<int>(after) - static_cast<int>(before));
}

}  // namespace
}  // namespace OX::test
