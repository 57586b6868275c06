// The pools of buffers: one converted and one raw buffer for each subscriber of a camera. A buffer
// is chosen by its time stamp, over the whole pool: pools are short, and a free list would have to
// follow every change of format. Everything here runs with fVisionModulesLock held for writing and
// never pauses it, so that testing a counter and raising it is one step.
#include <algorithm>
#include <boost/make_shared.hpp>
#include <new>
#include <utility>

#include <oxframework/oxdefinitions.h>
#include <oxframework/oxlog.h>
#include "claim.h"
#include "frames/framerequest.h"
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
bool isAnyLentOnly(const OXVisionBuffer& pBuffer) { return pBuffer.isLentOnly(); }

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

// A buffer of which streams keep the frame serves as well as a free one: another takes its place.
OXVisionVideoInput::BufferPtr OXVisionVideoInput::xLockTheOldestBufferForEditing(
    RealCameraProperties& pCamera, int pResolution, int pColorSpace) {
  int width = 0;
  int height = 0;
  setSizeFromResolution(pResolution, width, height);
  BufferPool& pool = pCamera.fImageBuffers;
  const BufferPtr* oldest = findOldest(pool, [&](const OXVisionBuffer& pBuffer) {
    return pBuffer.isFree() && pBuffer.hasFormat(width, height, pColorSpace);
  });
  if (!oldest)
    oldest =
        xReplaceLent(pCamera, findOldest(pool, [&](const OXVisionBuffer& pBuffer) {
                       return pBuffer.isLentOnly() && pBuffer.hasFormat(width, height, pColorSpace);
                     }));
  if (!oldest) return {};
  ++(*oldest)->fWriteLockCount;
  return *oldest;
}

const OXVisionVideoInput::BufferPtr* OXVisionVideoInput::xReplaceLent(RealCameraProperties& pCamera,
                                                                      const BufferPtr* pPlace) {
  if (!pPlace) return nullptr;
  BufferPtr& place =
      pCamera.fImageBuffers[static_cast<std::size_t>(pPlace - pCamera.fImageBuffers.data())];
  BufferPtr spare = xTakeSpareBuffer(pCamera);
  if (!spare) return nullptr;
  const OXImage& lent = *place->fImage;
  spare->fImage->fWidth = lent.fWidth;
  spare->fImage->fHeight = lent.fHeight;
  spare->fImage->setColorSpace(lent.fColorSpace);
  place->fIsOutside = true;
  place = std::move(spare);
  return &place;
}

OXVisionVideoInput::BufferPtr OXVisionVideoInput::xTakeSpareBuffer(RealCameraProperties& pCamera) {
  for (BufferPtr& spare : pCamera.fSpareBuffers)
    if (spare) return std::exchange(spare, {});
  try {
    return boost::make_shared<OXVisionBuffer>(kQQVGA, kYUV422, false);
  } catch (const std::bad_alloc&) {
    return {};  // a record says so
  }
}

void OXVisionVideoInput::xKeepSpareBuffer(RealCameraProperties& pCamera, BufferPtr& pBuffer) {
  pBuffer->fIsOutside = false;
  pBuffer->fImage->fTimeStamp = 0;
  pBuffer->fContent = 0;
  pBuffer->fFrame = {};
  for (BufferPtr& spare : pCamera.fSpareBuffers)
    if (!spare) return spare.swap(pBuffer);
}

// Normally there is a free buffer of the format, since one was made for each subscriber, which
// holds none while it asks. Changes of settings may have left none: since every buffer has storage
// for the largest format, any free one can be reformatted.
OXVisionVideoInput::BufferPtr OXVisionVideoInput::xLockBufferForConversion(const Claim& pClaim) {
  BufferPtr buffer =
      xLockAnyBuffer(pClaim.camera, pClaim.wish.fResolution, pClaim.wish.fColorSpace);
  if (!buffer)
    report::log(ki::log::kError, "xConvertImage",
                report::text("xConvertImage(", pClaim.index, "): no free buffer to convert into"));
  return buffer;
}

OXVisionVideoInput::BufferPtr OXVisionVideoInput::xLockAnyBuffer(RealCameraProperties& pCamera,
                                                                 int pResolution, int pColorSpace) {
  BufferPtr exact = xLockTheOldestBufferForEditing(pCamera, pResolution, pColorSpace);
  if (exact) return exact;
  const BufferPool& pool = pCamera.fImageBuffers;
  const BufferPtr* oldest = findOldest(pool, isAnyFree);
  if (!oldest) oldest = xReplaceLent(pCamera, findOldest(pool, isAnyLentOnly));
  if (!oldest) return {};
  ++(*oldest)->fWriteLockCount;
  (*oldest)->fImage->setResolution(pResolution);
  (*oldest)->fImage->setColorSpace(pColorSpace);
  return *oldest;
}

// Others may have moved the stream's subscriber, and its buffers, to other cameras: a buffer
// outside of the pool then serves this one stream.
OXVisionVideoInput::BufferPtr OXVisionVideoInput::xLockBufferForFrame(
    const FrameRequest& pRequest) {
  const FrameFormat& format = pRequest.format;
  BufferPtr buffer = xLockAnyBuffer(pRequest.record, format.resolution, format.colorSpace);
  if (buffer) return buffer;
  buffer = xTakeSpareBuffer(pRequest.record);
  if (!buffer) return {};
  buffer->fIsOutside = true;
  ++buffer->fWriteLockCount;
  buffer->fImage->setResolution(format.resolution);
  buffer->fImage->setColorSpace(format.colorSpace);
  return buffer;
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
  buffer->fFrame = {};
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

// To unmap megabytes takes longer than bookkeeping may. The spare buffers of cameras go too: those
// who need some make them again.
void OXVisionVideoInput::xFreeRetired() {
  std::array<BufferPtr, kRetiredBuffers> gone;
  gone.swap(fRetired);
  std::array<decltype(RealCameraProperties::fSpareBuffers), kMostCameras> spares;
  for (std::size_t i = 0; i < fCameraProperties.size() && i < spares.size(); ++i)
    spares[i].swap(fCameraProperties[i]->fSpareBuffers);
  const OXCriticalSectionPause pause(fVisionModulesLock);
  gone.fill({});
  spares.fill({});
}

void OXVisionVideoInput::xFindAndEraseTheOldestBuffer(BufferPool& pPool) {
  // No free one is no reason to wait: whoever uses the buffer that goes keeps it alive.
  const BufferPtr* oldest = findOldest(pPool, isAnyFree);
  if (!oldest) oldest = findOldest(pPool, isAnyLentOnly);
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
