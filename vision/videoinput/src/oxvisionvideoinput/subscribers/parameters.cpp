// Camera parameters: a thin layer over the driver, which decides what a parameter means and which
// cameras it accepts. Indices are therefore passed on unchecked, and no subscriber's wish changes:
// the next negotiation may undo what is set here.
#include <oxframework/oxdefinitions.h>
#include <oxframework/oxlog.h>
#include "subscriberturn.h"

namespace OX {
namespace {

constexpr report::SubscriberTexts kGetOne{
    "getCameraParameter", "getCameraParameter()", "getCameraParameter(",
    "Multi stream module can't call this method, use getCamerasParameter instead"};
constexpr report::SubscriberTexts kSetOne{
    "setCameraParameter", "setCameraParameter()", "setCameraParameter(",
    "Multi stream module can't call this method, use setCamerasParameter instead"};
constexpr report::SubscriberTexts kDefaultOne{
    "setCameraParameterToDefault", "setCameraParameterToDefault()", "SetCameraParameterToDefault(",
    "Multi stream module can't call this method, use setCamerasParameterToDefault instead"};
// The three plural texts all name getCamerasParameter: clients know them so.
constexpr report::SubscriberTexts kGetAll{
    "getCamerasParameter", "getCamerasParameter()", "getCamerasParameter(",
    "Mono stream module can't call this method, use getCameraParameter instead"};
constexpr report::SubscriberTexts kSetAll{
    "setCamerasParameter", "setCamerasParameter()", "getCamerasParameter(",
    "Mono stream module can't call this method, use setCameraParameter instead"};
constexpr report::SubscriberTexts kDefaultAll{
    "setCamerasParameterToDefault", "setCamerasParameterToDefault()", "getCamerasParameter(",
    "Mono stream module can't call this method, use setCameraParameterToDefault instead"};

}  // namespace

// A subscriber only selects the camera: a parameter belongs to the camera, so a change affects all
// its subscribers. Held images are not waited for, unlike by a change of a wish: no buffer of the
// subscriber's is reformatted.
bool OXVisionVideoInput::xChangeParam(int pCamera, int pParam, int pValue, bool pSetDefault) {
  const TurnScope turn(fCamerasTurn, fVisionModulesLock);
  const bool isSet = xSetParam(pCamera, pParam, pValue, pSetDefault);
  xCameraChanged();
  return isSet;
}

int OXVisionVideoInput::getCameraParameter(const std::string& pId, const int& pParam) {
  const OXCriticalSectionRead lock(fVisionModulesLock);
  return xGetParam(xCurrentCamera(*xSubscriber(pId, Family::Mono, kGetOne)), pParam);
}

bool OXVisionVideoInput::setCameraParameter(const std::string& pId, const int& pParam,
                                            const int& pValue) {
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  const SubscriberTurn turn(*this, pId, Family::Mono, kSetOne);
  return xChangeParam(xCurrentCamera(*turn.subscriber()), pParam, pValue, false);
}

bool OXVisionVideoInput::setCameraParameterToDefault(const std::string& pId, const int& pParam) {
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  // The driver ignores the value when it is asked for the default: hence -1 here, and 0 below.
  const SubscriberTurn turn(*this, pId, Family::Mono, kDefaultOne);
  return xChangeParam(xCurrentCamera(*turn.subscriber()), pParam, -1, true);
}

OXValue OXVisionVideoInput::getCamerasParameter(const std::string& pId, const int& pParam) {
  const OXCriticalSectionRead lock(fVisionModulesLock);
  const auto& subscriber = xSubscriber(pId, Family::Multi, kGetAll);
  std::vector<int> values;
  for (const int camera : subscriber->fActiveCameras) values.push_back(xGetParam(camera, pParam));
  return OXValue(values);
}

OXValue OXVisionVideoInput::setCamerasParameter(const std::string& pId, const int& pParam,
                                                const OXValue& pValues) {
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  // The id is checked before the values are converted: clients know which mistake is reported.
  const SubscriberTurn turn(*this, pId, Family::Multi, kSetAll);
  const std::vector<int> values = pValues.toIntVector();
  const std::vector<int>& cameras = turn.subscriber()->fActiveCameras;
  if (values.size() != cameras.size())
    report::fail(getName(), kSetAll.function, kSetAll.method,
                 report::text("Could not set cameras parameter to module: ", pId, "\n",
                              "Input parameters have the wrong size: ", values.size(),
                              " expected size: ", cameras.size()));
  // A camera that throws ends the loop: those before it keep the new value.
  std::vector<int> results;
  for (std::size_t i = 0; i < cameras.size(); ++i)
    results.push_back(xChangeParam(cameras[i], pParam, values[i], false) ? 1 : 0);
  return OXValue(results);
}

OXValue OXVisionVideoInput::setCamerasParameterToDefault(const std::string& pId,
                                                         const int& pParam) {
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  const SubscriberTurn turn(*this, pId, Family::Multi, kDefaultAll);
  std::vector<int> results;
  for (const int camera : turn.subscriber()->fActiveCameras)
    results.push_back(xChangeParam(camera, pParam, -1, true) ? 1 : 0);
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

// Returns nothing: what the driver refuses with false is lost, what it throws reaches the caller.
void OXVisionVideoInput::setParam(const int& pParam, const int& pValue, const int& pCameraIndex) {
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  xChangeParam(pCameraIndex, pParam, pValue, false);
}

// The active camera is read before the lock is taken: a change of it meanwhile is not noticed, just
// as if this call had come first.
void OXVisionVideoInput::setParam(const int& pParam, const int& pValue) {
  setParam(pParam, pValue, fActiveCamera);
}

void OXVisionVideoInput::setParamDefault(const int& pParam) {
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  xChangeParam(fActiveCamera, pParam, 0, true);
}

// Subscribers that follow the active camera move along; what they hold stays on the old one, and
// is released all the same, because a release of theirs goes through every camera. Whether a camera
// can be selected at all is up to the driver: a file camera follows its recording instead.
bool OXVisionVideoInput::setActiveCamera(const int& pCameraIndex) {
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  report::log(ki::log::kInfo, "setActiveCamera",
              "setActiveCamera(pCamID) is deprecated, use setActiveCamera(subscriber_name, pCamID) "
              "in order to change camera only for the specified subscriber.\n");
  if (!xCamera(pCameraIndex))
    report::raise(getName(), "setActiveCamera()", "Invalid camera parameter input reference.");
  return xChangeParam(fActiveCamera, kCameraSelectID, pCameraIndex, false);
}

}  // namespace OX
