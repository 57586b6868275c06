// The state machine of a grabber, for every camera: stopped or failed, opening, running, closing.
// What opening and closing do is up to the camera, which pauses the lock if it takes long. Only the
// thread that has the turn of the cameras changes a state: all others wait until a camera is open
// or closed. An opening or closing that throws leaves it failed.
#include "delivery/grabber.h"

#include <oxframework/oxclock.h>
#include <oxframework/oxerror.h>
#include <oxframework/oxlog.h>
#include "camerarecord.h"
#include "oxvisionvideoinput.h"

namespace OX {
namespace {

// A source gets this long to settle after a start and a stop.
constexpr unsigned int kSettleAfterStartUs = 100;
constexpr unsigned int kSettleAfterStopUs = 500;
constexpr unsigned int kOpeningPollUs = 500000;
// Nobody else opens a camera during the turn, so one that is still opening after these polls stays
// so: no more waiting will help.
constexpr int kOpeningPolls = 2;
constexpr const char* kCannotOpen = "Can't open video file.";

}  // namespace

// The published operations check the index and throw; the driver's own ones, which negotiation and
// delivery call, only log a wrong one.
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

// The first camera that fails ends the loop: those after it keep their state.
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

void OXVisionVideoInput::xSleep(unsigned int pDurationUs) {
  const OXCriticalSectionPause pause(fVisionModulesLock);
  ki::os::usleep(pDurationUs);
}

RealCameraProperties* OXVisionVideoInput::xGrabberCamera(int pCamera, const char* pFunction,
                                                         const GrabberTexts& pTexts) const {
  RealCameraProperties* const camera = xCamera(pCamera);
  if (!camera)
    report::log(ki::log::kError, pFunction,
                report::text(pFunction, "(", pCamera, ") : invalid Camera index"), pTexts.category);
  return camera;
}

// The module's name is in records of failures only, and only those of some cameras: clients know
// them so.
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
  // A failed camera is tried again by each start: its file or device may be there by now.
  if (camera->fGrabberState == kGrabberRunning) return true;
  const TurnScope turn(fCamerasTurn, fVisionModulesLock);
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
    // Path and line are the camera's and not this file's: clients match on them.
    throw OXError(getName(), "startFrameGrabber", kCannotOpen, pTexts.sourceFile,
                  pTexts.openErrorLine);
  }
  camera->fGrabberState = kGrabberRunning;
  if (fHasListener) {
    const OXCriticalSectionPause pause(fVisionModulesLock);
    xTellFrame(pCamera);
  }
  xSleep(kSettleAfterStartUs);
  xLogGrabber(ki::log::kInfo, kFunction, pTexts.started, pTexts);
  return true;
}

bool OXVisionVideoInput::xRunStop(int pCamera, const GrabberTexts& pTexts,
                                  const std::function<bool()>& pClose) {
  constexpr const char* kFunction = "xStopFrameGrabber";
  RealCameraProperties* const camera = xGrabberCamera(pCamera, kFunction, pTexts);
  if (!camera) return false;
  const TurnScope turn(fCamerasTurn, fVisionModulesLock);
  for (int poll = 0; poll < kOpeningPolls && camera->fGrabberState == kGrabberOpening; ++poll)
    xSleep(kOpeningPollUs);
  // Off, failed, still opening or already closing: there is nothing to close, which is no failure.
  if (camera->fGrabberState <= kGrabberClosing) return true;
  camera->fGrabberState = kGrabberClosing;
  bool closed = false;
  try {
    closed = pClose();
  } catch (...) {
    camera->fGrabberState = kGrabberFailed;
    throw;
  }
  if (!closed) {
    xLogGrabber(ki::log::kError, kFunction, pTexts.closeError, pTexts);
    camera->fGrabberState = kGrabberFailed;
    return false;
  }
  camera->fGrabberState = kGrabberStopped;
  xLogGrabber(ki::log::kInfo, kFunction, pTexts.stopped, pTexts);
  xSleep(kSettleAfterStopUs);
  return true;
}

}  // namespace OX
