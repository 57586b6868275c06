// Images of a multi-stream subscriber. Converted images are not shared and the frame rate has no
// effect here: every request takes the newest frame of each camera and converts it.
#include <oxframework/oxlog.h>
#include "buffers/remotereply.h"
#include "subscriberturn.h"

namespace OX {
namespace {

// The first one names the raw operation: clients know the text so.
constexpr report::SubscriberTexts kGetImagesLocal{
    "getImagesLocal", "getImagesLocal()", "getDirectRawImagesLocal(",
    "Mono stream module can't call this method, use getImageLocal instead"};
constexpr report::SubscriberTexts kGetImagesRemote{
    "getImagesRemote", "getImagesRemote()", "getImagesRemote(",
    "Mono stream module can't call this method, use getImageRemote instead"};
constexpr report::SubscriberTexts kReleaseImages{
    "releaseImages",
    "releaseImages()",
    ": Could not release image for unknown subscriber \"",
    "Mono stream module can't call this method, use releaseImage instead",
    nullptr,
    "\""};

}  // namespace

std::vector<OXImage*> OXVisionVideoInput::xGetImages(const std::string& pId) {
  const SubscriberTurn turn(*this, pId, Family::Multi, kGetImagesLocal);
  return xGetImages(turn.subscriber());
}

std::vector<OXImage*> OXVisionVideoInput::xGetImages(
    const boost::shared_ptr<VisionModuleInfo>& pSubscriber) {
  // Camera by camera: one whose image is held ends the request before later cameras are started.
  for (const int camera : pSubscriber->fActiveCameras) {
    if (pSubscriber->wish(camera).fLockedImage) {
      report::log(ki::log::kError, "xGetImages",
                  report::text("Previous image ", camera, " was not released"));
      return {};
    }
    xStartFrameGrabber(camera);
  }
  std::vector<OXImage*> images = xGetDirectRawImages(pSubscriber->fName);
  // Thrown without a record of its own: the camera has logged what failed.
  if (images.empty())
    report::raise(getName(), "xGetImages()",
                  pSubscriber->fName + " failed to get images from one or several cameras");
  try {
    for (std::size_t i = 0; i < images.size(); ++i) {
      if (!images[i]) continue;  // no buffer was free: nothing is held on this camera
      const Claim claim = xClaim(pSubscriber, pSubscriber->fActiveCameras[i]);
      images[i] = xReplaceByConverted(claim, *images[i]);
    }
  } catch (...) {
    xReleaseImages(pSubscriber);  // nothing was held before: a request that fails takes nothing
    throw;
  }
  return images;
}

OXImage* OXVisionVideoInput::xReplaceByConverted(const Claim& pClaim, const OXImage& pRawImage) {
  BufferPtr converted = xConvertHeldImage(pClaim, pRawImage);
  if (!xReleaseDirectRawImageDeep(pClaim.subscriber->fName, pClaim.index))
    report::log(ki::log::kError, "xGetImages",
                "xGetImage(" + pClaim.subscriber->fName + "): Unable to release raw image.");
  return xLendConverted(pClaim, std::move(converted));
}

OXValue OXVisionVideoInput::xDeliveryFlags(const VisionModuleInfo& pSubscriber,
                                           const std::function<std::vector<OXImage*>()>& pLend) {
  OXValue result;
  result.arrayReserve(static_cast<int>(pSubscriber.fActiveCameras.size()));
  const std::vector<OXImage*> images = pLend();
  result.arraySetSize(static_cast<int>(images.size()));
  for (std::size_t i = 0; i < images.size(); ++i)
    result[static_cast<int>(i)] = images[i] != nullptr;
  return result;
}

OXValue OXVisionVideoInput::getImagesLocal(const std::string& pId) {
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  const SubscriberTurn turn(*this, pId, Family::Multi, kGetImagesLocal);
  return xDeliveryFlags(*turn.subscriber(), [&]() OX_REQUIRES(fVisionModulesLock) {
    return xCountServed(*turn.subscriber(), xGetImages(turn.subscriber()));
  });
}

OXValue OXVisionVideoInput::getImagesRemote(const std::string& pId) {
  RemoteReply reply(*this, &OXVisionVideoInput::xReleaseImages);
  {
    const OXCriticalSectionWrite lock(fVisionModulesLock);
    const SubscriberTurn turn(*this, pId, Family::Multi, kGetImagesRemote);
    const std::vector<OXImage*> images =
        xCountServed(*turn.subscriber(), xGetImages(turn.subscriber()));
    // An image was still held. Nothing is in the reply yet, so that hold is not released here.
    if (images.empty()) return OXValue();
    xAddToReply(reply, turn.subscriber(), images);
  }
  return reply.toJoinedValue();
}

void OXVisionVideoInput::xAddToReply(RemoteReply& pReply,
                                     const boost::shared_ptr<VisionModuleInfo>& pSubscriber,
                                     const std::vector<OXImage*>& pImages) const {
  const std::vector<int>& cameras = pSubscriber->fActiveCameras;
  for (std::size_t i = 0; i < pImages.size() && i < cameras.size(); ++i)
    pReply.add(xClaim(pSubscriber, cameras[i]), pImages[i]);
}

// What was held is read before anything is released: the results say which images there were.
OXValue OXVisionVideoInput::releaseImages(const std::string& pId) {
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  const SubscriberTurn turn(*this, pId, Family::Multi, kReleaseImages);
  const auto& subscriber = turn.subscriber();
  std::vector<int> results;
  for (const int camera : subscriber->fActiveCameras)
    results.push_back(subscriber->wish(camera).fLockedImage ? 1 : 0);
  xReleaseImages(subscriber);
  return OXValue(results);
}

}  // namespace OX
