/// A simulator device in a broker of its own, on a fake clock, with verbs.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <oxframework/oxbroker.h>
#include <oxframework/oxdefinitions.h>
#include <oxframework/oxservices.h>
#include "capture_log.h"
#include "device_probe.h"
#include "fake_clock.h"
#include "outcome.h"
#include "oxvisionsimulatorcam.h"

namespace OX::test {

class SimulatorTest : public testing::Test {
 protected:
  SimulatorTest() { startDevice(); }
  ~SimulatorTest() override {
    fClock.setSleepHook({});
    fDevice.reset();
    fBroker->shutdown();
  }

  /// A new device, in place of the one before.
  void startDevice() {
    fDevice.reset();
    if (fBroker) fBroker->shutdown();
    fBroker = OXBroker::create();
    OXModule::createModule<OXMemory>(fBroker);
    fDevice = OXModule::createModule<OXVisionSimulatorCam>(fBroker);
  }

  std::string subscribe(const std::string& pName, int pResolution = kQVGA,
                        int pColorSpace = kYUV422, int pFps = 30) {
    return fDevice->subscribe(pName, pResolution, pColorSpace, pFps);
  }

  /// Pushes a frame of one colour at the clock's current time.
  bool push(int pCamera = 0, int pWidth = 320, int pHeight = 240, int pShade = 128) {
    const std::vector<unsigned char> pixels(static_cast<std::size_t>(pWidth * pHeight * 3),
                                            static_cast<unsigned char>(pShade));
    OXValue image;
    image.SetBinary(pixels.data(), static_cast<int>(pixels.size()));
    return fDevice->putImage(pCamera, pWidth, pHeight, image);
  }

  /// Calls a published method as the broker does.
  template <typename... Arguments>
  OXValue call(const std::string& pMethod, Arguments&&... pArguments) {
    return fBroker->call("OXVideoDevice", pMethod,
                         OXValue::array(std::forward<Arguments>(pArguments)...));
  }

  FakeClock fClock;
  CaptureLog fLog;
  boost::shared_ptr<OXBroker> fBroker;
  boost::shared_ptr<OXVisionSimulatorCam> fDevice;
};

}  // namespace OX::test
