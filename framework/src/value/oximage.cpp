// Images own pages and not heap blocks: a buffer is made for the largest format there is, and costs
// only the pages that are touched.
#include <oxframework/oximage.h>

#include <sys/mman.h>

#include <algorithm>
#include <new>

#include <oxframework/oxdefinitions.h>

namespace OX {
namespace {

std::size_t formatBytes(int pWidth, int pHeight, int pLayers) {
  if (pWidth <= 0 || pHeight <= 0 || pLayers <= 0) return 0;
  return static_cast<std::size_t>(pWidth) * static_cast<std::size_t>(pHeight) *
         static_cast<std::size_t>(pLayers);
}

}  // namespace

OXImage::OXImage(int pResolution, int pColorSpace, bool pDataAreExternal, float pLeftAngle,
                 float pTopAngle, float pRightAngle, float pBottomAngle)
    : fNbLayers(getLayersFromColorSpace(pColorSpace)),
      fColorSpace(pColorSpace),
      fLeftAngle(pLeftAngle),
      fTopAngle(pTopAngle),
      fRightAngle(pRightAngle),
      fBottomAngle(pBottomAngle),
      fDataAreExternal(pDataAreExternal) {
  setSizeFromResolution(pResolution, fWidth, fHeight);
  xAllocate();
}

OXImage::OXImage(int pWidth, int pHeight, int pColorSpace, bool pDataAreExternal, float pLeftAngle,
                 float pTopAngle, float pRightAngle, float pBottomAngle)
    : fWidth(pWidth),
      fHeight(pHeight),
      fNbLayers(getLayersFromColorSpace(pColorSpace)),
      fColorSpace(pColorSpace),
      fLeftAngle(pLeftAngle),
      fTopAngle(pTopAngle),
      fRightAngle(pRightAngle),
      fBottomAngle(pBottomAngle),
      fDataAreExternal(pDataAreExternal) {
  // As for an unknown resolution, so that callers check one thing.
  if (fWidth < 0 || fHeight < 0) fWidth = fHeight = -1;
  xAllocate();
}

OXImage::OXImage(const OXImage& pOther, ViewTag)
    : fWidth(pOther.fWidth),
      fHeight(pOther.fHeight),
      fNbLayers(pOther.fNbLayers),
      fColorSpace(pOther.fColorSpace),
      fTimeStamp(pOther.fTimeStamp),
      fData(pOther.fData),
      fCameraId(pOther.fCameraId),
      fLeftAngle(pOther.fLeftAngle),
      fTopAngle(pOther.fTopAngle),
      fRightAngle(pOther.fRightAngle),
      fBottomAngle(pOther.fBottomAngle),
      fCapacityBytes(pOther.fCapacityBytes),
      fDataAreExternal(true) {}

OXImage::~OXImage() {
  if (!fDataAreExternal && fData) ::munmap(fData, fCapacityBytes);
}

void OXImage::xAllocate() {
  const std::size_t size = formatBytes(fWidth, fHeight, fNbLayers);
  if (fDataAreExternal || size == 0) return;
  // Fresh pages from the kernel are zero and are committed when first touched. The heap would
  // recycle blocks, and would have to touch every page to clear the previous content.
  void* const pages =
      ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (pages == MAP_FAILED) throw std::bad_alloc();
  fData = static_cast<unsigned char*>(pages);
  fCapacityBytes = size;
}

void OXImage::setResolution(int pResolution) {
  setSizeFromResolution(pResolution, fWidth, fHeight);
}

void OXImage::setColorSpace(int pColorSpace) {
  fColorSpace = pColorSpace;
  fNbLayers = getLayersFromColorSpace(pColorSpace);
}

void OXImage::setExternalData(unsigned char* pData, std::size_t pCapacityBytes) {
  if (!fDataAreExternal) return;
  fData = pData;
  fCapacityBytes = pData ? pCapacityBytes : 0;
}

std::size_t OXImage::getSizeBytes() const {
  // Never beyond the memory, though a later format may be larger than what was allocated.
  return fData ? std::min(formatBytes(fWidth, fHeight, fNbLayers), fCapacityBytes) : 0;
}

OXValue OXImage::toOXValue() const {
  const auto stamp = static_cast<std::uint64_t>(fTimeStamp);
  OXValue pixels;
  pixels.SetBinary(fData, static_cast<int>(getSizeBytes()));
  return OXValue::array(fWidth, fHeight, fNbLayers, fColorSpace,
                        // Two ints: values have no integer of 64 bits.
                        static_cast<int>(static_cast<std::uint32_t>(stamp >> 32)),
                        static_cast<int>(static_cast<std::uint32_t>(stamp)), std::move(pixels),
                        static_cast<int>(fCameraId), fLeftAngle, fTopAngle, fRightAngle,
                        fBottomAngle);
}

std::pair<std::int64_t, std::int64_t> getTimeStamp(const OXImage& pImage) {
  constexpr std::int64_t kMicrosPerSecond = 1000000;
  return {pImage.fTimeStamp / kMicrosPerSecond, pImage.fTimeStamp % kMicrosPerSecond};
}

}  // namespace OX
