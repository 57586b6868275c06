// What a subscriber may ask of a simulated camera. Takes no lock, since only the camera's model is
// read, which never changes: subscriptions are checked before they wait for anything.
#include <oxframework/oxdefinitions.h>
#include <oxframework/oxlog.h>
#include "camerarecord.h"
#include "oxvisionsimulatorcam.h"

namespace OX {
namespace {

constexpr int kMaxFrameRate = 30;

}  // namespace

// An unknown camera passes: the subscription that asks reports it in its own words.
bool OXVisionSimulatorCam::xIsResolutionValid(int pResolution, int pCamera) const {
  const RealCameraProperties* const camera = xCamera(pCamera);
  if (!camera) return true;
  const auto resolution = static_cast<unsigned int>(pResolution);
  if (camera->fCameraModel == kOV7670) return resolution <= kVGA;
  if (camera->fCameraModel == kMT9M114) return resolution <= k4VGA;
  report::log(ki::log::kError, "xIsResolutionValid",
              report::text(camera->fCameraModel, " unknow camera model ID."),
              "vision.oxvisionatomcam");
  return false;
}

bool OXVisionSimulatorCam::xIsFrameRateValid(int pFrameRate, int) const {
  return pFrameRate >= 1 && pFrameRate <= kMaxFrameRate;
}

// Every number up to the last colour space, also those between that have no conversion: a request
// then logs that and leaves the pixels as they were.
bool OXVisionSimulatorCam::xIsColorSpaceValid(int pColorSpace, int) const {
  return static_cast<unsigned int>(pColorSpace) <= kHSMixed;
}

}  // namespace OX
