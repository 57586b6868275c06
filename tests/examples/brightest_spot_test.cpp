// The example of a local vision module, loaded after the video library as a broker loads them.
#include <gtest/gtest.h>

#include <future>

#include <oxframework/oxbroker.h>
#include <oxframework/oxservices.h>
#include "load_library.h"
#include "support/capture_log.h"
#include "support/outcome.h"

namespace OX::test {
namespace {

TEST(BrightestSpot, FindsTheBrightPixelOfAPushedFrameWithoutACopy) {
  const CaptureLog log;
  const auto broker = OXBroker::create();
  OXPreferences::create(broker, OX_PREFERENCES);
  OXModule::createModule<OXMemory>(broker);
  EXPECT_EQ(outcome([&] { return loadLibrary(OX_EXAMPLE_LIBRARY, broker); }),
            "OXError: There is no module OXVideoStream in this process; load libvideoinput.so and "
            "libvideostream.so before this library");
  ASSERT_EQ(loadLibrary(OX_VIDEO_LIBRARY, broker), 0);
  ASSERT_EQ(loadLibrary(OX_STREAM_LIBRARY, broker), 0);
  ASSERT_EQ(loadLibrary(OX_EXAMPLE_LIBRARY, broker), 0);

  constexpr int kX = 200;
  constexpr int kY = 30;
  std::vector<unsigned char> pixels(320 * 240 * 3, 40);
  std::fill_n(pixels.begin() + (kY * 320 + kX) * 3, 3, 255);
  OXValue frame;
  frame.SetBinary(pixels.data(), static_cast<int>(pixels.size()));
  auto spot = std::async(std::launch::async, [&] {
    return show(broker->call("BrightestSpot", "find", OXValue::array(0)));
  });
  // It takes a frame that is pushed after its stream was opened.
  while (spot.wait_for(std::chrono::milliseconds(5)) == std::future_status::timeout)
    EXPECT_TRUE(
        broker->call("OXVideoDevice", "putImage", OXValue::array(0, 320, 240, frame)).toBool());
  EXPECT_EQ(spot.get(), "[200, 30, 235]");
  EXPECT_EQ(outcome([&] { return broker->call("BrightestSpot", "find", OXValue::array(5)); }),
            "OXError: Could not subscribe module: brightestSpot\n5is not a valid camera index");
  broker->shutdown();
}

}  // namespace
}  // namespace OX::test
