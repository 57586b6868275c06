// The look-ups that all areas share. A request is resolved here once and carries the result, so
// that subscriber, camera and wish can't come apart under way; only operations whose given
// signature is an id look it up again. Nothing else in the device indexes the tables with a number
// from outside.
#include "claim.h"

#include <oxframework/oxvideo.h>
#include "oxvisionvideoinput.h"
#include "subscriberturn.h"

namespace OX {

// Here because the record owns an OXVideo, which its header only declares.
VisionModuleInfo::VisionModuleInfo() = default;
VisionModuleInfo::~VisionModuleInfo() = default;

// Unchecked, which is safe for every index that xCamera knows: a subscriber is in the map only with
// a wish for each camera of the device, and the table of cameras never changes.
RequestedCameraProperties& VisionModuleInfo::wish(int pCamera) const {
  return *fRequestedProperties[static_cast<std::size_t>(pCamera)];
}

RealCameraProperties* OXVisionVideoInput::xCamera(int pCameraIndex) const {
  const bool known = pCameraIndex >= 0 && pCameraIndex < fNbCameras;
  return known ? fCameraProperties[static_cast<std::size_t>(pCameraIndex)].get() : nullptr;
}

RealCameraProperties& OXVisionVideoInput::xCheckedCamera(int pCameraIndex, const char* pBegin,
                                                         const char* pMethod,
                                                         OXSourceLocation pWhere) const {
  RealCameraProperties* const camera = xCamera(pCameraIndex);
  if (!camera) {
    // Records carry the bare name, errors the name with its parentheses, which every pMethod has.
    const std::string function(pMethod, std::string(pMethod).find('('));
    report::fail(getName(), function.c_str(), pMethod,
                 report::text(pBegin, pCameraIndex, ") : invalid Camera index"), pWhere);
  }
  return *camera;
}

// Any negative index follows the active camera, although subscribing stores no other one than -1.
int OXVisionVideoInput::xCurrentCamera(const VisionModuleInfo& pSubscriber) const {
  return pSubscriber.fActiveCamera < 0 ? fActiveCamera.load() : pSubscriber.fActiveCamera;
}

// The text has the subscriber's id where others have the camera's index: clients know it so.
int OXVisionVideoInput::xCheckedCurrentCamera(const VisionModuleInfo& pSubscriber,
                                              const char* pFunction,
                                              OXSourceLocation pWhere) const {
  const int camera = xCurrentCamera(pSubscriber);
  if (!xCamera(camera))
    report::fail(getName(), pFunction, (std::string(pFunction) + "()").c_str(),
                 report::text(pFunction, "(", pSubscriber.fName, ") : invalid Camera index"),
                 pWhere);
  return camera;
}

const boost::shared_ptr<VisionModuleInfo>* OXVisionVideoInput::xFind(const std::string& pId) const {
  const auto found = fVisionModules.find(pId);
  return found == fVisionModules.end() ? nullptr : &found->second;
}

// A reference into the map: an operation that removes the subscriber must copy the pointer first.
const boost::shared_ptr<VisionModuleInfo>& OXVisionVideoInput::xSubscriber(
    const std::string& pId, Family pFamily, const report::SubscriberTexts& pTexts,
    OXSourceLocation pWhere) const {
  const boost::shared_ptr<VisionModuleInfo>* const found = xFind(pId);
  if (!found)
    report::fail(getName(), pTexts.function, pTexts.method, report::unknownSubscriber(pTexts, pId),
                 pWhere);
  const bool isMulti = (*found)->fIsMultiStream;
  if ((pFamily == Family::Mono && isMulti) || (pFamily == Family::Multi && !isMulti))
    report::fail(getName(), pTexts.function, pTexts.method, pTexts.wrongFamily, pWhere);
  return *found;
}

Claim OXVisionVideoInput::xClaim(const boost::shared_ptr<VisionModuleInfo>& pSubscriber,
                                 int pCamera) const {
  return {pSubscriber, pCamera, *fCameraProperties[static_cast<std::size_t>(pCamera)],
          pSubscriber->wish(pCamera)};
}

// For operations that write records of their own for what is missing, and do not throw.
Lookup OXVisionVideoInput::xLookUp(const std::string& pId, std::optional<int> pCamera) const {
  const auto* const subscriber = xFind(pId);
  if (!subscriber) return {};
  const int index = pCamera ? *pCamera : xCurrentCamera(**subscriber);
  if (!xCamera(index)) return {true, index, {}};
  return {true, index, xClaim(*subscriber, index)};
}

Claim OXVisionVideoInput::xClaim(const std::string& pId, Family pFamily,
                                 const report::SubscriberTexts& pTexts,
                                 OXSourceLocation pWhere) const {
  const auto& subscriber = xSubscriber(pId, pFamily, pTexts, pWhere);
  return xClaim(subscriber, xCheckedCurrentCamera(*subscriber, pTexts.function, pWhere));
}

Claim OXVisionVideoInput::xCurrentClaim(const SubscriberTurn& pTurn,
                                        const report::SubscriberTexts& pTexts,
                                        OXSourceLocation pWhere) const {
  return xClaim(pTurn.subscriber(),
                xCheckedCurrentCamera(*pTurn.subscriber(), pTexts.function, pWhere));
}

// It may be removed, and even another one of its name added, while its turn is waited for.
OXVisionVideoInput::SubscriberTurn::SubscriberTurn(const OXVisionVideoInput& pDevice,
                                                   const std::string& pId, Family pFamily,
                                                   const report::SubscriberTexts& pTexts,
                                                   OXSourceLocation pWhere) {
  for (;;) {
    fSubscriber = pDevice.xSubscriber(pId, pFamily, pTexts, pWhere);
    fSubscriber->fTurn.take(pDevice.fVisionModulesLock);
    if (!fSubscriber->fIsUnsubscribed) return;
    fSubscriber->fTurn.end();
  }
}

OXVisionVideoInput::SubscriberTurn::~SubscriberTurn() { fSubscriber->fTurn.end(); }

}  // namespace OX
