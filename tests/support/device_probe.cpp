// Out of line, so that a change of a record rebuilds this file and not every test of the device.
#include "device_probe.h"

#include <algorithm>
#include <utility>

#include "camerarecord.h"
#include "oxvisionfilecam.h"
#include "oxvisionsimulatorcam.h"
#include "subscriberrecord.h"

namespace OX {

const RealCameraProperties& DeviceProbe::camera(int pIndex) const {
  return *fDevice.xCamera(pIndex);
}

const CameraDriverBuffer& DeviceProbe::store(int pIndex) const {
  return *dynamic_cast<const OXVisionSimulatorCam&>(fDevice).xStore(pIndex);
}

const std::map<std::string, boost::shared_ptr<VisionModuleInfo>>& DeviceProbe::subscribers() const {
  return fDevice.fVisionModules;
}

std::size_t DeviceProbe::countSubscribers() const {
  const OXCriticalSectionRead lock(fDevice.fVisionModulesLock);
  return fDevice.fVisionModules.size();
}

int DeviceProbe::cameras() const { return fDevice.fNbCameras; }

// The client of a test ends on threads of the broker, in an order that goes through a socket: the
// lock makes it one that the thread sanitizer sees.
void DeviceProbe::xOrderBeforeWhatFollows() const {
  if (fDevice.fVisionModulesLock->isHeldForWriting()) return;  // a fault, which complaints() tells
  const OXCriticalSectionRead lock(fDevice.fVisionModulesLock);
}

std::string DeviceProbe::pools() const {
  std::string text;
  for (int i = 0; i < cameras(); ++i)
    text += (i ? " " : "") + std::to_string(camera(i).fImageBuffers.size()) + "/" +
            std::to_string(camera(i).fRawBuffers.size());
  xOrderBeforeWhatFollows();
  return text;
}

int DeviceProbe::holds() const {
  int held = 0;
  for (const auto& [id, subscriber] : subscribers())
    for (const auto& wish : subscriber->fRequestedProperties) held += wish->fLockedImage ? 1 : 0;
  xOrderBeforeWhatFollows();
  return held;
}

std::string DeviceProbe::complaints() const {
  std::string text;
  const auto complain = [&](bool pIsWrong, const auto&... pPieces) {
    if (pIsWrong) text += report::text(pPieces..., "; ");
  };
  std::map<const OXVisionBuffer*, int> holds;
  for (const auto& [id, subscriber] : subscribers()) {
    for (const auto& wish : subscriber->fRequestedProperties)
      if (wish->fLockedImage) ++holds[wish->fLockedImage.get()];
    complain(subscriber->fTurn.fDepth != 0, "a call of ", id, " has not ended");
  }
  complain(fDevice.fCamerasTurn.fDepth != 0, "a change of the cameras has not ended");
  complain(fDevice.fVisionModulesLock->isHeldForWriting(), "the lock is held");
  for (int i = 0; i < cameras(); ++i) {
    const auto pairs =
        std::count_if(subscribers().begin(), subscribers().end(),
                      [&](const auto& entry) { return entry.second->wish(i).fHasBuffers; });
    complain(std::cmp_not_equal(camera(i).fImageBuffers.size(), pairs) ||
                 std::cmp_not_equal(camera(i).fRawBuffers.size(), pairs),
             "buffers are ", pools(), " instead of ", pairs, " pairs of camera ", i);
    for (const auto* pool : {&camera(i).fImageBuffers, &camera(i).fRawBuffers})
      for (const auto& buffer : *pool)
        complain(buffer->fReadLockCount != holds[buffer.get()] || buffer->fWriteLockCount != 0 ||
                     buffer->fPinCount != 0,
                 "a buffer of camera ", i, " is read ", buffer->fReadLockCount, " times, held ",
                 holds[buffer.get()], " times, pinned ", buffer->fPinCount, " times, written ",
                 buffer->fWriteLockCount, " times");
    text += xFrameComplaints(i);
  }
  xOrderBeforeWhatFollows();
  return text;
}

// A frame may count as lent more often than buffers point at it, when none was free to lend it.
std::string DeviceProbe::xFrameComplaints(int pCamera) const {
  std::string text;
  std::map<void*, int> lent;
  for (const auto& buffer : camera(pCamera).fRawBuffers)
    if (buffer->fRawSource) ++lent[buffer->fRawSource.get()];
  const bool isReplay = dynamic_cast<const OXVisionFileCam*>(&fDevice);
  for (const auto& [frame, times] : lent) {
    const int counted = isReplay ? static_cast<CamBuffer*>(frame)->fLockCount.load()
                                 : static_cast<OXVisionBuffer*>(frame)->fReadLockCount.load();
    if (counted < times)
      text += report::text("a frame lent ", times, " times counts ", counted, "; ");
  }
  if (isReplay) return text;
  for (const auto& frame : store(pCamera).fDriverBuffers)
    if (frame->fWriteLockCount != 0) text += "a frame is still being converted; ";
  for (const auto& frame : store(pCamera).fInputBuffers)
    if (!frame->isFree()) text += "a pushed frame is still in use; ";
  return text;
}

int DeviceProbe::lentFrames(int pCamera) const {
  int frames = 0;
  if (const auto* const replay = dynamic_cast<const OXVisionFileCam*>(&fDevice))
    for (const auto& slot : replay->fFrames) frames += slot->fLockCount;
  else
    for (const auto& frame : store(pCamera).fDriverBuffers) frames += frame->fReadLockCount;
  return frames;
}

}  // namespace OX
