/// What the benchmarks of delivery share: a broker with the simulator's cameras, and a clock.
#pragma once

#include <atomic>
#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <vector>

#include <oxframework/oxbroker.h>
#include <oxframework/oxclock.h>
#include <oxframework/oxdefinitions.h>
#include <oxframework/oxlog.h>
#include <oxframework/oxservices.h>
#include <oxframework/oxvalue.h>
#include "oxvisionsimulatorcam.h"

namespace OX {

/// A clock that only moves when told to, so that each benchmark decides whether an image is fresh.
class SteppedClock : public OXClock {
 public:
  SteppedClock() { OXClock::set(this); }
  ~SteppedClock() override { OXClock::set(nullptr); }
  std::int64_t nowUs() override { return fNowUs; }
  std::int64_t localNowUs() override { return fNowUs; }
  void sleepUs(unsigned int pDurationUs) override { fNowUs += pDurationUs; }
  void nextSecond() { fNowUs += 1'000'000; }
  void nextFrame() { fNowUs += kFrameUs; }

  static constexpr std::int64_t kFrameUs = 33'333;  ///< 30 frames a second

 private:
  std::atomic<std::int64_t> fNowUs{1'700'000'000'000'000};
};

/// A broker with the simulator's cameras, on the system's clock. One thread at a time pushes.
struct LiveService {
  LiveService() {
    ki::log::setLevel(0);
    OXModule::createModule<OXMemory>(broker);
    device = OXModule::createModule<OXVisionSimulatorCam>(broker);
  }
  ~LiveService() {
    device.reset();
    broker->shutdown();
  }
  LiveService(const LiveService&) = delete;
  LiveService& operator=(const LiveService&) = delete;

  void push(int pResolution, int pCamera = 0) {
    int width = 0;
    int height = 0;
    setSizeFromResolution(pResolution, width, height);
    if (frame.getSize() != width * height * 3)
      frame.SetBinary(std::vector<char>(static_cast<std::size_t>(width * height * 3), 77).data(),
                      width * height * 3);
    device->putImage(pCamera, width, height, frame);
  }

  boost::shared_ptr<OXBroker> broker = OXBroker::create();
  boost::shared_ptr<OXVisionSimulatorCam> device;
  OXValue frame;
};

struct ClockInForce {
  SteppedClock clock;
};

/// The same on a clock that stands still: an image stays fresh until the next push.
struct Service : ClockInForce, LiveService {
  void push(int pResolution) {
    clock.nextSecond();
    LiveService::push(pResolution);
  }
};

}  // namespace OX
