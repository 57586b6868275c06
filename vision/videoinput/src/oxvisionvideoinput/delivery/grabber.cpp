// The states of a grabber, for every camera: stopped or failed, opening, running, closing. What
// opening and closing mean is the camera's. Everything runs with the lock held for writing.
#include "delivery/grabber.h"

#include <oxframework/oxclock.h>
#include <oxframework/oxerror.h>
#include <oxframework/oxlog.h>
#include "oxvisionvideoinput.h"
#include "records.h"

namespace OX {
namespace {

constexpr unsigned int kStartedUs = 100;
constexpr unsigned int kStoppedUs = 500;
constexpr unsigned int kOpeningLookUs = 500000;
// A start and a stop both hold the lock for writing: a camera that is still opening after these
// looks was left so by a failure, and will not come out of it.
constexpr int kOpeningLooks = 2;
constexpr const char* kCannotOpen = "Can't open video file.";

}  // namespace

bool OXVisionVideoInput::startFrameGrabber(const int& pCameraIndex) {
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  xCheckedCamera(pCameraIndex, "startFrameGrabber(", "startFrameGrabber()");
  return xStartFrameGrabber(pCameraIndex);
}

bool OXVisionVideoInput::stopFrameGrabber(const int& pCameraIndex) {
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  xCheckedCamera(pCameraIndex, "stopFrameGrabber(", "stopFrameGrabber()");
  return xStopFrameGrabber(pCameraIndex);
}

bool OXVisionVideoInput::startFrameGrabber() {
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  bool started = true;
  for (int i = 0; i < fNbCameras && started; ++i) started = xStartFrameGrabber(i);
  return started;
}

bool OXVisionVideoInput::stopFrameGrabber() {
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  bool stopped = true;
  for (int i = 0; i < fNbCameras && stopped; ++i) stopped = xStopFrameGrabber(i);
  return stopped;
}

RealCameraProperties* OXVisionVideoInput::xGrabberCamera(int pCamera, const char* pFunction,
                                                         const GrabberTexts& pTexts) const {
  RealCameraProperties* const camera = xCamera(pCamera);
  if (!camera)
    report::log(ki::log::kError, pFunction,
                report::text(pFunction, "(", pCamera, ") : invalid Camera index"), pTexts.category);
  return camera;
}

void OXVisionVideoInput::xLogGrabber(int pLevel, const char* pFunction, const char* pText,
                                     const GrabberTexts& pTexts) const {
  if (!pText) return;
  const bool named = pTexts.namesModule && pLevel <= ki::log::kError;
  report::log(pLevel, pFunction, named ? getName() + ": " + pText : pText, pTexts.category);
}

bool OXVisionVideoInput::xRunStart(int pCamera, const GrabberTexts& pTexts,
                                   const std::function<bool()>& pOpen) {
  constexpr const char* kFunction = "xStartFrameGrabber";
  RealCameraProperties* const camera = xGrabberCamera(pCamera, kFunction, pTexts);
  if (!camera) return false;
  if (camera->fGrabberState > kGrabberStopped) return true;
  camera->fGrabberState = kGrabberOpening;
  bool opened = false;
  try {
    opened = pOpen();
  } catch (...) {
    camera->fGrabberState = kGrabberFailed;
    throw;
  }
  if (!opened) {
    camera->fGrabberState = kGrabberFailed;
    xLogGrabber(ki::log::kError, kFunction, kCannotOpen, pTexts);
    throw OXError(getName(), "startFrameGrabber", kCannotOpen, pTexts.sourceFile,
                  pTexts.openErrorLine);
  }
  camera->fGrabberState = kGrabberRunning;
  ki::os::usleep(kStartedUs);
  xLogGrabber(ki::log::kInfo, kFunction, pTexts.started, pTexts);
  return true;
}

bool OXVisionVideoInput::xRunStop(int pCamera, const GrabberTexts& pTexts,
                                  const std::function<bool()>& pClose) {
  constexpr const char* kFunction = "xStopFrameGrabber";
  RealCameraProperties* const camera = xGrabberCamera(pCamera, kFunction, pTexts);
  if (!camera) return false;
  for (int look = 0; look < kOpeningLooks && camera->fGrabberState == kGrabberOpening; ++look)
    ki::os::usleep(kOpeningLookUs);
  if (camera->fGrabberState <= kGrabberClosing) return true;
  camera->fGrabberState = kGrabberClosing;
  if (!pClose()) {
    xLogGrabber(ki::log::kError, kFunction, pTexts.closeError, pTexts);
    camera->fGrabberState = kGrabberFailed;
    return false;
  }
  camera->fGrabberState = kGrabberStopped;
  xLogGrabber(ki::log::kInfo, kFunction, pTexts.stopped, pTexts);
  ki::os::usleep(kStoppedUs);
  return true;
}

}  // namespace OX
