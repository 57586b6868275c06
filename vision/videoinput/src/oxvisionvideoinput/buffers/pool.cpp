// The pools of buffers: one converted and one raw buffer for each subscriber of a camera. A buffer
// is chosen by its time stamp, over the whole pool: pools are short, and a free list would have to
// follow every change of format. Everything here runs with fVisionModulesLock held for writing and
// never pauses it, so that testing a counter and raising it is one step.
#include <algorithm>
#include <boost/make_shared.hpp>
#include <new>

#include <oxframework/oxdefinitions.h>
#include <oxframework/oxlog.h>
#include "claim.h"
#include "oxvisionvideoinput.h"

namespace OX {
namespace {

using BufferPtr = boost::shared_ptr<OXVisionBuffer>;

bool isReadable(const OXVisionBuffer& pBuffer) { return pBuffer.fWriteLockCount == 0; }

// The best buffer by pBefore(time stamp, best time stamp) of those among the first pCount that pass
// pFits; null when none does. The comparison is strict, so the lower index wins a tie.
template <typename Fits, typename Before>
const BufferPtr* findBest(const std::vector<BufferPtr>& pPool, std::size_t pCount, Fits pFits,
                          Before pBefore) {
  const BufferPtr* best = nullptr;
  for (std::size_t i = 0; i < pCount; ++i) {
    if (!pFits(*pPool[i])) continue;
    if (!best || pBefore(pPool[i]->fImage->fTimeStamp, (*best)->fImage->fTimeStamp))
      best = &pPool[i];
  }
  return best;
}

template <typename Fits>
const BufferPtr* findOldest(const std::vector<BufferPtr>& pPool, Fits pFits) {
  return findBest(pPool, pPool.size(), pFits, std::less<>());
}

template <typename Fits>
const BufferPtr* findNewest(const std::vector<BufferPtr>& pPool, std::size_t pCount, Fits pFits) {
  return findBest(pPool, pCount, pFits, std::greater<>());
}

bool isAnyFree(const OXVisionBuffer& pBuffer) { return pBuffer.isFree(); }

}  // namespace

bool OXVisionVideoInput::xCreateBuffersForStoringImages(const int& pCameraIndex,
                                                        const int& pResolution,
                                                        const int& pColorSpace) {
  RealCameraProperties* const camera = xCamera(pCameraIndex);
  if (!camera) return false;
  try {
    const auto image = boost::make_shared<OXVisionBuffer>(pResolution, pColorSpace, false);
    const auto raw = boost::make_shared<OXVisionBuffer>(
        static_cast<int>(camera->fResolution), static_cast<int>(camera->fColorSpace), true);
    // Reserved first, so that nothing fails between the two: the pools are of equal length.
    camera->fImageBuffers.reserve(camera->fImageBuffers.size() + 1);
    camera->fRawBuffers.reserve(camera->fRawBuffers.size() + 1);
    camera->fImageBuffers.push_back(image);
    camera->fRawBuffers.push_back(raw);
  } catch (const std::bad_alloc&) {
    report::log(ki::log::kError, "xCreateBuffersForStoringImages",
                "xCreateBuffersForStoringImages(): Could not allocate memory for OXVisionBuffer.");
    return false;
  }
  return true;
}

OXVisionVideoInput::BufferPtr OXVisionVideoInput::xLockTheOldestBufferForEditing(
    const RealCameraProperties& pCamera, int pResolution, int pColorSpace) {
  int width = 0;
  int height = 0;
  setSizeFromResolution(pResolution, width, height);
  const BufferPtr* const oldest =
      findOldest(pCamera.fImageBuffers, [&](const OXVisionBuffer& pBuffer) {
        return pBuffer.isFree() && pBuffer.hasFormat(width, height, pColorSpace);
      });
  if (!oldest) return {};
  ++(*oldest)->fWriteLockCount;
  return *oldest;
}

// Normally there is a free buffer of the format, since one was made for each subscriber, which
// holds none while it asks. Changes of settings may have left none: since every buffer has storage
// for the largest format, any free one can be reformatted.
OXVisionVideoInput::BufferPtr OXVisionVideoInput::xLockBufferForConversion(const Claim& pClaim) {
  const int resolution = pClaim.wish.fResolution;
  const int colorSpace = pClaim.wish.fColorSpace;
  BufferPtr exact = xLockTheOldestBufferForEditing(pClaim.camera, resolution, colorSpace);
  if (exact) return exact;
  const BufferPtr* const oldest = findOldest(pClaim.camera.fImageBuffers, isAnyFree);
  if (!oldest) {
    report::log(ki::log::kError, "xConvertImage",
                report::text("xConvertImage(", pClaim.index, "): no free buffer to convert into"));
    return {};
  }
  ++(*oldest)->fWriteLockCount;
  (*oldest)->fImage->setResolution(resolution);
  (*oldest)->fImage->setColorSpace(colorSpace);
  return *oldest;
}

OXVisionVideoInput::BufferPtr OXVisionVideoInput::xLockTheNewestBufferForReading(
    const Claim& pClaim) {
  int width = 0;
  int height = 0;
  setSizeFromResolution(pClaim.wish.fResolution, width, height);
  const BufferPool& pool = pClaim.camera.fImageBuffers;
  const BufferPtr* const newest = findNewest(pool, pool.size(), [&](const OXVisionBuffer& pBuffer) {
    return isReadable(pBuffer) && pBuffer.hasFormat(width, height, pClaim.wish.fColorSpace);
  });
  if (!newest) return {};
  ++(*newest)->fReadLockCount;
  return *newest;
}

// The pools are of equal length; the shorter one bounds the search in any case.
OXVisionVideoInput::BufferPtr OXVisionVideoInput::xLockTheNewestBufferForReading(
    const RealCameraProperties& pCamera) {
  const std::size_t count = std::min(pCamera.fImageBuffers.size(), pCamera.fRawBuffers.size());
  const BufferPtr* const newest = findNewest(pCamera.fRawBuffers, count, isReadable);
  if (!newest) return {};
  ++(*newest)->fReadLockCount;
  return *newest;
}

OXVisionVideoInput::BufferPtr OXVisionVideoInput::xFindConversionUnderWay(
    const Claim& pClaim, const std::function<bool(const OXVisionBuffer&)>& pTest) const {
  int width = 0;
  int height = 0;
  setSizeFromResolution(pClaim.wish.fResolution, width, height);
  for (const BufferPtr& buffer : pClaim.camera.fImageBuffers)
    if (buffer->fWriteLockCount > 0 && buffer->fContent != 0 &&
        buffer->hasFormat(width, height, pClaim.wish.fColorSpace) && pTest(*buffer))
      return buffer;
  return {};
}

OXImage* OXVisionVideoInput::xImageToReformat(const Claim& pClaim, int pResolution,
                                              int pColorSpace) {
  const BufferPtr buffer = xLockTheOldestBufferForEditing(pClaim.camera, pResolution, pColorSpace);
  if (!buffer) return nullptr;
  buffer->fImage->fTimeStamp = 0;
  buffer->fContent = 0;
  --buffer->fWriteLockCount;  // nobody can take it before the caller: the lock is held
  return buffer->fImage.get();
}

// The buffer is removed from the pool but not freed at once: a client of this process whose image
// was taken back by force may still be reading it. A held buffer lives until its last release
// anyway.
void OXVisionVideoInput::xErase(BufferPool& pPool, const BufferPtr& pBuffer) {
  fRetired[fNextRetired++ % fRetired.size()] = pBuffer;
  pPool.erase(pPool.begin() + (&pBuffer - pPool.data()));
}

// To unmap megabytes takes longer than bookkeeping may.
void OXVisionVideoInput::xFreeRetired() {
  std::array<BufferPtr, kRetiredBuffers> gone;
  gone.swap(fRetired);
  const OXCriticalSectionPause pause(fVisionModulesLock);
  gone.fill({});
}

void OXVisionVideoInput::xFindAndEraseTheOldestBuffer(BufferPool& pPool) {
  // No free one is no reason to wait: whoever uses the buffer that goes keeps it alive.
  const BufferPtr* oldest = findOldest(pPool, isAnyFree);
  if (!oldest) oldest = findOldest(pPool, [](const OXVisionBuffer&) { return true; });
  if (oldest) xErase(pPool, *oldest);
}

void OXVisionVideoInput::xFindAndEraseTheOldestBuffer(BufferPool& pPool,
                                                      const RequestedCameraProperties& pWish) {
  int width = 0;
  int height = 0;
  setSizeFromResolution(pWish.fResolution, width, height);
  const BufferPtr* const oldest = findOldest(pPool, [&](const OXVisionBuffer& pBuffer) {
    return pBuffer.isFree() && pBuffer.hasFormat(width, height, pWish.fColorSpace);
  });
  if (oldest)
    xErase(pPool, *oldest);
  else
    xFindAndEraseTheOldestBuffer(pPool);
}

}  // namespace OX
