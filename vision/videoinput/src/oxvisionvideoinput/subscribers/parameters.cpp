// Camera parameters, and what a camera must run at from what all subscribers ask.
#include <algorithm>

#include <oxframework/oxclock.h>
#include <oxframework/oxdefinitions.h>
#include <oxframework/oxlog.h>
#include "oxvisionvideoinput.h"

namespace OX {
namespace {

constexpr int kFloorFrameRate = 5;
// A raw buffer that another writer has is waited for one second at most: the lock is held.
constexpr int kWriterPasses = 2000;
constexpr unsigned int kWriterPassUs = 500;

constexpr report::SubscriberTexts kGetOne{
    "getCameraParameter", "getCameraParameter()", "getCameraParameter(",
    "Multi stream module can't call this method, use getCamerasParameter instead"};
constexpr report::SubscriberTexts kSetOne{
    "setCameraParameter", "setCameraParameter()", "setCameraParameter(",
    "Multi stream module can't call this method, use setCamerasParameter instead"};
constexpr report::SubscriberTexts kDefaultOne{
    "setCameraParameterToDefault", "setCameraParameterToDefault()", "SetCameraParameterToDefault(",
    "Multi stream module can't call this method, use setCamerasParameterToDefault instead"};
// The three plural texts begin alike: clients know them so.
constexpr report::SubscriberTexts kGetAll{
    "getCamerasParameter", "getCamerasParameter()", "getCamerasParameter(",
    "Mono stream module can't call this method, use getCameraParameter instead"};
constexpr report::SubscriberTexts kSetAll{
    "setCamerasParameter", "setCamerasParameter()", "getCamerasParameter(",
    "Mono stream module can't call this method, use setCameraParameter instead"};
constexpr report::SubscriberTexts kDefaultAll{
    "setCamerasParameterToDefault", "setCamerasParameterToDefault()", "getCamerasParameter(",
    "Mono stream module can't call this method, use setCameraParameterToDefault instead"};

void waitForOtherWriter(const OXVisionBuffer& pBuffer) {
  for (int pass = 0; pass < kWriterPasses; ++pass) {
    if (pBuffer.fReadLockCount == 0 || pBuffer.fWriteLockCount <= 1) return;
    ki::os::usleep(kWriterPassUs);
  }
}

}  // namespace

bool OXVisionVideoInput::xUpdateParam(const int& pCameraIndex) {
  RealCameraProperties* const camera = xCamera(pCameraIndex);
  if (!camera) return true;
  if (fVisionModules.empty()) {
    // Written straight into the camera: the restart applies it.
    if (camera->fFrameRate == kFloorFrameRate && camera->fResolution == fDefaultResolution)
      return true;
    xStopFrameGrabber(pCameraIndex);
    camera->fResolution = static_cast<std::int8_t>(fDefaultResolution);
    camera->fFrameRate = kFloorFrameRate;
    xStartFrameGrabber(pCameraIndex);
    return true;
  }
  // Every subscriber counts for every camera, also for one that it does not use.
  int resolution = fDefaultResolution;
  int frameRate = kFloorFrameRate;
  for (const auto& entry : fVisionModules) {
    const auto& wishes = entry.second->fRequestedProperties;
    resolution =
        std::max<int>(resolution, wishes[static_cast<std::size_t>(pCameraIndex)]->fResolution);
    frameRate = std::max<int>(frameRate, entry.second->fFrameRate);
  }
  if (resolution != camera->fResolution) {
    report::log(ki::log::kInfo, "xUpdateParam",
                report::text(getName(), ": New resolution changed to ", resolution));
    xSetParam(pCameraIndex, kCameraResolutionID, resolution, false);
    camera->fResolution = static_cast<std::int8_t>(resolution);
    for (const auto& buffer : camera->fRawBuffers) {
      ++buffer->fWriteLockCount;
      waitForOtherWriter(*buffer);
      buffer->fImage->setResolution(resolution);
      --buffer->fWriteLockCount;
    }
  }
  if (frameRate != camera->fFrameRate) {
    report::log(ki::log::kInfo, "xUpdateParam",
                report::text(getName(), ": New framerate: ", frameRate));
    xSetParam(pCameraIndex, kCameraFrameRateID, frameRate, false);
    camera->fFrameRate = static_cast<std::uint8_t>(frameRate);
  }
  return true;
}

int OXVisionVideoInput::getCameraParameter(const std::string& pName, const int& pParam) {
  const OXCriticalSectionRead lock(fVisionModulesLock);
  return xGetParam(xCurrentCamera(*xSubscriber(pName, Family::Mono, kGetOne)), pParam);
}

bool OXVisionVideoInput::setCameraParameter(const std::string& pName, const int& pParam,
                                            const int& pValue) {
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  return xSetParam(xCurrentCamera(*xSubscriber(pName, Family::Mono, kSetOne)), pParam, pValue,
                   false);
}

bool OXVisionVideoInput::setCameraParameterToDefault(const std::string& pName, const int& pParam) {
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  return xSetParam(xCurrentCamera(*xSubscriber(pName, Family::Mono, kDefaultOne)), pParam, -1,
                   true);
}

OXValue OXVisionVideoInput::getCamerasParameter(const std::string& pName, const int& pParam) {
  const OXCriticalSectionRead lock(fVisionModulesLock);
  const auto module = xSubscriber(pName, Family::Multi, kGetAll);
  std::vector<int> values;
  for (const int camera : module->fActiveCameras) values.push_back(xGetParam(camera, pParam));
  return OXValue(values);
}

OXValue OXVisionVideoInput::setCamerasParameter(const std::string& pName, const int& pParam,
                                                const OXValue& pValues) {
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  const auto module = xSubscriber(pName, Family::Multi, kSetAll);
  const std::vector<int> values = pValues.toIntVector();
  const std::vector<int>& cameras = module->fActiveCameras;
  if (values.size() != cameras.size())
    report::fail(getName(), kSetAll.function, kSetAll.method,
                 report::text("Could not set cameras parameter to module: ", pName, "\n",
                              "Input parameters have the wrong size: ", values.size(),
                              " expected size: ", cameras.size()),
                 __LINE__);
  std::vector<int> results;
  for (std::size_t i = 0; i < cameras.size(); ++i)
    results.push_back(xSetParam(cameras[i], pParam, values[i], false) ? 1 : 0);
  return OXValue(results);
}

OXValue OXVisionVideoInput::setCamerasParameterToDefault(const std::string& pName,
                                                         const int& pParam) {
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  const auto module = xSubscriber(pName, Family::Multi, kDefaultAll);
  std::vector<int> results;
  for (const int camera : module->fActiveCameras)
    results.push_back(xSetParam(camera, pParam, -1, true) ? 1 : 0);
  return OXValue(results);
}

int OXVisionVideoInput::getParam(const int& pParam) {
  const OXCriticalSectionRead lock(fVisionModulesLock);
  return xGetParam(fActiveCamera, pParam);
}

int OXVisionVideoInput::getParam(const int& pParam, const int& pCameraIndex) {
  const OXCriticalSectionRead lock(fVisionModulesLock);
  return xGetParam(pCameraIndex, pParam);
}

void OXVisionVideoInput::setParam(const int& pParam, const int& pValue, const int& pCameraIndex) {
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  xSetParam(pCameraIndex, pParam, pValue, false);
}

void OXVisionVideoInput::setParam(const int& pParam, const int& pValue) {
  setParam(pParam, pValue, fActiveCamera);
}

void OXVisionVideoInput::setParamDefault(const int& pParam) {
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  xSetParam(fActiveCamera, pParam, 0, true);
}

bool OXVisionVideoInput::setActiveCamera(const int& pCameraIndex) {
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  report::log(ki::log::kInfo, "setActiveCamera",
              "setActiveCamera(pCamID) is deprecated, use setActiveCamera(subscriber_name, pCamID) "
              "in order to change camera only for the specified subscriber.\n");
  if (!xCamera(pCameraIndex))
    report::raise(getName(), "setActiveCamera()", "Invalid camera parameter input reference.",
                  __LINE__);
  return xSetParam(fActiveCamera, kCameraSelectID, pCameraIndex, false);
}

}  // namespace OX
