// The settings of a subscriber with several streams: lists in the order of its cameras.
#include <algorithm>

#include <oxframework/oxlog.h>
#include "oxvisionvideoinput.h"

namespace OX {
namespace {

constexpr const char* kListMiddle = ", ...) : module ";

constexpr report::SubscriberTexts kSetResolutions{
    "setResolutions", "setResolutions()", "setResolutions(",
    "Mono stream module can't call this method, use setResolution instead", kListMiddle};
constexpr report::SubscriberTexts kSetColorSpaces{
    "setColorSpaces", "setColorSpaces()", "setColorSpaces(",
    "Mono stream module can't call this method, use setColorSpace instead", kListMiddle};
// Its second lookup speaks of the other operation: clients know the text so.
constexpr report::SubscriberTexts kSetColorSpacesAgain{
    "setColorSpaces", "setColorSpaces()", "setResolutions(",
    "Mono stream module can't call this method, use setColorSpace instead", kListMiddle};
constexpr report::SubscriberTexts kSetActiveCameras{
    "setActiveCameras", "setActiveCameras()", "setActiveCameras(",
    "Mono stream module can't call this method, use setActiveCamera instead", kListMiddle};
constexpr report::SubscriberTexts kGetResolutions{
    "getResolutions", "getResolutions()", "getResolutions(",
    "Mono stream module can't call this method, use getResolutions instead", kListMiddle};
constexpr report::SubscriberTexts kGetColorSpaces{
    "getColorSpaces", "getColorSpaces()", "getColorSpaces(",
    "Mono stream module can't call this method, use getColorSpaces instead", kListMiddle};
constexpr report::SubscriberTexts kGetActiveCameras{
    "getActiveCameras",  "getActiveCameras()",
    "getActiveCameras(", "Mono stream module can't call this method, use getActiveCamera instead",
    ") : module ",       " unknow!"};

std::string wrongLength(const char* pWhat, const std::string& pName, std::size_t pGiven,
                        std::size_t pExpected) {
  return report::text("Could not set ", pWhat, " to module: ", pName, "\n",
                      "Input parameters have the wrong size: ", pGiven,
                      " expected size: ", pExpected);
}

}  // namespace

// Unlike setResolution this searches a free buffer of the new size, and brings the camera up or
// down before the new value is stored, so that the camera lags one change behind. Both on purpose.
OXValue OXVisionVideoInput::setResolutions(const std::string& pName, const OXValue& pResolutions) {
  const std::vector<int> values = pResolutions.toIntVector();
  {
    const OXCriticalSectionRead lock(fVisionModulesLock);
    const auto module = xSubscriber(pName, Family::Multi, kSetResolutions);
    if (values.size() != module->fActiveCameras.size())
      report::fail(getName(), kSetResolutions.function, kSetResolutions.method,
                   wrongLength("resolutions", pName, values.size(), module->fActiveCameras.size()),
                   __LINE__);
  }
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  const auto module = xSubscriber(pName, Family::Multi, kSetResolutions);
  std::vector<int> results;
  for (std::size_t i = 0; i < std::min(values.size(), module->fActiveCameras.size()); ++i)
    results.push_back(xSetStreamResolution(module, module->fActiveCameras[i], values[i]) ? 1 : 0);
  return OXValue(results);
}

bool OXVisionVideoInput::xSetStreamResolution(const boost::shared_ptr<VisionModuleInfo>& pModule,
                                              int pCamera, int pResolution) {
  RequestedCameraProperties& wish =
      *pModule->fRequestedProperties[static_cast<std::size_t>(pCamera)];
  if (pResolution == wish.fResolution) return true;
  if (!xIsResolutionValid(pResolution, pCamera)) return false;
  if (pModule->fIsRecording) xCloseVideo(pModule);
  OXImage* const image = xImageToReformat(pCamera, pResolution, wish.fColorSpace);
  if (!image) return false;
  image->setResolution(pResolution);
  xFollowChange(pCamera, wish.fResolution, pResolution, xCamera(pCamera)->fResolution);
  wish.fResolution = static_cast<std::uint8_t>(pResolution);
  return true;
}

OXValue OXVisionVideoInput::setColorSpaces(const std::string& pName, const OXValue& pColorSpaces) {
  const std::vector<int> values = pColorSpaces.toIntVector();
  {
    const OXCriticalSectionRead lock(fVisionModulesLock);
    const auto module = xSubscriber(pName, Family::Multi, kSetColorSpaces);
    if (values.size() != module->fActiveCameras.size())
      report::fail(getName(), kSetColorSpaces.function, kSetColorSpaces.method,
                   wrongLength("color spaces", pName, values.size(), module->fActiveCameras.size()),
                   __LINE__);
  }
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  const auto module = xSubscriber(pName, Family::Multi, kSetColorSpacesAgain);
  std::vector<int> results;
  for (std::size_t i = 0; i < std::min(values.size(), module->fActiveCameras.size()); ++i)
    results.push_back(xSetStreamColorSpace(module, module->fActiveCameras[i], values[i]) ? 1 : 0);
  return OXValue(results);
}

bool OXVisionVideoInput::xSetStreamColorSpace(const boost::shared_ptr<VisionModuleInfo>& pModule,
                                              int pCamera, int pColorSpace) {
  RequestedCameraProperties& wish =
      *pModule->fRequestedProperties[static_cast<std::size_t>(pCamera)];
  if (pColorSpace == wish.fColorSpace) return true;
  if (!xIsColorSpaceValid(pColorSpace, pCamera)) return false;
  if (pModule->fIsRecording) xCloseVideo(pModule);
  OXImage* const image = xImageToReformat(pCamera, wish.fResolution, wish.fColorSpace);
  if (!image) return false;
  image->setColorSpace(pColorSpace);
  wish.fColorSpace = static_cast<std::uint8_t>(pColorSpace);
  return true;
}

OXValue OXVisionVideoInput::setActiveCameras(const std::string& pName,
                                             const OXValue& pCameraIndices) {
  const std::vector<int> cameras = pCameraIndices.toIntVector();
  std::vector<int> distinct = cameras;
  std::sort(distinct.begin(), distinct.end());
  if (std::adjacent_find(distinct.begin(), distinct.end()) != distinct.end())
    report::fail(getName(), kSetActiveCameras.function, kSetActiveCameras.method,
                 "setActiveCameras(" + pName + ", ...) : Invalid input parameters, " +
                     "using several time the same camera is forbidden",
                 __LINE__);
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  const auto module = xSubscriber(pName, Family::Multi, kSetActiveCameras);
  for (const int camera : cameras)
    if (!xCamera(camera))
      report::fail(getName(), kSetActiveCameras.function, kSetActiveCameras.method,
                   "setActiveCameras(" + pName + ", ...) : invalid Camera index", __LINE__);

  // Images that are still held are not waited for.
  xForceReleaseBuffer(pName);
  const std::vector<int> oldCameras = module->fActiveCameras;
  for (const int camera : oldCameras) {
    xLowerCamera(*module, camera);
    xTakeBuffers(module, camera);
  }
  std::vector<int> results;
  for (const int camera : cameras) {
    RequestedCameraProperties& wish =
        *module->fRequestedProperties[static_cast<std::size_t>(camera)];
    wish.fHasBuffers = xCreateBuffersForStoringImages(camera, wish.fResolution, wish.fColorSpace);
    results.push_back(wish.fHasBuffers ? 1 : 0);
  }
  module->fActiveCameras = cameras;
  for (const int camera : oldCameras) xUpdateParam(camera);
  for (const int camera : cameras) xUpdateParam(camera);
  return OXValue(results);
}

OXValue OXVisionVideoInput::getActiveCameras(const std::string& pName) {
  const OXCriticalSectionRead lock(fVisionModulesLock);
  return OXValue(xSubscriber(pName, Family::Multi, kGetActiveCameras)->fActiveCameras);
}

// These two read by position in the list, and not by the camera that stands there: on purpose.
OXValue OXVisionVideoInput::getResolutions(const std::string& pName) {
  const OXCriticalSectionRead lock(fVisionModulesLock);
  const auto module = xSubscriber(pName, Family::Multi, kGetResolutions);
  std::vector<int> values;
  for (std::size_t i = 0; i < module->fActiveCameras.size(); ++i)
    values.push_back(module->fRequestedProperties[i]->fResolution);
  return OXValue(values);
}

OXValue OXVisionVideoInput::getColorSpaces(const std::string& pName) {
  const OXCriticalSectionRead lock(fVisionModulesLock);
  const auto module = xSubscriber(pName, Family::Multi, kGetColorSpaces);
  std::vector<int> values;
  for (std::size_t i = 0; i < module->fActiveCameras.size(); ++i)
    values.push_back(module->fRequestedProperties[i]->fColorSpace);
  return OXValue(values);
}

}  // namespace OX
