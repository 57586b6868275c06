// Subscribers whose client is gone. A connection owns the subscribers that it made; the broker ends
// them with it. That is a way out of its own: unsubscribe() waits for a leaver to release its image
// and records that it did not, and the published plural releases end holds on the active cameras
// only.
#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include <oxframework/oxerror.h>
#include <oxframework/oxlog.h>
#include "claim.h"
#include "oxvisionvideoinput.h"

namespace OX {
namespace {

// Of a broker's thread, for a turn. Short, since the client's other subscribers follow on the same
// thread; the broker asks again.
constexpr std::chrono::milliseconds kTurnBound(50);

}  // namespace

void OXVisionVideoInput::xDeclareOwnership() {
  declareOwnership(
      {.acquiring = {"subscribe", "subscribeCamera", "subscribeCameras"},
       .returning = {"unsubscribe", "unsubscribeAllInstances", "onClientDisconnected"},
       .findId = [this](std::uint64_t pAcquisition) { return xAcquiredId(pAcquisition); },
       .end = [this](std::uint64_t pAcquisition) { return xEndAcquired(pAcquisition); }});
}

boost::shared_ptr<VisionModuleInfo> OXVisionVideoInput::xFindAcquired(
    std::uint64_t pAcquisition) const {
  for (const auto& [id, subscriber] : fVisionModules)
    if (subscriber->fAcquisition == pAcquisition) return subscriber;
  return {};
}

std::string OXVisionVideoInput::xAcquiredId(std::uint64_t pAcquisition) {
  const OXCriticalSectionRead lock(fVisionModulesLock);
  const boost::shared_ptr<VisionModuleInfo> subscriber = xFindAcquired(pAcquisition);
  return subscriber ? subscriber->fName : std::string();
}

bool OXVisionVideoInput::xEndAcquired(std::uint64_t pAcquisition) {
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  const boost::shared_ptr<VisionModuleInfo> subscriber = xFindAcquired(pAcquisition);
  return !subscriber || xTryToEnd(subscriber, "its client disconnected");
}

bool OXVisionVideoInput::xTryToEnd(const boost::shared_ptr<VisionModuleInfo>& pSubscriber,
                                   const char* pReason) {
  const BoundedTurn turn(pSubscriber->fTurn, fVisionModulesLock, kTurnBound);
  if (!turn.isTaken()) return false;
  // By somebody else, before or while its turn was waited for.
  if (pSubscriber->fIsUnsubscribed) return true;
  // Before the turn of the cameras, which others wait for: a disk may be slow.
  if (pSubscriber->fIsRecording || pSubscriber->fVideo) xCloseVideo(pSubscriber, pReason);
  const BoundedTurn change(fCamerasTurn, fVisionModulesLock, kTurnBound);
  if (!change.isTaken()) return false;
  xEndSubscriber(pSubscriber);
  return true;
}

// As an unsubscription of one stream does, whose reasons are there. But a camera that can't be
// changed, say because its file is gone, keeps no subscriber here: nobody is left who could try
// again.
void OXVisionVideoInput::xEndSubscriber(const boost::shared_ptr<VisionModuleInfo>& pSubscriber) {
  xFreeRetired();
  xReleaseAllConverted(pSubscriber);
  std::vector<int> used = pSubscriber->fActiveCameras;
  if (!pSubscriber->fIsMultiStream) used = {xCurrentCamera(*pSubscriber)};
  for (int i = 0; i < fNbCameras; ++i) xRemoveBuffers(xClaim(pSubscriber, i));
  for (const int camera : used) {
    try {
      if (xCamera(camera)) xLowerCamera(xClaim(pSubscriber, camera));
    } catch (const OXError& error) {
      report::log(ki::log::kWarning, "xEndSubscriber", error.what());
    }
  }
  xForget(*pSubscriber);
}

}  // namespace OX
