// The example that reads shared memory, as a program of its own beside a broker that is fed.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <thread>

#include <oxframework/oxbroker.h>
#include <oxframework/oxserver.h>
#include <oxframework/oxservices.h>
#include "load_library.h"

namespace OX::test {
namespace {

TEST(SharedFrames, ThePythonExampleSeesTheBytesThatTheDeviceSends) {
  const auto broker = OXBroker::create();
  OXPreferences::create(broker, OX_PREFERENCES);
  OXModule::createModule<OXMemory>(broker);
  ASSERT_EQ(loadLibrary(OX_VIDEO_LIBRARY, broker), 0);
  ASSERT_EQ(loadLibrary(OX_STREAM_LIBRARY, broker), 0);
  OXServer server(broker);
  const std::string path = ::testing::TempDir() + "ox_shared_" + std::to_string(::getpid());
  server.listen("unix:" + path);

  // Frames that differ, faster than the example takes them.
  std::atomic<bool> isDone{false};
  std::thread feeder([&] {
    std::string pixels(640 * 480 * 3, '\0');
    for (unsigned char shade = 0; !isDone; ++shade) {
      std::fill(pixels.begin(), pixels.end(), static_cast<char>(shade));
      OXValue frame;
      frame.SetBinary(pixels.data(), static_cast<int>(pixels.size()));
      broker->call("OXVideoDevice", "putImage", OXValue::array(0, 640, 480, frame));
      std::this_thread::sleep_for(std::chrono::milliseconds(20));  // the rate of the feed
    }
  });
  const int status =
      std::system((std::string(OX_PYTHON) + " " + OX_SHARED_FRAMES + " " + path + " 3").c_str());
  isDone = true;
  feeder.join();
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  server.close();
  broker->shutdown();
}

}  // namespace
}  // namespace OX::test
