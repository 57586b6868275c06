// Construction and destruction: two cameras, whose frames have storage for the largest format from
// the start, so that no later format needs another allocation.
#include <boost/make_shared.hpp>

#include <oxframework/oxdefinitions.h>
#include "camerarecord.h"
#include "oxvisionsimulatorcam.h"

namespace OX {
namespace {

constexpr int kDriverBuffers = 4;
constexpr int kInputBuffers = 4;  // the newest, the next, and one each that is still in use
constexpr int kCameras = 2;

boost::shared_ptr<RealCameraProperties> makeCamera() {
  auto camera = boost::make_shared<RealCameraProperties>();
  camera->fResolution = kQVGA;
  setSizeFromResolution(kQVGA, camera->fWidth, camera->fHeight);
  camera->fCameraModel = kMT9M114;
  camera->fColorSpace = kYUV422;
  camera->fFrameRate = 5;
  camera->fBufferCount = kDriverBuffers;
  return camera;
}

}  // namespace

CameraDriverBuffer::CameraDriverBuffer() : fMutex(OXMutex::createOXMutex()) {
  for (int i = 0; i < kDriverBuffers; ++i) {
    fDriverBuffers.push_back(boost::make_shared<OXVisionBuffer>(k4VGA, kYUV422, false));
    fDriverBuffers.back()->fImage->fTimeStamp = -1;  // no pushed frame has this stamp
  }
  // In the resolution that a push without a declared size has: fInputResolution's initial value.
  for (int i = 0; i < kInputBuffers; ++i)
    fInputBuffers.push_back(boost::make_shared<OXVisionBuffer>(fInputResolution, kRGB, false));
}

OXVisionSimulatorCam::OXVisionSimulatorCam(boost::shared_ptr<OXBroker> pBroker)
    : OXVisionVideoInput(std::move(pBroker), "OXVideoDevice") {
  fDefaultResolution = kQVGA;
  fCameraProperties.clear();
  fNbCameras = kCameras;
  for (int i = 0; i < fNbCameras; ++i) {
    fCameraProperties.push_back(makeCamera());
    fCameraDriverBuffers.push_back(boost::make_shared<CameraDriverBuffer>());
    fCameraDriverBuffers.back()->fCamera = i;
    fAnnounced.push_back(xExpectedImage(i));
  }
}

OXVisionSimulatorCam::~OXVisionSimulatorCam() {
  OXVisionVideoInput::stopFrameGrabber();
  for (int i = 0; i < fNbCameras; ++i) xCloseDevice(i);
  fCameraDriverBuffers.clear();
}

}  // namespace OX
