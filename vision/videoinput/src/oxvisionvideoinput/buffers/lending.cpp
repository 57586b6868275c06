// How a camera's frame is lent and given back. A raw buffer of the device's pool points at the
// frame's pixels and shares ownership of them, so no pixel is copied and a frame lives as long as
// somebody reads it. A hold is a read count on one buffer and the subscriber's fLockedImage: the
// two are set and cleared together, here and in xLendConverted.
#include "buffers/lending.h"

#include <algorithm>
#include <boost/make_shared.hpp>
#include <new>

#include <oxframework/oxlog.h>
#include "claim.h"
#include "oxvisionvideoinput.h"

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
    buffer->fRawSource = pFrame.source;
    ++buffer->fReadLockCount;
    pClaim.wish.fLockedImage = buffer;
    return &image;
  }
  return nullptr;
}

OXImage* OXVisionVideoInput::xLendNewestFrame(const std::string& pId, const LendingTexts& pTexts) {
  // Texts are put together where they are needed: a request that succeeds allocates nothing.
  const auto refuse = [&](const std::string& pText) -> OXImage* {
    report::log(ki::log::kError, kGetFunction, pText, pTexts.category);
    return nullptr;
  };
  const auto aboutRequest = [&](const auto&... pPieces) {
    return report::text(kGetFunction, "(", pId, pTexts.afterId, pPieces...);
  };
  const auto* const subscriber = xFind(pId);
  if (!subscriber) return refuse(aboutRequest("module ", pId, " unknown!"));
  const int index = xCurrentCamera(**subscriber);
  if (!xCamera(index)) return refuse(aboutRequest("invalid Camera index ", index));
  const Claim claim = xClaim(*subscriber, index);
  if (claim.wish.fLockedImage) return refuse(pTexts.notReleased(getName(), pId));
  // A subscriber without buffers cannot be lent a frame: the camera does not move on for it, and
  // no frame is counted as held.
  if (!claim.wish.fHasBuffers) return refuse(aboutRequest(kNoBuffer));
  const AcquiredFrame frame = xAcquireFrame(claim, kGetFunction);
  if (!frame.image) return nullptr;
  OXImage* const image = xLendFrame(claim, frame);
  // All buffers of the camera are in use. The camera goes on counting the frame as lent.
  return image ? image : refuse(aboutRequest(kNoBuffer));
}

bool OXVisionVideoInput::xReleaseFrame(const std::string& pId, int pCamera,
                                       const LendingTexts& pTexts) {
  const auto* const subscriber = xFind(pId);
  if (!subscriber) {
    report::log(ki::log::kError, kReleaseFunction, pTexts.unknownAtRelease(pId), pTexts.category);
    return false;
  }
  if (!xCamera(pCamera)) {
    report::log(ki::log::kError, kReleaseFunction,
                report::text(pTexts.releaseFunction, "(", pId, pTexts.afterId,
                             "invalid Camera index ", pCamera),
                pTexts.category);
    return false;
  }
  const Claim claim = xClaim(*subscriber, pCamera);
  if (claim.wish.fLockedImage) xEndHold(claim);
  return true;
}

AcquiredFrame OXVisionVideoInput::xAcquireFrame(const Claim&, const char*) { return {}; }

void OXVisionVideoInput::xReturnRawSource(int, OXVisionBuffer& pBuffer) {
  pBuffer.fRawSource.reset();
}

void OXVisionVideoInput::xEndHold(const Claim& pClaim) {
  OXVisionBuffer& buffer = *pClaim.wish.fLockedImage;
  const bool isLastUser = buffer.fReadLockCount < 2 && buffer.fWriteLockCount < 1;
  if (isLastUser) xReturnRawSource(pClaim.index, buffer);
  if (--buffer.fReadLockCount > 0) xReplaceRawBuffer(pClaim);
  pClaim.wish.fLockedImage.reset();
}

// A reply is still being copied from a raw buffer whose hold has ended: the buffer goes on outside
// the pool until that is done. The pool has one buffer for each subscriber and must not be short.
void OXVisionVideoInput::xReplaceRawBuffer(const Claim& pClaim) {
  BufferPool& pool = pClaim.camera.fRawBuffers;
  const auto found = std::find(pool.begin(), pool.end(), pClaim.wish.fLockedImage);
  if (found == pool.end()) return;  // a converted image, which others may share
  try {
    *found = boost::make_shared<OXVisionBuffer>(static_cast<int>(pClaim.camera.fResolution),
                                                static_cast<int>(pClaim.camera.fColorSpace), true);
  } catch (const std::bad_alloc&) {
    // It stays in the pool until the copy has ended.
  }
}

// A buffer outside the pool of converted images was lent by the camera, which counts on its own.
void OXVisionVideoInput::xReleaseConverted(const Claim& pClaim) {
  boost::shared_ptr<OXVisionBuffer>& held = pClaim.wish.fLockedImage;
  if (!held) return;
  const BufferPool& pool = pClaim.camera.fImageBuffers;
  if (std::find(pool.begin(), pool.end(), held) == pool.end()) {
    xReleaseDirectRawImageDeep(pClaim.subscriber->fName, pClaim.index);
    return;
  }
  --held->fReadLockCount;
  held.reset();
}

void OXVisionVideoInput::xReleaseAllConverted(const boost::shared_ptr<VisionModuleInfo>& pModule) {
  for (int i = 0; i < fNbCameras; ++i) xReleaseConverted(xClaim(pModule, i));
}

void OXVisionVideoInput::xForceReleaseBuffer(const std::string& pId) {
  if (const auto* const subscriber = xFind(pId))
    xReleaseAllConverted(*subscriber);
  else
    report::log(ki::log::kError, "xForceReleaseBuffer",
                "xForceReleaseBuffer(" + pId + ") : module " + pId + " unknown!");
}

void OXVisionVideoInput::xDropReader(int pCamera, OXVisionBuffer& pBuffer) {
  if (--pBuffer.fReadLockCount == 0 && pBuffer.fRawSource) xReturnRawSource(pCamera, pBuffer);
}

}  // namespace OX
