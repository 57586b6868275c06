// The pools of buffers. A buffer is chosen by its time stamp each time, over the whole pool:
// there is no free list and no queue. Everything here runs with fVisionModulesLock held for
// writing, so that looking at a counter and raising it is one step.
#include <algorithm>
#include <boost/make_shared.hpp>
#include <new>

#include <oxframework/oxdefinitions.h>
#include <oxframework/oxlog.h>
#include "oxvisionvideoinput.h"

namespace OX {
namespace {

constexpr std::size_t kRetiredBuffers = 4;

using BufferPtr = boost::shared_ptr<OXVisionBuffer>;

bool isFree(const OXVisionBuffer& pBuffer) {
  return pBuffer.fReadLockCount == 0 && pBuffer.fWriteLockCount <= 0;
}

bool isReadable(const OXVisionBuffer& pBuffer) { return pBuffer.fWriteLockCount == 0; }

// The index of the buffer that passes pFits and wins by pBefore(stamp, stamp of the best), or -1.
// Strict comparison leaves the lower index in front on a tie.
template <typename Fits, typename Before>
int findBest(const std::vector<BufferPtr>& pPool, std::size_t pCount, Fits pFits, Before pBefore) {
  int best = -1;
  for (std::size_t i = 0; i < pCount; ++i) {
    if (!pFits(*pPool[i])) continue;
    const bool wins =
        best < 0 || pBefore(pPool[i]->fImage->fTimeStamp,
                            pPool[static_cast<std::size_t>(best)]->fImage->fTimeStamp);
    if (wins) best = static_cast<int>(i);
  }
  return best;
}

template <typename Fits>
int findOldest(const std::vector<BufferPtr>& pPool, Fits pFits) {
  return findBest(pPool, pPool.size(), pFits, std::less<>());
}

template <typename Fits>
int findNewest(const std::vector<BufferPtr>& pPool, std::size_t pCount, Fits pFits) {
  return findBest(pPool, pCount, pFits, std::greater<>());
}

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
    // Both or none: the pools of a camera are of one length.
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

int OXVisionVideoInput::xLockTheOldestBufferForEditing(const std::int8_t& pCamera, int pWidth,
                                                       int pHeight, int pColorSpace) {
  const RealCameraProperties* const camera = xCamera(pCamera);
  if (!camera) return -1;
  const BufferPool& pool = camera->fImageBuffers;
  const int best = findOldest(pool, [&](const OXVisionBuffer& pBuffer) {
    return isFree(pBuffer) && pBuffer.hasFormat(pWidth, pHeight, pColorSpace);
  });
  if (best >= 0) ++pool[static_cast<std::size_t>(best)]->fWriteLockCount;
  return best;
}

int OXVisionVideoInput::xLockTheOldestBufferForEditing(const std::int8_t& pCamera) {
  const RealCameraProperties* const camera = xCamera(pCamera);
  if (!camera) return -1;
  const int best = findOldest(camera->fRawBuffers, isFree);
  if (best < 0)
    report::log(ki::log::kError, "xLockTheOldestBufferForEditing",
                getName() + ": error searching for the oldest" +
                    " buffer to edit, please verify that release method has been call.");
  else
    ++camera->fRawBuffers[static_cast<std::size_t>(best)]->fWriteLockCount;
  return best;
}

int OXVisionVideoInput::xLockTheNewestBufferForReading(const std::int8_t& pCamera, int pWidth,
                                                       int pHeight, int pColorSpace) {
  const RealCameraProperties* const camera = xCamera(pCamera);
  if (!camera) return -1;
  const BufferPool& pool = camera->fImageBuffers;
  const int best = findNewest(pool, pool.size(), [&](const OXVisionBuffer& pBuffer) {
    return isReadable(pBuffer) && pBuffer.hasFormat(pWidth, pHeight, pColorSpace);
  });
  if (best >= 0) ++pool[static_cast<std::size_t>(best)]->fReadLockCount;
  return best;
}

int OXVisionVideoInput::xLockTheNewestBufferForReading(const std::int8_t& pCamera) {
  const RealCameraProperties* const camera = xCamera(pCamera);
  if (!camera) return -1;
  const std::size_t count = std::min(camera->fImageBuffers.size(), camera->fRawBuffers.size());
  const int best = findNewest(camera->fRawBuffers, count, isReadable);
  if (best >= 0) ++camera->fRawBuffers[static_cast<std::size_t>(best)]->fReadLockCount;
  return best;
}

OXImage* OXVisionVideoInput::xImageToReformat(int pCamera, int pResolution, int pColorSpace) {
  int width = 0;
  int height = 0;
  setSizeFromResolution(pResolution, width, height);
  const int index =
      xLockTheOldestBufferForEditing(static_cast<std::int8_t>(pCamera), width, height, pColorSpace);
  if (index < 0) return nullptr;
  OXVisionBuffer& buffer = *xCamera(pCamera)->fImageBuffers[static_cast<std::size_t>(index)];
  buffer.fImage->fTimeStamp = 0;
  --buffer.fWriteLockCount;  // the lock is held: nobody can come between
  return buffer.fImage.get();
}

// A buffer goes out of the pool but not at once out of memory: a client of this process that lost
// its image by force may still be reading it. One that is held lives until its last release.
void OXVisionVideoInput::xErase(BufferPool& pPool, int pIndex) {
  if (fRetired.size() >= kRetiredBuffers) fRetired.erase(fRetired.begin());
  const auto position = pPool.begin() + pIndex;
  fRetired.push_back(*position);
  pPool.erase(position);
}

void OXVisionVideoInput::xFindAndEraseTheOldestBuffer(BufferPool& pPool) {
  // Nobody can release while this lock is held, so there is no waiting for a free one.
  int oldest = findOldest(pPool, isFree);
  if (oldest < 0) oldest = findOldest(pPool, [](const OXVisionBuffer&) { return true; });
  if (oldest >= 0) xErase(pPool, oldest);
}

void OXVisionVideoInput::xFindAndEraseTheOldestBuffer(
    BufferPool& pPool, const boost::shared_ptr<VisionModuleInfo>& pInfo) {
  const auto camera = static_cast<std::size_t>(xCurrentCamera(*pInfo));
  if (camera >= pInfo->fRequestedProperties.size()) return;
  const RequestedCameraProperties& wish = *pInfo->fRequestedProperties[camera];
  int width = 0;
  int height = 0;
  setSizeFromResolution(wish.fResolution, width, height);
  const int oldest = findOldest(pPool, [&](const OXVisionBuffer& pBuffer) {
    return isFree(pBuffer) && pBuffer.hasFormat(width, height, wish.fColorSpace);
  });
  if (oldest >= 0)
    xErase(pPool, oldest);
  else
    xFindAndEraseTheOldestBuffer(pPool);
}

void OXVisionVideoInput::xForceReleaseBuffer(const std::string& pName) {
  const auto found = fVisionModules.find(pName);
  if (found == fVisionModules.end()) {
    report::log(ki::log::kError, "xForceReleaseBuffer",
                "xForceReleaseBuffer(" + pName + ") : module " + pName + " unknown!");
    return;
  }
  for (int i = 0; i < fNbCameras; ++i) xReleaseConverted(pName, *found->second, i);
}

void OXVisionVideoInput::xDropReader(int pCamera, OXVisionBuffer& pBuffer) {
  if (--pBuffer.fReadLockCount == 0 && pBuffer.fRawSource) xReturnRawSource(pCamera, pBuffer);
}

}  // namespace OX
