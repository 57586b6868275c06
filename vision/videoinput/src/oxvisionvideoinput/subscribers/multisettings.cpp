// The settings of a multi-stream subscriber: lists in the order of its cameras. Each stream changes
// or fails by itself, and nothing waits for a held image: the results say which streams changed.
#include <algorithm>
#include <utility>

#include <oxframework/oxlog.h>
#include "subscriberturn.h"

namespace OX {
namespace {

constexpr const char* kListMiddle = ", ...) : module ";

constexpr report::SubscriberTexts kSetResolutions{
    "setResolutions", "setResolutions()", "setResolutions(",
    "Mono stream module can't call this method, use setResolution instead", kListMiddle};
constexpr report::SubscriberTexts kSetColorSpaces{
    "setColorSpaces", "setColorSpaces()", "setColorSpaces(",
    "Mono stream module can't call this method, use setColorSpace instead", kListMiddle};
// Its second look-up names the other operation: clients know the text so.
constexpr report::SubscriberTexts kSetColorSpacesAgain{
    "setColorSpaces", "setColorSpaces()", "setResolutions(",
    "Mono stream module can't call this method, use setColorSpace instead", kListMiddle};
constexpr report::SubscriberTexts kSetActiveCameras{
    "setActiveCameras", "setActiveCameras()", "setActiveCameras(",
    "Mono stream module can't call this method, use setActiveCamera instead", kListMiddle};
// The texts of the next two for a mono-stream subscriber name the operation itself, and the last
// one's ending lacks a letter: clients know them so.
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

std::string wrongLength(const char* pWhat, const std::string& pId, std::size_t pGiven,
                        std::size_t pExpected) {
  return report::text("Could not set ", pWhat, " to module: ", pId, "\n",
                      "Input parameters have the wrong size: ", pGiven,
                      " expected size: ", pExpected);
}

}  // namespace

// Id and length are checked under the lock for reading, so that misuse keeps nobody out. The lock
// is then released, since a reader that asks to write gets an error.
//
// Unlike setResolution this searches for a free buffer of the new size, and updates the camera
// before the new value is stored, so that the camera is one change late. Both on purpose.
OXValue OXVisionVideoInput::setResolutions(const std::string& pId, const OXValue& pResolutions) {
  const std::vector<int> values = pResolutions.toIntVector();
  {
    const OXCriticalSectionRead lock(fVisionModulesLock);
    const auto& subscriber = xSubscriber(pId, Family::Multi, kSetResolutions);
    if (values.size() != subscriber->fActiveCameras.size())
      report::fail(
          getName(), kSetResolutions.function, kSetResolutions.method,
          wrongLength("resolutions", pId, values.size(), subscriber->fActiveCameras.size()));
  }
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  // Looked up again: between the locks it may have been removed or given other cameras, hence the
  // minimum below.
  const SubscriberTurn turn(*this, pId, Family::Multi, kSetResolutions);
  const TurnScope change(fCamerasTurn, fVisionModulesLock);
  const auto& subscriber = turn.subscriber();
  std::vector<int> results;
  for (std::size_t i = 0; i < std::min(values.size(), subscriber->fActiveCameras.size()); ++i)
    results.push_back(
        xSetStreamResolution(xClaim(subscriber, subscriber->fActiveCameras[i]), values[i]) ? 1 : 0);
  return OXValue(results);
}

bool OXVisionVideoInput::xSetStreamResolution(const Claim& pClaim, int pResolution) {
  RequestedCameraProperties& wish = pClaim.wish;
  if (pResolution == wish.fResolution) return true;
  if (!xIsResolutionValid(pResolution, pClaim.index)) return false;
  if (pClaim.subscriber->fIsRecording)
    xCloseVideo(pClaim.subscriber, "its subscriber changed its resolution");
  OXImage* const image = xImageToReformat(pClaim, pResolution, wish.fColorSpace);
  if (!image) return false;
  image->setResolution(pResolution);
  xFollowChange(pClaim.index, wish.fResolution, pResolution, pClaim.camera.fResolution);
  wish.fResolution = static_cast<std::uint8_t>(pResolution);
  return true;
}

OXValue OXVisionVideoInput::setColorSpaces(const std::string& pId, const OXValue& pColorSpaces) {
  const std::vector<int> values = pColorSpaces.toIntVector();
  {
    const OXCriticalSectionRead lock(fVisionModulesLock);
    const auto& subscriber = xSubscriber(pId, Family::Multi, kSetColorSpaces);
    if (values.size() != subscriber->fActiveCameras.size())
      report::fail(
          getName(), kSetColorSpaces.function, kSetColorSpaces.method,
          wrongLength("color spaces", pId, values.size(), subscriber->fActiveCameras.size()));
  }
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  const SubscriberTurn turn(*this, pId, Family::Multi, kSetColorSpacesAgain);
  const auto& subscriber = turn.subscriber();
  std::vector<int> results;
  for (std::size_t i = 0; i < std::min(values.size(), subscriber->fActiveCameras.size()); ++i)
    results.push_back(
        xSetStreamColorSpace(xClaim(subscriber, subscriber->fActiveCameras[i]), values[i]) ? 1 : 0);
  return OXValue(results);
}

// Searches for a free buffer of the old colour space, unlike the resolution above: on purpose too.
bool OXVisionVideoInput::xSetStreamColorSpace(const Claim& pClaim, int pColorSpace) {
  RequestedCameraProperties& wish = pClaim.wish;
  if (pColorSpace == wish.fColorSpace) return true;
  if (!xIsColorSpaceValid(pColorSpace, pClaim.index)) return false;
  if (pClaim.subscriber->fIsRecording)
    xCloseVideo(pClaim.subscriber, "its subscriber changed its color space");
  OXImage* const image = xImageToReformat(pClaim, wish.fResolution, wish.fColorSpace);
  if (!image) return false;
  image->setColorSpace(pColorSpace);
  wish.fColorSpace = static_cast<std::uint8_t>(pColorSpace);
  return true;
}

OXValue OXVisionVideoInput::setActiveCameras(const std::string& pId,
                                             const OXValue& pCameraIndices) {
  const std::vector<int> cameras = pCameraIndices.toIntVector();
  // Checked before the subscriber is looked up: clients know this order of errors.
  std::vector<int> distinct = cameras;
  std::sort(distinct.begin(), distinct.end());
  if (std::adjacent_find(distinct.begin(), distinct.end()) != distinct.end())
    report::fail(getName(), kSetActiveCameras.function, kSetActiveCameras.method,
                 "setActiveCameras(" + pId + ", ...) : Invalid input parameters, " +
                     "using several time the same camera is forbidden");
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  const SubscriberTurn turn(*this, pId, Family::Multi, kSetActiveCameras);
  const TurnScope change(fCamerasTurn, fVisionModulesLock);
  const auto& subscriber = turn.subscriber();
  for (const int camera : cameras)
    if (!xCamera(camera))
      report::fail(getName(), kSetActiveCameras.function, kSetActiveCameras.method,
                   "setActiveCameras(" + pId + ", ...) : invalid Camera index");

  // Held images are taken back and not waited for. The buffers on the old cameras are removed
  // before new ones are made, and the cameras are updated when the new list is stored.
  // What needs memory of its own comes first: once the new buffers are made, they are in the list.
  std::vector<int> newCameras = cameras;
  std::vector<int> results;
  results.reserve(cameras.size());
  const std::vector<int> oldCameras = subscriber->fActiveCameras;
  xReleaseAllConverted(subscriber);
  for (const int camera : oldCameras) {
    const Claim claim = xClaim(subscriber, camera);
    xLowerCamera(claim);
    xRemoveBuffers(claim);
  }
  for (const int camera : cameras) {
    RequestedCameraProperties& wish = subscriber->wish(camera);
    wish.fHasBuffers = xCreateBuffersForStoringImages(camera, wish.fResolution, wish.fColorSpace);
    results.push_back(wish.fHasBuffers ? 1 : 0);
  }
  // A camera without memory for its buffers is in the list all the same: only its result says so.
  subscriber->fActiveCameras = std::move(newCameras);
  for (const int camera : oldCameras) xUpdateParam(camera);
  for (const int camera : cameras) xUpdateParam(camera);
  return OXValue(results);
}

OXValue OXVisionVideoInput::getActiveCameras(const std::string& pId) {
  const OXCriticalSectionRead lock(fVisionModulesLock);
  return OXValue(xSubscriber(pId, Family::Multi, kGetActiveCameras)->fActiveCameras);
}

// The next two read by position in the list, and not by the camera at that position: on purpose. In
// bounds, since no camera is in the list twice and there is a wish for every camera.
OXValue OXVisionVideoInput::getResolutions(const std::string& pId) {
  const OXCriticalSectionRead lock(fVisionModulesLock);
  const auto& subscriber = xSubscriber(pId, Family::Multi, kGetResolutions);
  std::vector<int> values;
  for (std::size_t i = 0; i < subscriber->fActiveCameras.size(); ++i)
    values.push_back(subscriber->fRequestedProperties[i]->fResolution);
  return OXValue(values);
}

OXValue OXVisionVideoInput::getColorSpaces(const std::string& pId) {
  const OXCriticalSectionRead lock(fVisionModulesLock);
  const auto& subscriber = xSubscriber(pId, Family::Multi, kGetColorSpaces);
  std::vector<int> values;
  for (std::size_t i = 0; i < subscriber->fActiveCameras.size(); ++i)
    values.push_back(subscriber->fRequestedProperties[i]->fColorSpace);
  return OXValue(values);
}

}  // namespace OX
