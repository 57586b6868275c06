/// What tests may read inside a simulated device.
#pragma once

#include <boost/shared_ptr.hpp>
#include <map>
#include <string>

namespace OX {

class OXVisionSimulatorCam;
struct CameraDriverBuffer;
struct RealCameraProperties;
struct VisionModuleInfo;

/// Reads the counters of a device. Takes no lock: call it while no other thread uses the device.
class DeviceProbe {
 public:
  explicit DeviceProbe(const OXVisionSimulatorCam& pDevice) : fDevice(pDevice) {}

  const RealCameraProperties& camera(int pIndex) const;
  const CameraDriverBuffer& store(int pIndex) const;
  const std::map<std::string, boost::shared_ptr<VisionModuleInfo>>& subscribers() const;
  int cameras() const;

  /// "converted/raw" pool sizes of all cameras: "1/1 1/1".
  std::string pools() const;
  /// What is inconsistent in the counters while no call is under way; empty if nothing is.
  std::string complaints() const;
  /// Frames of a camera that count as lent.
  int lentFrames(int pCamera) const;

 private:
  const OXVisionSimulatorCam& fDevice;
};

}  // namespace OX
