/// What tests may read inside a device.
#pragma once

#include <boost/shared_ptr.hpp>
#include <map>
#include <string>

#include <oxframework/oxthreadsafety.h>

namespace OX {

class OXVisionVideoInput;
struct CameraDriverBuffer;
struct RealCameraProperties;
struct VisionModuleInfo;

/// Reads the counters of a device. Takes no lock unless a comment says so: call it while no other
/// thread uses the device.
class DeviceProbe {
 public:
  explicit DeviceProbe(const OXVisionVideoInput& pDevice) : fDevice(pDevice) {}

  const RealCameraProperties& camera(int pIndex) const;
  /// Of a simulated camera.
  const CameraDriverBuffer& store(int pIndex) const;
  const std::map<std::string, boost::shared_ptr<VisionModuleInfo>>& subscribers() const;
  int cameras() const;
  /// How many subscribers there are. Takes the lock: other threads may use the device.
  std::size_t countSubscribers() const;

  /// "converted/raw" pool sizes of all cameras: "1/1 1/1".
  std::string pools() const;
  /// How many images subscribers hold.
  int holds() const;
  /// What is inconsistent in the counters, locks and turns while no call is under way; empty if
  /// nothing is.
  std::string complaints() const;
  /// How often frames of a camera count as lent.
  int lentFrames(int pCamera) const OX_NO_THREAD_SAFETY_ANALYSIS;  // no other thread, as above

 private:
  void xOrderBeforeWhatFollows() const;
  std::string xFrameComplaints(int pCamera) const;

  const OXVisionVideoInput& fDevice;
};

}  // namespace OX
