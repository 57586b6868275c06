// What a camera runs at: the highest resolution and frame rate that any subscriber asks for. A new
// resolution restarts the grabber, so the camera is changed only if a wish decides.
#include <algorithm>

#include <oxframework/oxdefinitions.h>
#include <oxframework/oxlog.h>
#include "claim.h"
#include "oxvisionvideoinput.h"

namespace OX {
namespace {

constexpr int kMinCameraFrameRate = 5;

// The restart pauses the lock, also when the camera has its new resolution already and the raw
// buffers do not.
class ChangeScope {
 public:
  explicit ChangeScope(RealCameraProperties& pCamera) : fCamera(pCamera) {
    fCamera.fIsChanging = true;
  }
  ~ChangeScope() { fCamera.fIsChanging = false; }
  ChangeScope(const ChangeScope&) = delete;
  ChangeScope& operator=(const ChangeScope&) = delete;

 private:
  RealCameraProperties& fCamera;
};

}  // namespace

bool OXVisionVideoInput::xUpdateParam(const int& pCameraIndex) {
  RealCameraProperties* const camera = xCamera(pCameraIndex);
  if (!camera) return true;
  // The restart pauses the lock. Wishes that change meanwhile have an update of their own, after
  // this one.
  const TurnScope turn(fCamerasTurn, fVisionModulesLock);
  if (fVisionModules.empty()) {
    // Written straight into the camera: the restart applies it.
    if (camera->fFrameRate == kMinCameraFrameRate && camera->fResolution == fDefaultResolution)
      return true;
    xStopFrameGrabber(pCameraIndex);
    camera->fResolution = static_cast<std::int8_t>(fDefaultResolution);
    camera->fFrameRate = kMinCameraFrameRate;
    xCameraChanged();
    xStartFrameGrabber(pCameraIndex);
    return true;
  }
  // Every subscriber counts for every camera, even one that it does not use.
  int resolution = fDefaultResolution;
  int frameRate = kMinCameraFrameRate;
  for (const auto& [id, subscriber] : fVisionModules) {
    // What streams of frames demand counts too: others may have changed the wishes.
    const RequestedCameraProperties& wish = subscriber->wish(pCameraIndex);
    resolution = std::max({resolution, int{wish.fResolution}, wish.fStreamResolution});
    frameRate = std::max({frameRate, int{subscriber->fFrameRate}, subscriber->fStreamRate});
  }
  if (resolution != camera->fResolution) {
    report::log(ki::log::kInfo, "xUpdateParam",
                report::text(getName(), ": New resolution changed to ", resolution));
    {
      const ChangeScope change(*camera);
      xSetParam(pCameraIndex, kCameraResolutionID, resolution, false);
    }
    camera->fResolution = static_cast<std::int8_t>(resolution);
    // Frames of a camera that sets no format are lent in these buffers, which need the new one.
    for (const auto& buffer : camera->fRawBuffers) buffer->fImage->setResolution(resolution);
    xCameraChanged();
  }
  if (frameRate != camera->fFrameRate) {
    report::log(ki::log::kInfo, "xUpdateParam",
                report::text(getName(), ": New framerate: ", frameRate));
    xSetParam(pCameraIndex, kCameraFrameRateID, frameRate, false);
    camera->fFrameRate = static_cast<std::uint8_t>(frameRate);
    xCameraChanged();
  }
  return true;
}

void OXVisionVideoInput::xCameraChanged() {}

// A wish equal to what the camera runs at may be the one that keeps it there.
void OXVisionVideoInput::xLowerCamera(const Claim& pClaim) {
  if (pClaim.wish.fResolution == pClaim.camera.fResolution ||
      pClaim.subscriber->fFrameRate == pClaim.camera.fFrameRate)
    xUpdateParam(pClaim.index);
}

// The camera follows if the new wish is the highest, or the old one was.
bool OXVisionVideoInput::xFollowChange(int pCamera, int pOld, int pNew, int pReal) {
  if (pNew > pReal || (pNew < pReal && pOld == pReal)) return xUpdateParam(pCamera);
  return true;
}

}  // namespace OX
