// Converts a raw frame to the format of one subscriber, in a buffer of the pool. Runs under the
// lock of the request. Sizes are checked here, since the kernels trust their caller.
#include <algorithm>
#include <array>

#include <oxframework/oxdefinitions.h>
#include <oxframework/oxlog.h>
#include "claim.h"
#include "oxvisionvideoinput.h"
#include "pixels/colour/kernels.h"

namespace OX {
namespace {

struct Conversion {
  int colorSpace;
  decltype(&kernels::yuv422ToYuv) kernel;
  bool passFirst;  ///< read the frame once from start to end before the kernel does
};

constexpr std::array<Conversion, 10> kConversions{{
    {kYuv, &kernels::yuv422ToYuv, false},
    {kHsy, &kernels::yuv422ToHsy, true},
    {kYUV422, &kernels::yuv422ToYUV422, false},
    {kYUV, &kernels::yuv422ToYUV, true},
    {kRGB, &kernels::yuv422ToRGB, true},
    {kHSY, &kernels::yuv422ToHSY, true},
    {kBGR, &kernels::yuv422ToBGR, true},
    {kYYCbCr, &kernels::yuv422ToYYCbCr, true},
    {kH2RGB, &kernels::yuv422ToH2RGB, true},
    {kHSMixed, &kernels::yuv422ToHSMixed, true},
}};

const Conversion* findConversion(int pColorSpace) {
  for (const Conversion& conversion : kConversions)
    if (conversion.colorSpace == pColorSpace) return &conversion;
  return nullptr;
}

// Bytes of the source that a kernel may read: it takes every step-th row and trusts that the source
// has them. One macro-pixel if the source is narrower than the destination.
std::size_t sourceBytes(const OXImage& pRawImage, const OXImage& pDestination) {
  constexpr std::size_t kMacroPixelBytes = 4;
  const auto width = static_cast<std::size_t>(pRawImage.fWidth);
  const std::size_t step = width / static_cast<std::size_t>(pDestination.fWidth);
  const auto rows = static_cast<std::size_t>(pDestination.fHeight) * step;
  return std::max(rows * width * 2, kMacroPixelBytes);
}

}  // namespace

OXVisionVideoInput::BufferPtr OXVisionVideoInput::xConvertImage(const Claim& pClaim,
                                                                const OXImage& pRawImage) {
  BufferPtr buffer = xLockBufferForConversion(pClaim);
  if (!buffer) return {};
  // Here, so that a request that is answered by a shared image records nothing.
  if (pClaim.subscriber->fIsRecording) xRecord(pClaim.subscriber, pRawImage, true);
  OXImage& image = *buffer->fImage;
  // A raw image of another colour space is not converted: the old pixels get the new time stamp.
  if (pRawImage.fColorSpace == kYUV422) xConvertPixels(pRawImage, image, pClaim.wish.fColorSpace);
  image.fTimeStamp = pRawImage.fTimeStamp;
  image.fCameraId = pRawImage.fCameraId;
  image.fLeftAngle = pRawImage.fLeftAngle;
  image.fTopAngle = pRawImage.fTopAngle;
  image.fRightAngle = pRawImage.fRightAngle;
  image.fBottomAngle = pRawImage.fBottomAngle;
  ++buffer->fReadLockCount;
  --buffer->fWriteLockCount;
  return buffer;
}

void OXVisionVideoInput::xConvertPixels(const OXImage& pRawImage, OXImage& pDestination,
                                        int pColorSpace) {
  const Conversion* const conversion = findConversion(pColorSpace);
  if (!conversion) {
    report::log(ki::log::kError, "xConvertImage", "Unknown colorSpace required");
    return;
  }
  // Images of size -1 x -1 have nothing to convert.
  if (!pRawImage.fData || pRawImage.getSizeBytes() == 0 || pDestination.getSizeBytes() == 0) return;
  if (sourceBytes(pRawImage, pDestination) > pRawImage.fCapacityBytes) {
    report::log(
        ki::log::kError, "xConvertImage",
        report::text("A raw image of ", pRawImage.fWidth, " x ", pRawImage.fHeight,
                     " can't be converted to ", pDestination.fWidth, " x ", pDestination.fHeight));
    return;
  }
  if (conversion->passFirst) xApplyPatchForKernelMemcopy(&pRawImage);
  conversion->kernel(pRawImage.fData, pRawImage.fWidth, pDestination.fData, pDestination.fWidth,
                     pDestination.fHeight);
}

// One sequential pass over the frame, which a hardware source keeps in a kernel buffer that is slow
// to read in small pieces. Never beyond the storage, whatever size the image claims.
void OXVisionVideoInput::xApplyPatchForKernelMemcopy(const OXImage* pSource) {
  constexpr std::size_t kBytesPerPixel = 2;
  const std::size_t pixels = static_cast<std::size_t>(std::max(pSource->fWidth, 0)) *
                             static_cast<std::size_t>(std::max(pSource->fHeight, 0));
  kernels::touchFrame(pSource->fData, std::min(kBytesPerPixel * pixels, pSource->fCapacityBytes),
                      fCopyBuffer.get());
}

}  // namespace OX
