/// What a test may look at inside a simulated device.
#pragma once

#include <boost/shared_ptr.hpp>
#include <map>
#include <string>

namespace OX {

class OXVisionSimulatorCam;
struct CameraDriverBuffer;
struct RealCameraProperties;
struct VisionModuleInfo;

/// Looks at the counters of a device. Takes no lock: call it while no other thread does anything.
class DeviceProbe {
 public:
  explicit DeviceProbe(const OXVisionSimulatorCam& pDevice) : fDevice(pDevice) {}

  const RealCameraProperties& camera(int pIndex) const;
  const CameraDriverBuffer& store(int pIndex) const;
  const std::map<std::string, boost::shared_ptr<VisionModuleInfo>>& modules() const;
  int cameras() const;

  /// "converted/raw" pool sizes of all cameras: "1/1 1/1".
  std::string pools() const;
  /// What is wrong with the counters while nobody is inside the device; empty when all is well.
  std::string complaints() const;
  /// Frames of a camera that count as lent.
  int lentFrames(int pCamera) const;

 private:
  const OXVisionSimulatorCam& fDevice;
};

}  // namespace OX
