// What a subscriber may ask of a replayed recording: nothing larger than what was recorded, since
// frames are only reduced.
#include <oxframework/oxdefinitions.h>
#include "camerarecord.h"
#include "oxvisionfilecam.h"

namespace OX {

// An unknown camera passes: the subscription that asks reports it in its own words.
bool OXVisionFileCam::xIsResolutionValid(int pResolution, int pCamera) const {
  const RealCameraProperties* const camera = xCamera(pCamera);
  return !camera || (pResolution >= 0 && pResolution <= camera->fResolution);
}

bool OXVisionFileCam::xIsFrameRateValid(int pFrameRate, int) const {
  return pFrameRate >= 1 && pFrameRate <= kReplayFrameRate;
}

bool OXVisionFileCam::xIsColorSpaceValid(int pColorSpace, int) const {
  return static_cast<unsigned int>(pColorSpace) <= kHSMixed;
}

}  // namespace OX
