// Parameters of the simulated cameras. Three can be set: resolution, frame rate and the active
// camera. A new resolution is applied by restarting the grabber, which reformats the frames.
#include <oxframework/oxdefinitions.h>
#include <oxframework/oxerror.h>
#include <oxframework/oxlog.h>
#include "camerarecord.h"
#include "oxvisionsimulatorcam.h"

namespace OX {
namespace {

constexpr int kDefaultFrameRate = 5;
constexpr unsigned int kSettleUs = 1;

// The next higher one of the four rates that the cameras have, or the highest.
int supportedFrameRate(int pFrameRate) {
  if (pFrameRate > 15) return 30;
  if (pFrameRate > 10) return 15;
  return pFrameRate > 5 ? 10 : 5;
}

}  // namespace

// Errors here have no path and line, and name "Camera" as their module: clients know them so.
RealCameraProperties& OXVisionSimulatorCam::xParameterCamera(int pCameraIndex,
                                                             const char* pMethod) const {
  RealCameraProperties* const camera = xCamera(pCameraIndex);
  if (!camera) throw OXError("Camera", pMethod, "Invalid camera parameter input reference.", "", 0);
  return *camera;
}

int OXVisionSimulatorCam::xGetParam(const int& pCameraIndex, const int& pParam) {
  constexpr const char* kMethod = "getParam()";
  switch (pParam) {
    case kCameraResolutionID:
      return xParameterCamera(pCameraIndex, kMethod).fResolution;
    case kCameraFrameRateID:
      return xParameterCamera(pCameraIndex, kMethod).fFrameRate;
    case kCameraBufferSizeID:
      return xParameterCamera(pCameraIndex, kMethod).fBufferCount;
    // Of the device and not of the camera, whose index is therefore not checked.
    case kCameraSelectID:
      return fActiveCamera;
    case kCameraColorSpaceID:
      return xParameterCamera(pCameraIndex, kMethod).fColorSpace;
    default:
      throw OXError("Camera", kMethod, "Bad input parameter ID", "", 0);
  }
}

bool OXVisionSimulatorCam::xSetParam(int pCameraIndex, int pParam, int pValue, bool pSetDefault) {
  switch (pParam) {
    case kCameraResolutionID:
      return xSetResolutionParam(pCameraIndex, pSetDefault ? fDefaultResolution : pValue);
    case kCameraFrameRateID:
      return xSetFrameRateParam(pCameraIndex,
                                pSetDefault ? kDefaultFrameRate : supportedFrameRate(pValue));
    case kCameraSelectID:
      return xSelectCamera(pCameraIndex, pSetDefault ? 0 : pValue);
    default:
      throw OXError("OXVideoInput", "xSetParam()", "Invalid parameter input reference.", "", 0);
  }
}

// The value is checked first: a wrong one is refused, and only then does a wrong camera throw.
bool OXVisionSimulatorCam::xSetResolutionParam(int pCameraIndex, int pValue) {
  if (static_cast<unsigned int>(pValue) > k4VGA) {
    report::log(ki::log::kError, "xSetParam",
                "xSetParam() Invalid camera resolution input parameter.",
                "vision.oxvisionsimulator");
    return false;
  }
  RealCameraProperties& camera = xParameterCamera(pCameraIndex, "setParam()");
  if (pValue == camera.fResolution) return true;
  // The restart applies it, also to a camera that was stopped, which runs afterwards.
  xStopFrameGrabber(pCameraIndex);
  xSleep(kSettleUs);
  // Nothing pauses the lock from here to the opening, which sets the frames to it: a request finds
  // both as they were, or both changed.
  {
    const OXCriticalSection lock(fParametersLock);
    camera.fResolution = static_cast<std::int8_t>(pValue);
  }
  xStartFrameGrabber(pCameraIndex);
  return true;
}

// Nothing is restarted: a push sets its own pace, and the rate is only what the simulator is told
// to deliver.
bool OXVisionSimulatorCam::xSetFrameRateParam(int pCameraIndex, int pValue) {
  RealCameraProperties& camera = xParameterCamera(pCameraIndex, "setParam()");
  if (pValue == camera.fFrameRate) return true;
  const OXCriticalSection lock(fParametersLock);
  camera.fFrameRate = static_cast<std::uint8_t>(pValue);
  return true;
}

// The index one past the last camera is accepted, and makes no camera active: clients rely on it.
// Everything that follows the active camera therefore goes through xCamera.
bool OXVisionSimulatorCam::xSelectCamera(int pCameraIndex, int pValue) {
  if (pValue < 0 || pValue > fNbCameras)
    throw OXError("Camera", "setParam()", "Invalid camera parameter input reference.", "", 0);
  // Compared with the camera that is addressed and not with the active one: clients know it so.
  if (pValue == pCameraIndex) {
    report::log(ki::log::kInfo, "xSetParam", "Same camera selected.", kSimulatorCategory);
    return true;
  }
  const int old = fActiveCamera.exchange(pValue);
  xUpdateParam(old);
  xUpdateParam(pValue);
  return true;
}

}  // namespace OX
