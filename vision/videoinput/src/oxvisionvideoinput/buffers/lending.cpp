// Lends a camera's frames and takes them back. A raw buffer of the device's pool points at the
// frame's pixels and shares ownership of them, so no pixel is copied and a frame lives as long as
// it is read. A hold is one read count of a buffer plus the subscriber's fLockedImage: the two are
// set and cleared together, here and in xLendConverted.
#include "buffers/lending.h"

#include <algorithm>
#include <boost/make_shared.hpp>
#include <cstring>
#include <exception>
#include <new>

#include <oxframework/oxdefinitions.h>
#include <oxframework/oxlog.h>
#include "buffers/pinscope.h"
#include "buffers/remotereply.h"

namespace OX {
namespace {

constexpr const char* kGetFunction = "xGetDirectRawImage";
constexpr const char* kNoBuffer = "error trying to find available buffer.";
constexpr const char* kReleaseFunction = "xReleaseDirectRawImageDeep";

}  // namespace

OXImage* OXVisionVideoInput::xLendFrame(const Claim& pClaim, const AcquiredFrame& pFrame) {
  for (const auto& buffer : pClaim.camera.fRawBuffers) {
    if (!buffer->isFree()) continue;
    OXImage& image = *buffer->fImage;
    image.setExternalData(pFrame.image->fData, pFrame.image->fCapacityBytes);
    image.fTimeStamp = pFrame.image->fTimeStamp;
    image.fCameraId = pFrame.cameraId;
    if (pFrame.setsFormat) {
      image.fWidth = pFrame.image->fWidth;
      image.fHeight = pFrame.image->fHeight;
      image.setColorSpace(pFrame.image->fColorSpace);
    }
    if (!pFrame.setsFormat && pClaim.camera.fIsChanging)
      image.setResolution(pClaim.camera.fResolution);
    buffer->fLentWidth = image.fWidth;
    buffer->fLentHeight = image.fHeight;
    buffer->fRawSource = pFrame.source;
    buffer->fFrame = pFrame.mark;
    ++buffer->fReadLockCount;
    pClaim.wish.fLockedImage = buffer;
    pClaim.subscriber->countHold(1);
    return &image;
  }
  return nullptr;
}

OXImage* OXVisionVideoInput::xLendNewestFrame(const std::string& pId, const LendingTexts& pTexts) {
  // Texts are composed only when they are needed: a request that succeeds allocates nothing.
  const auto refuse = [&](const std::string& pText) -> OXImage* {
    report::log(ki::log::kError, kGetFunction, pText, pTexts.category);
    return nullptr;
  };
  const auto aboutRequest = [&](const auto&... pPieces) {
    return report::text(kGetFunction, "(", pId, pTexts.afterId, pPieces...);
  };
  const Lookup found = xLookUp(pId);
  if (!found.isKnown) return refuse(aboutRequest("module ", pId, " unknown!"));
  if (!found.claim) return refuse(aboutRequest("invalid Camera index ", found.index));
  const Claim& claim = *found.claim;
  if (claim.wish.fLockedImage) return refuse(pTexts.notReleased(getName(), pId));
  // A subscriber without buffers cannot be lent a frame. Checked before the camera is asked, which
  // would otherwise advance a replay and count a frame that nobody can release.
  if (!claim.wish.fHasBuffers) return refuse(aboutRequest(kNoBuffer));
  const AcquiredFrame frame = xAcquireFrame(claim, kGetFunction);
  if (!frame.image) return nullptr;
  OXImage* const image = xLendFrame(claim, frame);
  // When all buffers of the camera are in use, the frame still counts as lent.
  return image ? image : refuse(aboutRequest(kNoBuffer));
}

bool OXVisionVideoInput::xReleaseFrame(const std::string& pId, int pCamera,
                                       const LendingTexts& pTexts) {
  const Lookup found = xLookUp(pId, pCamera);
  if (found.claim) {
    if (found.claim->wish.fLockedImage) xEndHold(*found.claim);
    return true;
  }
  report::log(ki::log::kError, kReleaseFunction,
              found.isKnown ? report::text(pTexts.releaseFunction, "(", pId, pTexts.afterId,
                                           "invalid Camera index ", pCamera)
                            : pTexts.unknownAtRelease(pId),
              pTexts.category);
  return false;
}

// For a camera that has its own way of lending.
AcquiredFrame OXVisionVideoInput::xAcquireFrame(const Claim&, const char*) { return {}; }

// For a camera without streams of frames.
void OXVisionVideoInput::xLendNewest(int, const std::string&, std::uint64_t, LentFrame&) {}

void OXVisionVideoInput::xReturnLent(int, const boost::shared_ptr<void>&) noexcept {}

void OXVisionVideoInput::xReturnRawSource(int, OXVisionBuffer& pBuffer) {
  pBuffer.fRawSource.reset();
}

OXVisionVideoInput::PinScope::PinScope(OXVisionVideoInput& pDevice, int pCamera,
                                       const BufferPtr& pBuffer)
    : fDevice(pDevice), fCamera(pCamera), fBuffer(pBuffer) {
  ++fBuffer->fPinCount;
}

OXVisionVideoInput::PinScope::~PinScope() { fDevice.xUnpin(fCamera, *fBuffer); }

void OXVisionVideoInput::xUnpin(int pCamera, OXVisionBuffer& pBuffer) {
  --pBuffer.fPinCount;
  if (--pBuffer.fReadLockCount == 0 && pBuffer.fRawSource) xReturnRawSource(pCamera, pBuffer);
}

// The frame goes back to the camera with the last reader; a reply that is still being copied is a
// reader too, and then returns it itself.
void OXVisionVideoInput::xEndHold(const Claim& pClaim) {
  OXVisionBuffer& buffer = *pClaim.wish.fLockedImage;
  const bool isLastUser = buffer.fReadLockCount < 2 && buffer.fWriteLockCount < 1;
  if (isLastUser) xReturnRawSource(pClaim.index, buffer);
  --buffer.fReadLockCount;
  xReplacePinned(pClaim.camera, pClaim.wish.fLockedImage);
  xForgetHold(pClaim);
}

void OXVisionVideoInput::xForgetHold(const Claim& pClaim) {
  pClaim.wish.fLockedImage.reset();
  pClaim.subscriber->countHold(-1);
  pClaim.subscriber->fReleased.notify();
}

// The last hold of a buffer has ended, and a reply is still being copied from it or an image
// converted: it lives on outside the pool until that is done, and a new one replaces it, since the
// pool needs one buffer for each subscriber. Either release ends a hold on either kind of buffer,
// so both pools are searched.
void OXVisionVideoInput::xReplacePinned(RealCameraProperties& pCamera, const BufferPtr& pBuffer) {
  if (pBuffer->fPinCount == 0 || pBuffer->fReadLockCount > pBuffer->fPinCount) return;
  for (BufferPool* const pool : {&pCamera.fImageBuffers, &pCamera.fRawBuffers}) {
    const auto found = std::find(pool->begin(), pool->end(), pBuffer);
    if (found == pool->end()) continue;
    const OXImage& image = *pBuffer->fImage;
    try {
      auto fresh = boost::make_shared<OXVisionBuffer>(kQQVGA, image.fColorSpace,
                                                      pool == &pCamera.fRawBuffers);
      fresh->fImage->fWidth = image.fWidth;
      fresh->fImage->fHeight = image.fHeight;
      *found = std::move(fresh);
    } catch (const std::bad_alloc&) {
      // The old one stays in the pool, in use until it is no longer pinned.
    }
    return;
  }
}

// A buffer outside the pool of converted images was lent by the camera, which does its own
// counting.
void OXVisionVideoInput::xReleaseConverted(const Claim& pClaim) {
  boost::shared_ptr<OXVisionBuffer>& held = pClaim.wish.fLockedImage;
  if (!held) return;
  const BufferPool& pool = pClaim.camera.fImageBuffers;
  if (std::find(pool.begin(), pool.end(), held) == pool.end()) {
    xReleaseDirectRawImageDeep(pClaim.subscriber->fName, pClaim.index);
    return;
  }
  --held->fReadLockCount;
  xReplacePinned(pClaim.camera, held);
  xForgetHold(pClaim);
}

void OXVisionVideoInput::xReleaseAllConverted(
    const boost::shared_ptr<VisionModuleInfo>& pSubscriber) {
  for (int i = 0; i < fNbCameras; ++i) xReleaseConverted(xClaim(pSubscriber, i));
}

// A subscriber that follows the active camera may hold images of several: the active one may have
// changed since they were lent.
void OXVisionVideoInput::xReleaseImage(const boost::shared_ptr<VisionModuleInfo>& pSubscriber) {
  if (pSubscriber->fActiveCamera == -1)
    xReleaseAllConverted(pSubscriber);
  else
    xReleaseConverted(xClaim(pSubscriber, pSubscriber->fActiveCamera));
}

// With the lock held for reading, for the same reason as xGetSharedImage(). Anything but an
// ordinary converted image is left to the release with the lock held for writing.
bool OXVisionVideoInput::xReleaseSharedImage(const std::string& pId) {
  const OXCriticalSectionRead lock(fVisionModulesLock);
  const auto* const subscriber = xFind(pId);
  if (!subscriber || (*subscriber)->fIsMultiStream) return false;
  const ShortTurn turn((*subscriber)->fTurn);
  if (!turn.isTaken()) return false;
  const int own = (*subscriber)->fActiveCamera;
  const int first = own == -1 ? 0 : own;
  const int end = own == -1 ? fNbCameras : own + 1;
  for (int i = first; i < end; ++i)
    if (!xCamera(i) || !xIsShared(xClaim(*subscriber, i))) return false;
  for (int i = first; i < end; ++i) {
    const Claim claim = xClaim(*subscriber, i);
    if (!claim.wish.fLockedImage) continue;
    --claim.wish.fLockedImage->fReadLockCount;
    xForgetHold(claim);
  }
  return true;
}

bool OXVisionVideoInput::xIsShared(const Claim& pClaim) const {
  const BufferPtr& held = pClaim.wish.fLockedImage;
  const BufferPool& pool = pClaim.camera.fImageBuffers;
  return !held || (held->fPinCount == 0 && std::find(pool.begin(), pool.end(), held) != pool.end());
}

void OXVisionVideoInput::xReleaseImages(const boost::shared_ptr<VisionModuleInfo>& pSubscriber) {
  for (const int camera : pSubscriber->fActiveCameras)
    xReleaseConverted(xClaim(pSubscriber, camera));
}

bool OXVisionVideoInput::xReleaseOwnRawImages(const VisionModuleInfo& pSubscriber) {
  if (pSubscriber.fActiveCamera != -1)
    return xReleaseDirectRawImageDeep(pSubscriber.fName, pSubscriber.fActiveCamera);
  bool released = true;
  for (int i = 0; i < fNbCameras && released; ++i)
    released = xReleaseDirectRawImageDeep(pSubscriber.fName, i);
  return released;
}

void OXVisionVideoInput::xReleaseRawImage(const boost::shared_ptr<VisionModuleInfo>& pSubscriber) {
  xReleaseOwnRawImages(*pSubscriber);
}

void OXVisionVideoInput::xReleaseAllRawImages(
    const boost::shared_ptr<VisionModuleInfo>& pSubscriber) {
  for (int i = 0; i < fNbCameras; ++i) xReleaseDirectRawImageDeep(pSubscriber->fName, i);
}

void OXVisionVideoInput::xForceReleaseBuffer(const std::string& pId) {
  if (const auto* const subscriber = xFind(pId))
    xReleaseAllConverted(*subscriber);
  else
    report::log(ki::log::kError, "xForceReleaseBuffer",
                "xForceReleaseBuffer(" + pId + ") : module " + pId + " unknown!");
}

OXVisionVideoInput::RemoteReply::RemoteReply(OXVisionVideoInput& pDevice, Release pRelease)
    : fDevice(pDevice), fRelease(pRelease) {}

// The pins go before the holds: ending a hold on a raw buffer that is still pinned would replace
// the buffer for nothing. The holds go when no other call of the subscriber is under way, which may
// have taken some of its own.
OXVisionVideoInput::RemoteReply::~RemoteReply() {
  if (!fSubscriber) return;
  try {
    const OXCriticalSectionWrite lock(fDevice.fVisionModulesLock);
    for (const auto& image : fImages)
      if (image) fDevice.xUnpin(image->camera, *image->buffer);
    const TurnScope turn(fSubscriber->fTurn, fDevice.fVisionModulesLock);
    if (!fSubscriber->fIsUnsubscribed) (fDevice.*fRelease)(fSubscriber);
  } catch (const std::exception&) {
    // Another call of the subscriber has been under way for ever, or a record could not be
    // composed; a destructor must not throw.
  }
}

void OXVisionVideoInput::RemoteReply::add(const Claim& pClaim, const OXImage* pImage) {
  fSubscriber = pClaim.subscriber;
  const boost::shared_ptr<OXVisionBuffer>& held = pClaim.wish.fLockedImage;
  fImages.push_back(pImage && held ? std::make_unique<Pin>(*pImage, pClaim.index, held) : nullptr);
  if (!fImages.back()) return;
  if (held->fRawSource) {
    fImages.back()->view.fWidth = held->fLentWidth;
    fImages.back()->view.fHeight = held->fLentHeight;
  }
  ++held->fReadLockCount;
  ++held->fPinCount;
}

OXValue OXVisionVideoInput::RemoteReply::toValue() const {
  return fImages.front()->view.toOXValue();
}

// The pixels are joined in a block of the reply's own and not in a scratch array of the device:
// concurrent replies can't mix, and the block is sent without another copy.
OXValue OXVisionVideoInput::RemoteReply::toJoinedValue() const {
  std::size_t total = 0;
  for (const auto& image : fImages) total += image ? image->view.getSizeBytes() : 0;
  const auto pixels = boost::make_shared_noinit<unsigned char[]>(total ? total : 1);
  unsigned char* position = pixels.get();
  OXValue result;
  for (const auto& image : fImages) {
    if (!image) {
      result.arrayPush(OXValue::Array());
      continue;
    }
    const std::size_t size = image->view.getSizeBytes();
    if (size) std::memcpy(position, image->view.fData, size);
    position += size;
    OXImage header(image->view, OXImage::ViewTag());
    header.fData = nullptr;
    OXValue description = header.toOXValue();
    description[6] = OXValue(OXValue::Array());
    result.arrayPush(std::move(description));
  }
  OXValue binary;
  binary.AdoptBinary(boost::shared_ptr<const void>(pixels, pixels.get()), pixels.get(),
                     static_cast<int>(total));
  result.arrayPush(std::move(binary));
  return result;
}

}  // namespace OX
