// Images of a mono-stream subscriber. A request does not always cost a conversion: a converted
// image that is young enough is shared, else a raw one that is lent and young enough is converted,
// and only then is the camera asked for a frame.
#include <algorithm>

#include <oxframework/oxclock.h>
#include <oxframework/oxdefinitions.h>
#include <oxframework/oxlog.h>
#include "buffers/pinscope.h"
#include "buffers/remotereply.h"
#include "subscriberturn.h"

namespace OX {
namespace {

constexpr report::SubscriberTexts kGetImageLocal{
    "getImageLocal", "getImageLocal()", "getImageLocal(",
    "Multi stream module can't call this method, use getImagesLocal instead"};
// The next two name the raw operations: clients know the texts so.
constexpr report::SubscriberTexts kGetImageRemote{
    "getImageRemote", "getImageRemote()", "getDirectRawImageRemote(",
    "Multi stream module can't call this method, use getDirectRawImagesRemote instead"};
constexpr report::SubscriberTexts kReleaseImage{
    "releaseImage", "releaseImage()", "releaseImage(",
    "Multi stream module can't call this method, use releaseDirectRawImages instead"};

std::int64_t nowUs() {
  ::timeval now{};
  ki::os::gettimeofday(&now);
  return std::int64_t{now.tv_sec} * 1000000 + now.tv_usec;
}

std::int64_t periodMs(const VisionModuleInfo& pSubscriber) {
  return 1000 / std::max<int>(pSubscriber.fFrameRate, 1);
}

// Whether the image is no older than one period of the subscriber's rate. In whole milliseconds,
// each part truncated by itself: clients see which image is shared.
bool isFresh(const OXImage& pImage, std::int64_t pNowUs, const VisionModuleInfo& pSubscriber) {
  const auto [seconds, micros] = getTimeStamp(pImage);
  const std::int64_t nowSeconds = pNowUs / 1000000;
  const std::int64_t nowMicros = pNowUs % 1000000;
  return seconds * 1000 - nowSeconds * 1000 + micros / 1000 - nowMicros / 1000 +
             periodMs(pSubscriber) >=
         0;
}

// Stricter on purpose: a raw image of the previous second is never reused, however young.
bool isFreshInThisSecond(const OXImage& pImage, std::int64_t pNowUs,
                         const VisionModuleInfo& pSubscriber) {
  return getTimeStamp(pImage).first == pNowUs / 1000000 && isFresh(pImage, pNowUs, pSubscriber);
}

}  // namespace

// A shared image costs no more than a search and a count: with the lock held for reading, threads
// that are answered so do not wait for each other.
OXImage* OXVisionVideoInput::xGetSharedImage(const std::string& pId) {
  const OXCriticalSectionRead lock(fVisionModulesLock);
  const auto* const subscriber = xFind(pId);
  if (!subscriber || (*subscriber)->fIsMultiStream) return nullptr;
  const ShortTurn turn((*subscriber)->fTurn);
  const int index = xCurrentCamera(**subscriber);
  if (!turn.isTaken() || !xCamera(index)) return nullptr;
  const Claim claim = xClaim(*subscriber, index);
  if (claim.wish.fLockedImage || claim.camera.fGrabberState != kGrabberRunning) return nullptr;
  const std::int64_t now = nowUs();
  OXImage* const image = xLendConverted(claim, xFindFreshImage(claim, now));
  if (image) claim.subscriber->countServed(now, 1);
  return image;
}

// What getImageLocal cannot answer so, it asks for again with the lock held for writing.
OXImage* OXVisionVideoInput::getImageLocal(const std::string& pId) {
  if (OXImage* const shared = xGetSharedImage(pId)) return shared;
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  const SubscriberTurn turn(*this, pId, Family::Mono, kGetImageLocal);
  return xCountServed(*turn.subscriber(), xGetImage(xCurrentClaim(turn, kGetImageLocal)));
}

OXValue OXVisionVideoInput::getImageRemote(const std::string& pId) {
  RemoteReply reply(*this, &OXVisionVideoInput::xReleaseImage);
  {
    const OXCriticalSectionWrite lock(fVisionModulesLock);
    const SubscriberTurn turn(*this, pId, Family::Mono, kGetImageRemote);
    const Claim claim = xCurrentClaim(turn, kGetImageRemote);
    const OXImage* const image = xCountServed(*claim.subscriber, xGetImage(claim));
    if (!image) return OXValue();
    reply.add(claim, image);
  }
  return reply.toValue();
}

bool OXVisionVideoInput::releaseImage(const std::string& pId) {
  if (xReleaseSharedImage(pId)) return true;
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  const SubscriberTurn turn(*this, pId, Family::Mono, kReleaseImage);
  xReleaseImage(turn.subscriber());
  return true;
}

OXImage* OXVisionVideoInput::xLendConverted(const Claim& pClaim, BufferPtr pBuffer) {
  if (!pBuffer) return nullptr;
  pClaim.wish.fLockedImage = std::move(pBuffer);
  pClaim.subscriber->countHold(1);
  return pClaim.wish.fLockedImage->fImage.get();
}

OXVisionVideoInput::BufferPtr OXVisionVideoInput::xFindFreshImage(const Claim& pClaim,
                                                                  std::int64_t pNowUs) {
  BufferPtr buffer = xLockTheNewestBufferForReading(pClaim);
  if (!buffer || isFresh(*buffer->fImage, pNowUs, *pClaim.subscriber)) return buffer;
  --buffer->fReadLockCount;
  return {};
}

// Another request may be making the very image: it is worth waiting for if it will be young enough.
// Whether it then is takes a new reading of the clock.
OXVisionVideoInput::BufferPtr OXVisionVideoInput::xAwaitFreshImage(const Claim& pClaim,
                                                                   std::int64_t pNowUs) {
  BufferPtr buffer = xFindConversionUnderWay(pClaim, [&](const OXVisionBuffer& pBuffer) {
    return isFresh(*pBuffer.fImage, pNowUs, *pClaim.subscriber);
  });
  if (buffer) buffer = xAwaitConversion(pClaim.camera, std::move(buffer));
  if (!buffer || isFresh(*buffer->fImage, nowUs(), *pClaim.subscriber)) return buffer;
  --buffer->fReadLockCount;
  return {};
}

bool OXVisionVideoInput::xReuseRawImage(const Claim& pClaim, std::int64_t pNowUs,
                                        OXImage*& pImage) {
  const BufferPtr raw = xLockTheNewestBufferForReading(pClaim.camera);
  if (!raw) return false;
  // A raw buffer is usable only while it is lent, since its pixels may change after that, and while
  // its image says what size they have.
  const bool fresh = raw->fRawSource && raw->fImage->fWidth == raw->fLentWidth &&
                     raw->fImage->fHeight == raw->fLentHeight &&
                     isFreshInThisSecond(*raw->fImage, pNowUs, *pClaim.subscriber);
  const PinScope pin(*this, pClaim.index, raw);
  if (fresh)
    pImage = xLendConverted(
        pClaim, xConvertImage(pClaim, *raw->fImage, raw->fRawSource.get(), raw->fFrame));
  return fresh;
}

void OXVisionVideoInput::xReleaseRawImages(const VisionModuleInfo& pSubscriber) {
  if (!xReleaseOwnRawImages(pSubscriber))
    report::log(ki::log::kError, "xGetImage",
                "xGetImage(" + pSubscriber.fName + "): Unable to release raw image(s).");
}

OXImage* OXVisionVideoInput::xGetImage(const std::string& pId) {
  const SubscriberTurn turn(*this, pId, Family::Mono, kGetImageLocal);
  return xGetImage(xCurrentClaim(turn, kGetImageLocal));
}

OXImage* OXVisionVideoInput::xGetImage(const Claim& pClaim) {
  const std::string& id = pClaim.subscriber->fName;
  if (pClaim.wish.fLockedImage)
    report::fail(
        getName(), "xGetImage", "xGetImage",
        report::text(id, " previous image for camera ", pClaim.index, " was not released !"));
  // Another thread may be opening the camera: this one then waits for the end of that.
  if (pClaim.camera.fGrabberState != kGrabberRunning) xStartFrameGrabber(pClaim.index);
  // One reading of the clock, after the grabber may have been started: all tests see the same time.
  const std::int64_t now = nowUs();
  BufferPtr shared = xFindFreshImage(pClaim, now);
  if (!shared) shared = xAwaitFreshImage(pClaim, now);
  if (shared) return xLendConverted(pClaim, std::move(shared));
  OXImage* fromRaw = nullptr;
  if (xReuseRawImage(pClaim, now, fromRaw)) return fromRaw;

  const OXImage* const raw = xGetDirectRawImage(id, true);
  if (!raw) {
    report::log(
        ki::log::kInfo, "xGetImage",
        "xGetImage(" + id + "): Failed to get a new raw image for subscriber \"" + id + "\"");
    return nullptr;
  }
  // Another request may have converted it while this one waited for the frame.
  BufferPtr converted = xFindFreshImage(pClaim, nowUs());
  try {
    if (!converted) converted = xConvertHeldImage(pClaim, *raw);
  } catch (...) {
    xReleaseOwnRawImages(*pClaim.subscriber);
    throw;
  }
  // The source may have selected another active camera meanwhile: a replay follows its recording.
  if (xCurrentCamera(*pClaim.subscriber) != pClaim.index)
    report::log(ki::log::kError, "xGetImage",
                "xGetImage(" + id + "): Module active camera change!");
  xReleaseRawImages(*pClaim.subscriber);
  return xLendConverted(pClaim, std::move(converted));
}

}  // namespace OX
