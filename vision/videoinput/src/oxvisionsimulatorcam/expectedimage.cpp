// Tells simulators what the cameras expect of them, by an event. Whoever changes a camera only
// posts the announcement: callbacks of an event may take as long as they like, or call the device.
#include <oxframework/oxbroker.h>
#include <oxframework/oxdefinitions.h>
#include <oxframework/oxerror.h>
#include <oxframework/oxproxies.h>
#include "camerarecord.h"
#include "oxvisionsimulatorcam.h"

namespace OX {

void OXVisionSimulatorCam::xCameraChanged() {
  // An announcement that is posted or under way looks again when it has ended.
  if (fUnannouncedChanges.fetch_add(1) == 0) xPostAnnouncement();
}

void OXVisionSimulatorCam::xPostAnnouncement() {
  try {
    const boost::shared_ptr<OXBroker> broker = getParentBroker();
    // Without ownership: a device that ends meanwhile announces nothing.
    const auto announce = [weak = weak_from_this()] {
      if (const auto device = boost::dynamic_pointer_cast<OXVisionSimulatorCam>(weak.lock()))
        device->xAnnounceExpectedImages();
    };
    if (broker && broker->post(announce)) return;
  } catch (const std::exception&) {
    // No memory: the change of the camera is worth more than its announcement.
  }
  fUnannouncedChanges = 0;
}

void OXVisionSimulatorCam::xAnnounceExpectedImages() {
  int changes = fUnannouncedChanges;
  for (int i = 0; i < fNbCameras; ++i) {
    const OXValue expected = xExpectedImage(i);
    OXValue& announced = fAnnounced[static_cast<std::size_t>(i)];
    if (expected == announced) continue;
    announced = expected;
    try {
      OXMemoryProxy(getParentBroker()).raiseEvent("VideoInput/ExpectedImage", expected);
    } catch (const std::exception&) {
      // Without a memory service, or at the end of the broker, there is nobody to tell. What else
      // fails must not end the announcements: push asks from time to time.
    }
  }
  // Posted anew rather than repeated here: callbacks that go on changing cameras then keep neither
  // other tasks of the broker from running nor the broker from ending.
  if (!fUnannouncedChanges.compare_exchange_strong(changes, 0)) xPostAnnouncement();
}

OXValue OXVisionSimulatorCam::xExpectedImage(int pCameraIndex) const {
  const OXCriticalSectionRead lock(fVisionModulesLock);
  const RealCameraProperties& camera = *xCamera(pCameraIndex);
  int width = 0;
  int height = 0;
  setSizeFromResolution(camera.fResolution, width, height);
  return OXValue::array(pCameraIndex, width, height, static_cast<int>(camera.fFrameRate));
}

}  // namespace OX
