// What a camera is doing now, and the operations that only a simulator has. Getters take the lock
// for reading, so they run concurrently. The labels in the errors are what clients know, also where
// one operation uses another one's.
//
// "Now" is what the camera runs at: as a rule the highest wish of all subscribers, so it may be
// more than the caller asked for. The getters of a subscriber's own wishes are in
// subscribers/settings.cpp.
#include <oxframework/oxdefinitions.h>
#include <oxframework/oxlog.h>
#include "camerarecord.h"
#include "oxvisionvideoinput.h"

namespace OX {
namespace {

[[noreturn]] void refuse(const std::string& pModule, const char* pFunction, const char* pMethod,
                         OXSourceLocation pWhere = OXSourceLocation::current()) {
  report::fail(pModule, pFunction, pMethod, "Only implemented for simulator", pWhere);
}

// A failed grabber is off too: the next start may open it.
bool isOff(const RealCameraProperties& pCamera) { return pCamera.fGrabberState <= kGrabberStopped; }

}  // namespace

int OXVisionVideoInput::getCameraModel(const int& pCameraIndex) {
  const OXCriticalSectionRead lock(fVisionModulesLock);
  return xCheckedCamera(pCameraIndex, "getCameraModel(", "getCameraModel()").fCameraModel;
}

// Its text begins with the name of another operation: clients know it so.
bool OXVisionVideoInput::isFrameGrabberOff(const int& pCameraIndex) {
  const OXCriticalSectionRead lock(fVisionModulesLock);
  return isOff(xCheckedCamera(pCameraIndex, "stopFrameGrabber(", "isFrameGrabberOff()"));
}

int OXVisionVideoInput::getFrameRate(const int& pCameraIndex) {
  const OXCriticalSectionRead lock(fVisionModulesLock);
  return xCheckedCamera(pCameraIndex, "getFrameRate(", "getFrameRate()").fFrameRate;
}

int OXVisionVideoInput::getResolution(const int& pCameraIndex) {
  const OXCriticalSectionRead lock(fVisionModulesLock);
  return xCheckedCamera(pCameraIndex, "getResolution(", "getResolution()").fResolution;
}

int OXVisionVideoInput::getColorSpace(const int& pCameraIndex) {
  const OXCriticalSectionRead lock(fVisionModulesLock);
  return xCheckedCamera(pCameraIndex, "getColorSpace(", "getColorSpace()").fColorSpace;
}

// The forms without an index are for the device's active camera. Returned as it is, even when it
// lies outside the table: only the getters that read a camera's record throw then.
int OXVisionVideoInput::getActiveCamera() {
  const OXCriticalSectionRead lock(fVisionModulesLock);
  return fActiveCamera;
}

int OXVisionVideoInput::getCameraModelID() {
  const OXCriticalSectionRead lock(fVisionModulesLock);
  return xCheckedCamera(fActiveCamera, "getCameraModelID(", "getCameraModelID()").fCameraModel;
}

int OXVisionVideoInput::getResolution() {
  const OXCriticalSectionRead lock(fVisionModulesLock);
  return xCheckedCamera(fActiveCamera, "getResolution(", "getResolution()").fResolution;
}

int OXVisionVideoInput::getColorSpace() {
  const OXCriticalSectionRead lock(fVisionModulesLock);
  return xCheckedCamera(fActiveCamera, "getColorSpace(", "getColorSpace()").fColorSpace;
}

int OXVisionVideoInput::getFrameRate() {
  const OXCriticalSectionRead lock(fVisionModulesLock);
  return xCheckedCamera(fActiveCamera, "getFrameRate(", "getFrameRate()").fFrameRate;
}

bool OXVisionVideoInput::isFrameGrabberOff() {
  const OXCriticalSectionRead lock(fVisionModulesLock);
  return isOff(xCheckedCamera(fActiveCamera, "isFrameGrabberOff(", "isFrameGrabberOff()"));
}

// Neither this nor its inverse reads a camera, hence no lock. An unknown resolution is an error
// here, an unknown size below is not: its result is -1.
OXValue OXVisionVideoInput::resolutionToSizes(const int& pResolution) {
  int width = 0;
  int height = 0;
  setSizeFromResolution(pResolution, width, height);
  if (width == -1 && height == -1)
    report::fail(getName(), "resolutionToSizes", "resolutionToSizes()",
                 "Only takes k4VGA, kVGA, kQVGA and kQQVGA as input");
  return OXValue::array(width, height);
}

int OXVisionVideoInput::sizesToResolution(const int& pWidth, const int& pHeight) {
  return getResolutionFromSize(pWidth, pHeight);
}

// Three of the five use the label of putImage: clients know it so.

bool OXVisionVideoInput::putImage(const int&, const int&, const int&, const OXValue&) {
  refuse(getName(), "putImage", "putImage()");
}

bool OXVisionVideoInput::putImage(const OXValue&) { refuse(getName(), "putImage", "putImage()"); }

bool OXVisionVideoInput::setSimCamInputSize(const int&, const int&) {
  refuse(getName(), "setSimCamInputSize", "putImage()");
}

OXValue OXVisionVideoInput::getExpectedImageParameters() {
  refuse(getName(), "getExpectedImageParameters", "putImage()");
}

OXValue OXVisionVideoInput::getExpectedImageParameters(const int&) {
  refuse(getName(), "getExpectedImageParameters", "getExpectedImageParameters()");
}

}  // namespace OX
