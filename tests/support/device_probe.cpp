// Out of line, so that a change of a record rebuilds this file and not every test of the device.
#include "device_probe.h"

#include "camerarecord.h"
#include "oxvisionsimulatorcam.h"
#include "subscriberrecord.h"

namespace OX {

const RealCameraProperties& DeviceProbe::camera(int pIndex) const {
  return *fDevice.xCamera(pIndex);
}

const CameraDriverBuffer& DeviceProbe::store(int pIndex) const { return *fDevice.xStore(pIndex); }

const std::map<std::string, boost::shared_ptr<VisionModuleInfo>>& DeviceProbe::subscribers() const {
  return fDevice.fVisionModules;
}

int DeviceProbe::cameras() const { return fDevice.fNbCameras; }

std::string DeviceProbe::pools() const {
  std::string text;
  for (int i = 0; i < cameras(); ++i)
    text += (i ? " " : "") + std::to_string(camera(i).fImageBuffers.size()) + "/" +
            std::to_string(camera(i).fRawBuffers.size());
  return text;
}

std::string DeviceProbe::complaints() const {
  std::string text;
  std::map<const OXVisionBuffer*, int> holds;
  for (const auto& [id, subscriber] : subscribers())
    for (const auto& wish : subscriber->fRequestedProperties)
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

int DeviceProbe::lentFrames(int pCamera) const {
  int frames = 0;
  for (const auto& frame : store(pCamera).fDriverBuffers) frames += frame->fReadLockCount;
  return frames;
}

}  // namespace OX
