/// A file camera in a broker of its own, on a clock that stands still, with verbs.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "oxvisionfilecam.h"
#include "support/device_fixture.h"

namespace OX::test {

inline constexpr std::int64_t kFirstStampUs = 1'000'000;
inline constexpr std::int64_t kStepUs = 100'000;

class FileCamTest : public testing::Test {
 protected:
  FileCamTest() {
    std::filesystem::create_directories(fFolder);
    startDevice();
  }
  ~FileCamTest() override {
    fClock.setSleepHook({});
    fDevice.reset();
    fBroker->shutdown();
    std::filesystem::remove_all(fFolder);
  }

  /// A device that has replayed nothing yet, in place of the one before.
  void startDevice() {
    fDevice.reset();
    if (fBroker) fBroker->shutdown();
    fBroker = OXBroker::create();
    OXModule::createModule<OXMemory>(fBroker);
    fDevice = OXModule::createModule<OXVisionFileCam>(fBroker);
  }

  std::string path(const char* pName) const { return (fFolder / pName).string(); }

  /// A recording of kYUV422 frames with these time stamps, each of one shade: its index.
  std::string recordStamps(const char* pName, const std::vector<std::int64_t>& pStamps, int pWidth,
                           int pHeight, int pCamera = 0) {
    const std::string file = path(pName);
    OXVideo video;
    EXPECT_TRUE(video.recordVideo(file, 0, {{pWidth, pHeight, kYUV422, 8}}));
    std::vector<unsigned char> pixels(static_cast<std::size_t>(pWidth * pHeight * 2));
    for (std::size_t i = 0; i < pStamps.size(); ++i) {
      std::fill(pixels.begin(), pixels.end(), static_cast<unsigned char>(i));
      EXPECT_TRUE(video.write(pixels.data(), static_cast<int>(pixels.size()), pStamps[i],
                              static_cast<std::int8_t>(pCamera), 0, 0, 0, 0));
    }
    video.closeVideo();
    return file;
  }

  /// The same with time stamps of a steady rate, 100 ms apart unless told.
  std::string record(int pImages, int pWidth = 320, int pHeight = 240, int pCamera = 0,
                     std::int64_t pStepUs = kStepUs) {
    std::vector<std::int64_t> stamps;
    for (int i = 0; i < pImages; ++i) stamps.push_back(kFirstStampUs + i * pStepUs);
    return recordStamps("recording.oxv", stamps, pWidth, pHeight, pCamera);
  }

  void play(const std::string& pFile, int pMode, bool pLoop, OXValue pRange = {}) {
    fDevice->setVideo(pFile, pRange, pLoop, pMode, 0);
  }

  std::string subscribe(const char* pName = "a") {
    return fDevice->subscribe(pName, kQVGA, kYUV422, 30);
  }

  /// "shade@stamp" of what a raw request serves, the stamp in steps from the first image.
  std::string serve(const std::string& pId) {
    const OXValue reply = fDevice->getDirectRawImageRemote(pId);
    if (!reply.isValid()) return "nothing";
    const std::int64_t stamp =
        (std::int64_t{reply[4].toInt()} << 32) + static_cast<std::uint32_t>(reply[5].toInt());
    const int shade = *static_cast<const unsigned char*>(reply[6].GetBinary());
    const std::int64_t offset = stamp - kFirstStampUs;
    const std::string rest =
        offset % kStepUs ? "+" + std::to_string(offset % kStepUs) + "us" : std::string();
    return std::to_string(shade) + "@" + std::to_string(offset / kStepUs) + rest;
  }

  /// "(shade,stamp)" of what a raw request serves.
  std::string request(const std::string& pId) {
    const OXImage* const image = fDevice->getDirectRawImageLocal(pId);
    if (!image) return "nothing";
    const std::string served =
        "(" + std::to_string(image->fData[0]) + "," + std::to_string(image->fTimeStamp) + ")";
    fDevice->releaseDirectRawImage(pId);
    return served;
  }

  const std::filesystem::path fFolder =
      std::filesystem::path(testing::TempDir()) / ("filecam" + std::to_string(::getpid()));
  FakeClock fClock;
  CaptureLog fLog;
  boost::shared_ptr<OXBroker> fBroker;
  boost::shared_ptr<OXVisionFileCam> fDevice;
};

}  // namespace OX::test
