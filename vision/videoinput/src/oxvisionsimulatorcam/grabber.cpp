// Opens and closes a simulated camera. There is no hardware: opening only sets the frames to
// the camera's resolution and forgets what was pushed before.
#include "delivery/grabber.h"

#include <oxframework/oxdefinitions.h>
#include "camerarecord.h"
#include "oxvisionsimulatorcam.h"

namespace OX {
namespace {

constexpr GrabberTexts kTexts{kSimulatorCategory,
                              "vision/videoinput/src/oxvisionsimulatorcam",
                              141,
                              true,
                              "Error closing file.",
                              nullptr,
                              nullptr};

}  // namespace

bool OXVisionSimulatorCam::xStartFrameGrabber(const int& pCameraIndex) {
  return xRunStart(pCameraIndex, kTexts,
                   [&]() OX_REQUIRES(fVisionModulesLock) { return xOpenDevice(pCameraIndex); });
}

bool OXVisionSimulatorCam::xStopFrameGrabber(const int& pCameraIndex) {
  return xRunStop(pCameraIndex, kTexts,
                  [&]() OX_REQUIRES(fVisionModulesLock) { return xCloseDevice(pCameraIndex); });
}

// A frame pushed before the opening is no longer offered. fLastDriverBuffer stays: the next pushed
// frame is told from the last converted one by its time stamp.
bool OXVisionSimulatorCam::xOpenDevice(int pCamera) {
  CameraDriverBuffer& store = *xStore(pCamera);
  const int resolution = xCamera(pCamera)->fResolution;
  const OXCriticalSection lock(store.fMutex);
  ++store.fOpenings;
  store.fLastInputBuffer = -1;
  xCamera(pCamera)->fNewestFrame.set({});
  for (const auto& frame : store.fDriverBuffers) {
    frame->fImage->setResolution(resolution);
    frame->fImage->setColorSpace(kYUV422);
  }
  return true;
}

bool OXVisionSimulatorCam::xCloseDevice(int) { return true; }

}  // namespace OX
