// The camera's own frames, without conversion. The concrete camera lends and takes back; here the
// subscriber is checked and the reply is made. A raw request never starts the grabber.
#include <oxframework/oxlog.h>
#include "buffers/remotereply.h"
#include "subscriberturn.h"

namespace OX {
namespace {

constexpr report::SubscriberTexts kGetLocal{
    "getDirectRawImageLocal", "getDirectRawImageLocal()", "getDirectRawImageLocal(",
    "Multi stream module can't call this method, use getDirectRawImagesLocal instead"};
constexpr report::SubscriberTexts kGetRemote{
    "getDirectRawImageRemote", "getDirectRawImageRemote()", "getDirectRawImageRemote(",
    "Multi stream module can't call this method, use getDirectRawImagesRemote instead"};
constexpr report::SubscriberTexts kRelease{
    "releaseDirectRawImage", "releaseDirectRawImage()", "releaseDirectRawImage(",
    "Multi stream module can't call this method use releaseDirectRawImages instead"};
constexpr report::SubscriberTexts kGetAllLocal{
    "getDirectRawImagesLocal", "getDirectRawImagesLocal()", "getDirectRawImagesLocal(",
    "Mono stream module can't call this method, use getDirectRawImageLocal instead\n"};
// Its first look-up names the local form, its second the operation itself: clients know them so.
constexpr report::SubscriberTexts kGetAllRemote{
    "getDirectRawImagesRemote", "getDirectRawImagesRemote()", "getDirectRawImagesLocal(",
    "Mono stream module can't call this method, use getDirectRawImageRemote instead"};
constexpr report::SubscriberTexts kGetAllRemoteAgain{
    "getDirectRawImagesRemote", "getDirectRawImagesRemote()", "getDirectRawImagesRemote(",
    "Mono stream module can't call this method, use getDirectRawImageRemote instead"};
constexpr report::SubscriberTexts kReleaseAll{
    "releaseDirectRawImages", "releaseDirectRawImages()", "releaseDirectRawImages(",
    "Mono stream module can't call this method, use releaseDirectRawImage instead"};
// For a subscriber that is removed while its turn is waited for.
constexpr report::SubscriberTexts kGetInterprocess{"getDirectRawImageInterprocess",
                                                   "getDirectRawImageInterprocess()",
                                                   "getDirectRawImageInterprocess(", nullptr};

}  // namespace

// Recorded once it is lent, so that a request that gets no image does not count. Unlike a
// conversion this does not read the frame once before it is written.
OXImage* OXVisionVideoInput::xGetRawImage(const Claim& pClaim) {
  OXImage* const image = xGetDirectRawImage(pClaim.subscriber->fName, false);
  if (!image || !pClaim.subscriber->fIsRecording) return image;
  try {
    xRecord(pClaim.subscriber, *image, false);
  } catch (...) {
    xReleaseOwnRawImages(*pClaim.subscriber);
    throw;
  }
  return image;
}

OXImage* OXVisionVideoInput::getDirectRawImageLocal(const std::string& pId) {
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  const SubscriberTurn turn(*this, pId, Family::Mono, kGetLocal);
  return xCountServed(*turn.subscriber(), xGetRawImage(xCurrentClaim(turn, kGetLocal)));
}

OXValue OXVisionVideoInput::getDirectRawImageRemote(const std::string& pId) {
  // Outside the block below: the reply copies without the lock, and its destructor takes it.
  RemoteReply reply(*this, &OXVisionVideoInput::xReleaseRawImage);
  {
    const OXCriticalSectionWrite lock(fVisionModulesLock);
    const SubscriberTurn turn(*this, pId, Family::Mono, kGetRemote);
    const Claim claim = xCurrentClaim(turn, kGetRemote);
    const OXImage* const image = xCountServed(*claim.subscriber, xGetRawImage(claim));
    // Nothing is in the reply yet, so an image that was held before is not released here.
    if (!image) return OXValue();
    reply.add(claim, image);
  }
  return reply.toValue();
}

// True also when nothing is held: a client may release after every request, whatever came of it.
bool OXVisionVideoInput::releaseDirectRawImage(const std::string& pId) {
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  const SubscriberTurn turn(*this, pId, Family::Mono, kRelease);
  return xReleaseOwnRawImages(*turn.subscriber());
}

OXValue OXVisionVideoInput::getDirectRawImagesLocal(const std::string& pId) {
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  const SubscriberTurn turn(*this, pId, Family::Multi, kGetAllLocal);
  // An OXValue holds no pointers: the caller learns which streams have an image, and no more.
  return xDeliveryFlags(*turn.subscriber(), [&]() OX_REQUIRES(fVisionModulesLock) {
    return xCountServed(*turn.subscriber(), xGetDirectRawImages(pId));
  });
}

OXValue OXVisionVideoInput::getDirectRawImagesRemote(const std::string& pId) {
  RemoteReply reply(*this, &OXVisionVideoInput::xReleaseAllRawImages);
  {
    const OXCriticalSectionWrite lock(fVisionModulesLock);
    const SubscriberTurn turn(*this, pId, Family::Multi, kGetAllRemote);
    const std::vector<OXImage*> images = xCountServed(*turn.subscriber(), xGetDirectRawImages(pId));
    if (images.empty()) return OXValue();
    xAddToReply(reply, turn.subscriber(), images);
  }
  OXValue result = reply.toJoinedValue();
  // A subscriber that was removed during the copy gets the error and not the pixels.
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  xSubscriber(pId, Family::Any, kGetAllRemoteAgain);
  return result;
}

OXValue OXVisionVideoInput::releaseDirectRawImages(const std::string& pId) {
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  const SubscriberTurn turn(*this, pId, Family::Multi, kReleaseAll);
  std::vector<int> results;
  for (const int camera : turn.subscriber()->fActiveCameras)
    results.push_back(xReleaseDirectRawImageDeep(pId, camera) ? 1 : 0);
  return OXValue(results);
}

// No shared memory is created: the name is all that old clients get. An unknown id is logged and
// returned as an empty name and not thrown: clients know it so.
std::string OXVisionVideoInput::getDirectRawImageInterprocess(const std::string& pId) {
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  if (!xFind(pId)) {
    report::log(ki::log::kError, "getDirectRawImageInterprocess",
                "getDirectRawImageInterprocess(" + pId + ") : module " + pId + " unknown!\n");
    return "";
  }
  // Before anything is lent, so that the error leaves no image held.
  const SubscriberTurn turn(*this, pId, Family::Any, kGetInterprocess);
  const int camera = xCheckedCurrentCamera(*turn.subscriber(), "getDirectRawImageInterprocess");
  const bool taken = xGetDirectRawImage(pId, false) != nullptr;
  // The release below refuses a multi-stream subscriber: what this call took is released first.
  if (taken && turn.subscriber()->fIsMultiStream) xReleaseDirectRawImageDeep(pId, camera);
  releaseDirectRawImage(pId);
  return "lastVideoBuffer";
}

}  // namespace OX
