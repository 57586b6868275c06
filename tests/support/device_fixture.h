/// A simulator device in a broker of its own, on a clock that stands still, with verbs.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <oxframework/oxbroker.h>
#include <oxframework/oxdefinitions.h>
#include <oxframework/oxservices.h>
#include "capture_log.h"
#include "fake_clock.h"
#include "outcome.h"
#include "oxvisionsimulatorcam.h"
#include "records.h"

namespace OX {

/// Looks at the counters of a device. Takes no lock: call it while no other thread does anything.
class DeviceProbe {
 public:
  explicit DeviceProbe(const OXVisionSimulatorCam& pDevice) : fDevice(pDevice) {}

  const RealCameraProperties& camera(int pIndex) const { return *fDevice.xCamera(pIndex); }
  const CameraDriverBuffer& store(int pIndex) const { return *fDevice.xStore(pIndex); }
  const std::map<std::string, boost::shared_ptr<VisionModuleInfo>>& modules() const {
    return fDevice.fVisionModules;
  }
  int cameras() const { return fDevice.fNbCameras; }

  /// "converted/raw" pool sizes of all cameras: "1/1 1/1".
  std::string pools() const {
    std::string text;
    for (int i = 0; i < cameras(); ++i)
      text += (i ? " " : "") + std::to_string(camera(i).fImageBuffers.size()) + "/" +
              std::to_string(camera(i).fRawBuffers.size());
    return text;
  }

  /// What is wrong with the counters while nobody is inside the device; empty when all is well.
  std::string complaints() const {
    std::string text;
    std::map<const OXVisionBuffer*, int> holds;
    for (const auto& [id, module] : modules())
      for (const auto& wish : module->fRequestedProperties)
        if (wish->fLockedImage) ++holds[wish->fLockedImage.get()];
    for (int i = 0; i < cameras(); ++i) {
      if (camera(i).fImageBuffers.size() != camera(i).fRawBuffers.size())
        text += "pools differ: " + pools() + "; ";
      int lent = 0;
      for (const auto* pool : {&camera(i).fImageBuffers, &camera(i).fRawBuffers})
        for (const auto& buffer : *pool) {
          if (buffer->fReadLockCount != holds[buffer.get()] || buffer->fWriteLockCount != 0)
            text += "a buffer of camera " + std::to_string(i) + " is read " +
                    std::to_string(buffer->fReadLockCount) + " times, held " +
                    std::to_string(holds[buffer.get()]) + " times; ";
          if (buffer->fRawSource) ++lent;
        }
      int frames = 0;
      for (const auto& frame : store(i).fDriverBuffers) frames += frame->fReadLockCount;
      if (frames < lent) text += "a lent frame of camera " + std::to_string(i) + " is not counted";
    }
    return text;
  }

  /// Frames of a camera that count as lent.
  int lentFrames(int pCamera) const {
    int frames = 0;
    for (const auto& frame : store(pCamera).fDriverBuffers) frames += frame->fReadLockCount;
    return frames;
  }

 private:
  const OXVisionSimulatorCam& fDevice;
};

namespace test {

class SimulatorTest : public testing::Test {
 protected:
  SimulatorTest() {
    OXModule::createModule<OXMemory>(fBroker);
    fDevice = OXModule::createModule<OXVisionSimulatorCam>(fBroker);
  }
  ~SimulatorTest() override {
    fClock.setSleepHook({});
    fDevice.reset();
    fBroker->shutdown();
  }

  std::string subscribe(const std::string& pName, int pResolution = kQVGA,
                        int pColorSpace = kYUV422, int pFps = 30) {
    return fDevice->subscribe(pName, pResolution, pColorSpace, pFps);
  }

  /// A frame of one colour, pushed at the present moment.
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
  boost::shared_ptr<OXBroker> fBroker = OXBroker::create();
  boost::shared_ptr<OXVisionSimulatorCam> fDevice;
};

}  // namespace test
}  // namespace OX
