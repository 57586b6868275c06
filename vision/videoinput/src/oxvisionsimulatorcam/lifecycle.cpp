// Construction, opening and closing, and what a subscriber may ask for.
#include <boost/make_shared.hpp>

#include <oxframework/oxdefinitions.h>
#include <oxframework/oxlog.h>
#include "oxvisionsimulatorcam.h"

namespace OX {
namespace {

constexpr int kDriverBuffers = 4;
constexpr int kInputBuffers = 2;
constexpr int kCameras = 2;
constexpr int kMaxFrameRate = 30;

boost::shared_ptr<RealCameraProperties> makeCamera() {
  const auto camera = boost::make_shared<RealCameraProperties>();
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
    fDriverBuffers.back()->fImage->fTimeStamp = -1;
  }
  // A frame is as large as fInputResolution says, from the start.
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
  }
}

OXVisionSimulatorCam::~OXVisionSimulatorCam() {
  OXVisionVideoInput::stopFrameGrabber();
  for (int i = 0; i < fNbCameras; ++i) xCloseDevice(i);
  fCameraDriverBuffers.clear();
}

// A frame pushed before the opening is no longer offered. fLastDriverBuffer stays: the old raw
// frame is the reference that the next pushed one differs from.
bool OXVisionSimulatorCam::xOpenDevice(int pCamera) {
  CameraDriverBuffer& store = *xStore(pCamera);
  const OXCriticalSection lock(store.fMutex);
  store.fLastInputBuffer = -1;
  for (const auto& frame : store.fDriverBuffers) {
    frame->fImage->setResolution(xCamera(pCamera)->fResolution);
    frame->fImage->setColorSpace(kYUV422);
  }
  return true;
}

bool OXVisionSimulatorCam::xCloseDevice(int) { return true; }

// An unknown camera passes: the subscription that asks about it says so in its own words.
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

bool OXVisionSimulatorCam::xIsColorSpaceValid(int pColorSpace, int) const {
  return static_cast<unsigned int>(pColorSpace) <= kHSMixed;
}

}  // namespace OX
