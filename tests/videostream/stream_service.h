/// A simulator with the service of streams behind a server, by the real clock.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <oxframework/oxdefinitions.h>
#include <oxframework/oxremotebroker.h>
#include <oxframework/oxserver.h>
#include <oxframework/oxservices.h>
#include "memory/aheadframe.h"
#include "oxvideostream/oxstreamservice.h"
#include "oxvisionsimulatorcam.h"
#include "support/capture_log.h"

namespace OX::test {

/// Waits for a condition that another thread is about to meet; only a failure takes long.
inline bool eventually(const std::function<bool()>& pCondition,
                       std::chrono::seconds pLimit = std::chrono::seconds(20)) {
  const auto deadline = std::chrono::steady_clock::now() + pLimit;
  while (!pCondition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::yield();
  }
  return true;
}

inline std::string failureOf(const std::function<void()>& pAction) {
  try {
    pAction();
  } catch (const OXError& error) {
    return error.what();
  }
  return "none";
}

}  // namespace OX::test

namespace OX {

/// What tests may read inside the service. Thread-safe.
class StreamProbe {
 public:
  explicit StreamProbe(const OXStreamService& pService) : fStreams(*pService.fStreams) {}

  /// Requests that wait for a frame.
  std::size_t countWaiting() const {
    Delivery& delivery = *fStreams.fDelivery;
    const detail::MutexLock hold(delivery.fGuard);
    std::size_t count = 0;
    for (const StreamPtr& stream : delivery.fStreams) {
      if (stream->line().isServed) return static_cast<std::size_t>(-1);
      count += stream->line().requests.size();
    }
    return count;
  }
  /// Whether a frame is there that a stream was not asked for.
  bool hasAhead(const std::string& pId) const {
    const StreamPtr stream = fStreams.find("test", pId, owner(pId));
    Delivery& delivery = *fStreams.fDelivery;
    const detail::MutexLock hold(delivery.fGuard);
    return stream->line().ahead != nullptr;
  }
  std::size_t countStreams() const {
    const detail::MutexLock hold(fStreams.fGuard);
    return fStreams.fStreams.size();
  }

 private:
  int owner(const std::string& pId) const {
    const detail::MutexLock hold(fStreams.fGuard);
    return fStreams.fStreams.at(pId)->owner().connection;
  }

  const Streams& fStreams;
};

}  // namespace OX

namespace OX::test {

/// A client by a connection of its own.
class StreamClient {
 public:
  explicit StreamClient(const std::string& pAddress) : fBroker(OXRemoteBroker::connect(pAddress)) {}

  template <typename... Arguments>
  OXValue call(const std::string& pMethod, Arguments&&... pArguments) {
    return fBroker->call("OXVideoStream", pMethod,
                         OXValue::array(std::forward<Arguments>(pArguments)...));
  }
  std::string open(const std::string& pName, int pFps = 0, int pCamera = 0,
                   int pResolution = kQQVGA, int pColorSpace = kRGB) {
    return call("open", pName, pCamera, pResolution, pColorSpace, pFps).toString();
  }
  std::string openBoth(const std::string& pName) {
    return call("openStreams", pName, OXValue::array(1, 0), OXValue::array(kQQVGA, kQQVGA),
                OXValue::array(kRGB, kRGB), 0)
        .toString();
  }
  /// A request under way.
  std::future<OXValue> ask(const std::string& pId, int pTimeoutMs = 20000,
                           const std::string& pMethod = "next") {
    return std::async(std::launch::async,
                      [this, pId, pTimeoutMs, pMethod] { return call(pMethod, pId, pTimeoutMs); });
  }
  std::int64_t statistic(const std::string& pId, int pIndex) {
    return call("statistics", pId)[pIndex].toInt();
  }
  boost::shared_ptr<OXRemoteBroker>& broker() { return fBroker; }

 private:
  boost::shared_ptr<OXRemoteBroker> fBroker;
};

class StreamService : public testing::Test {
 protected:
  void start(const OXBrokerOptions& pOptions = {}, const OXWireLimits& pLimits = {}) {
    fBroker = OXBroker::create(pOptions);
    OXModule::createModule<OXMemory>(fBroker);
    fDevice = OXModule::createModule<OXVisionSimulatorCam>(fBroker);
    fStreams = OXModule::createModule<OXStreamService>(fBroker);
    serve(pLimits);
  }
  void serve(const OXWireLimits& pLimits = {}) {
    fServer = std::make_unique<OXServer>(fBroker, pLimits);
    fAddress =
        fServer->listen("unix:" + testing::TempDir() + "ox_streams_" + std::to_string(::getpid()));
    fTcp = fServer->listen("127.0.0.1:0");
  }
  void TearDown() override {
    fServer.reset();
    fStreams.reset();
    fDevice.reset();
    if (fBroker) fBroker->shutdown();
  }

  /// A frame of one shade, 0 to 25.
  void push(int pShade, int pCamera = 0) {
    const std::vector<unsigned char> pixels(160 * 120 * 3, static_cast<unsigned char>(pShade * 10));
    OXValue image;
    image.SetBinary(pixels.data(), static_cast<int>(pixels.size()));
    ASSERT_TRUE(fDevice->putImage(pCamera, 160, 120, image));
  }
  StreamClient connect() const { return StreamClient(fAddress); }
  bool awaitWaiting(std::size_t pCount) {
    return eventually([&] { return StreamProbe(*fStreams).countWaiting() == pCount; });
  }

  CaptureLog fLog;
  boost::shared_ptr<OXBroker> fBroker;
  boost::shared_ptr<OXVisionSimulatorCam> fDevice;
  boost::shared_ptr<OXStreamService> fStreams;
  std::unique_ptr<OXServer> fServer;
  std::string fAddress, fTcp;
};

/// The shade of a frame that push() made, of which a conversion may have rounded the pixels.
inline int shadeOf(const void* pPixels) {
  return (static_cast<const unsigned char*>(pPixels)[0] + 5) / 10;
}
/// The same of an image in kRGB; -1 for none.
inline int shadeOf(const OXValue& pImage) {
  return pImage.isArray() ? shadeOf(pImage[6].GetBinary()) : -1;
}

}  // namespace OX::test
