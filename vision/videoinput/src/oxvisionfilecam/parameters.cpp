// A recording has parameters for reading only. Setting one is accepted and changes nothing, so that
// negotiation can treat every camera alike.
#include <oxframework/oxdefinitions.h>
#include <oxframework/oxerror.h>
#include "camerarecord.h"
#include "oxvisionfilecam.h"

namespace OX {

int OXVisionFileCam::xGetParam(const int& pCameraIndex, const int& pParam) {
  const RealCameraProperties* const camera = xCamera(pCameraIndex);
  const bool needsCamera = pParam == kCameraResolutionID || pParam == kCameraFrameRateID ||
                           pParam == kCameraColorSpaceID;
  if (needsCamera && !camera)
    throw OXError("Camera", "getParam()", "Invalid camera parameter input reference.", "", 0);
  switch (pParam) {
    case kCameraResolutionID:
      return camera->fResolution;
    case kCameraFrameRateID:
      return camera->fFrameRate;
    case kCameraSelectID:
      return fActiveCamera;
    case kCameraColorSpaceID:
      return camera->fColorSpace;
    default:
      throw OXError("OXVisionMioCam", "getParam()", "pId not handled in fileCam", "", 0);
  }
}

bool OXVisionFileCam::xSetParam(int, int, int, bool) { return true; }

}  // namespace OX
