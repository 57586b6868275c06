// Converts a raw frame to the format of one subscriber, in a buffer of the pool. The pixels are
// converted while the device's lock is paused: the buffer is locked for writing meanwhile, and the
// raw frame is held by the caller or pinned. Whoever wants the same frame in the same format waits
// for that conversion and shares its result. Sizes are checked here, since the kernels trust their
// caller.
#include <algorithm>
#include <array>
#include <chrono>

#include <oxframework/oxdefinitions.h>
#include <oxframework/oxlog.h>
#include "buffers/lending.h"
#include "claim.h"
#include "frames/framerequest.h"
#include "oxvisionvideoinput.h"
#include "pixels/colour/kernels.h"

namespace OX {
namespace {

// A conversion takes milliseconds. Whoever has waited this long for another one's begins its own.
constexpr std::chrono::seconds kLongestConversion(1);

void runKernel(decltype(&kernels::yuv422ToYuv) pKernel, const OXImage* pSource,
               OXImage* pDestination) {
  pKernel(pSource->fData, pSource->fWidth, pDestination->fData, pDestination->fWidth,
          pDestination->fHeight);
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

// What a converted image has from its frame, besides the pixels and the time stamp.
void describe(OXImage& pImage, const OXImage& pFrame) {
  pImage.fCameraId = pFrame.fCameraId;
  pImage.fLeftAngle = pFrame.fLeftAngle;
  pImage.fTopAngle = pFrame.fTopAngle;
  pImage.fRightAngle = pFrame.fRightAngle;
  pImage.fBottomAngle = pFrame.fBottomAngle;
}

}  // namespace

/// A buffer that is being converted into. Whatever ends the conversion, others can use the buffer
/// again and those who wait for its result are woken.
class OXVisionVideoInput::ConversionScope {
 public:
  ConversionScope(RealCameraProperties& pCamera, OXVisionBuffer& pBuffer, const void* pSource,
                  const FrameMark& pMark)
      : fCamera(pCamera), fBuffer(pBuffer) {
    fBuffer.fContent = ++fCamera.fConversionCount;
    fBuffer.fConvertedFrom = pSource;
    fBuffer.fFrame = pMark;
  }
  ~ConversionScope() {
    if (!fIsDone) fBuffer.fContent = 0;
    if (!fIsDone || !fIsFrame) fBuffer.fFrame = {};
    --fBuffer.fWriteLockCount;
    fCamera.fConversionEnded.notify();
  }
  ConversionScope(const ConversionScope&) = delete;
  ConversionScope& operator=(const ConversionScope&) = delete;

  /// Without pIsFrame the pixels are not those of the frame, although the request is answered with
  /// them.
  void setDone(bool pIsFrame) {
    fIsDone = true;
    fIsFrame = pIsFrame;
  }

 private:
  RealCameraProperties& fCamera;
  OXVisionBuffer& fBuffer;
  bool fIsDone = false;
  bool fIsFrame = false;
};

// The read count that the result will be lent with is raised at once: nobody begins the next
// conversion in the buffer before this thread has woken.
OXVisionVideoInput::BufferPtr OXVisionVideoInput::xAwaitConversion(RealCameraProperties& pCamera,
                                                                   BufferPtr pBuffer) {
  const std::uint64_t conversion = pBuffer->fContent;
  const auto deadline = std::chrono::steady_clock::now() + kLongestConversion;
  ++pBuffer->fReadLockCount;
  while (pBuffer->fWriteLockCount > 0) {
    const auto left = deadline - std::chrono::steady_clock::now();
    if (left <= left.zero()) break;
    const std::uint64_t seen = pCamera.fConversionEnded.count();
    const OXCriticalSectionPause pause(fVisionModulesLock);
    pCamera.fConversionEnded.wait(seen,
                                  std::chrono::duration_cast<std::chrono::microseconds>(left));
  }
  if (pBuffer->fWriteLockCount == 0 && pBuffer->fContent == conversion) return pBuffer;
  --pBuffer->fReadLockCount;
  return {};
}

OXVisionVideoInput::BufferPtr OXVisionVideoInput::xJoinConversion(const Claim& pClaim,
                                                                  const OXImage& pRawImage,
                                                                  const void* pSource) {
  if (pRawImage.fColorSpace != kYUV422) return {};
  BufferPtr buffer = xFindConversionUnderWay(pClaim, [&](const OXVisionBuffer& pBuffer) {
    return pBuffer.fConvertedFrom == pSource && pBuffer.fImage->fTimeStamp == pRawImage.fTimeStamp;
  });
  return buffer ? xAwaitConversion(pClaim.camera, std::move(buffer)) : BufferPtr();
}

OXVisionVideoInput::BufferPtr OXVisionVideoInput::xConvertImage(const Claim& pClaim,
                                                                const OXImage& pRawImage,
                                                                const void* pSource,
                                                                const FrameMark& pMark) {
  // The fields too: a change of the camera's resolution writes to those of lent raw images.
  const OXImage raw(pRawImage, OXImage::ViewTag());
  if (BufferPtr shared = xJoinConversion(pClaim, raw, pSource)) {
    if (pClaim.subscriber->fIsRecording) xRecord(pClaim.subscriber, raw, true);
    return shared;
  }
  BufferPtr buffer = xLockBufferForConversion(pClaim);
  if (!buffer) return {};
  ConversionScope conversion(pClaim.camera, *buffer, pSource, pMark);
  OXImage& image = *buffer->fImage;
  image.fTimeStamp = raw.fTimeStamp;
  // Here, so that a request that is answered by a shared image records nothing.
  if (pClaim.subscriber->fIsRecording) xRecord(pClaim.subscriber, raw, true);
  // A raw image of another colour space is not converted: the old pixels get the new time stamp.
  bool isConverted = false;
  if (raw.fColorSpace == kYUV422) {
    const int colorSpace = pClaim.wish.fColorSpace;
    const OXCriticalSectionPause pause(fVisionModulesLock);
    isConverted = xConvertPixels(raw, image, colorSpace);
  }
  describe(image, raw);
  ++buffer->fReadLockCount;
  conversion.setDone(isConverted);
  return buffer;
}

OXVisionVideoInput::BufferPtr OXVisionVideoInput::xConvertFrame(const FrameRequest& pRequest,
                                                                const LentFrame& pFrame) {
  if (pFrame.image->fColorSpace != kYUV422) {
    xLogNoConversion(*pFrame.image);
    return {};
  }
  BufferPtr buffer = xLockBufferForFrame(pRequest);
  if (!buffer) return {};
  ConversionScope conversion(pRequest.record, *buffer, pFrame.source.get(), pFrame.mark);
  OXImage& image = *buffer->fImage;
  image.fTimeStamp = pFrame.image->fTimeStamp;
  bool isConverted = false;
  {
    const OXCriticalSectionPause pause(fVisionModulesLock);
    isConverted = xConvertPixels(*pFrame.image, image, pRequest.format.colorSpace);
  }
  describe(image, *pFrame.image);
  if (!isConverted) {
    image.fTimeStamp = 0;  // old pixels, which nobody may take for a young image
    return {};
  }
  xCountLent(*buffer);
  conversion.setDone(true);
  return buffer;
}

bool OXVisionVideoInput::xConvertInto(const FrameRequest& pRequest, const LentFrame& pFrame,
                                      OXImage& pTarget) {
  if (pFrame.image->fColorSpace != kYUV422) {
    xLogNoConversion(*pFrame.image);
    return false;
  }
  ++pRequest.record.fConversionCount;
  describe(pTarget, *pFrame.image);
  pTarget.fTimeStamp = pFrame.image->fTimeStamp;
  const OXCriticalSectionPause pause(fVisionModulesLock);
  return xConvertPixels(*pFrame.image, pTarget, pRequest.format.colorSpace);
}

void OXVisionVideoInput::xLogNoConversion(const OXImage& pRawImage) const {
  report::log(
      ki::log::kError, "take",
      report::text("Frames of colour space ", pRawImage.fColorSpace, " can't be converted: only ",
                   int{kYUV422}, " can; take the raw frames instead"));
}

OXVisionVideoInput::BufferPtr OXVisionVideoInput::xConvertHeldImage(const Claim& pClaim,
                                                                    const OXImage& pRawImage) {
  for (int i = 0; i < fNbCameras; ++i) {
    const BufferPtr& held = pClaim.subscriber->wish(i).fLockedImage;
    if (!held || held->fImage.get() != &pRawImage) continue;
    OXImage asLent(pRawImage, OXImage::ViewTag());
    asLent.fWidth = held->fLentWidth;
    asLent.fHeight = held->fLentHeight;
    return xConvertImage(pClaim, asLent, held->fRawSource.get(), held->fFrame);
  }
  // Lent by a camera that keeps counts of its own.
  return xConvertImage(pClaim, pRawImage, &pRawImage, {});
}

struct OXVisionVideoInput::ColorKernel {
  int colorSpace;
  void (*convert)(const OXImage* pSource, OXImage* pDestination);
  bool passFirst;  ///< read the frame once from start to end before the kernel does
  bool isWhole;    ///< every pixel of the destination is written: not so of kHsy, on purpose
};

void OXVisionVideoInput::xYUV422toYuv(const OXImage* pSource, OXImage* pDestination) {
  runKernel(kernels::yuv422ToYuv, pSource, pDestination);
}

void OXVisionVideoInput::xYUV422toHsy(const OXImage* pSource, OXImage* pDestination) {
  runKernel(kernels::yuv422ToHsy, pSource, pDestination);
}

void OXVisionVideoInput::xYUV422toYUV422(const OXImage* pSource, OXImage* pDestination) {
  runKernel(kernels::yuv422ToYUV422, pSource, pDestination);
}

void OXVisionVideoInput::xYUV422toYUV(const OXImage* pSource, OXImage* pDestination) {
  runKernel(kernels::yuv422ToYUV, pSource, pDestination);
}

void OXVisionVideoInput::xYUV422toRGB(const OXImage* pSource, OXImage* pDestination) {
  runKernel(kernels::yuv422ToRGB, pSource, pDestination);
}

void OXVisionVideoInput::xYUV422toHSY(const OXImage* pSource, OXImage* pDestination) {
  runKernel(kernels::yuv422ToHSY, pSource, pDestination);
}

void OXVisionVideoInput::xYUV422toBGR(const OXImage* pSource, OXImage* pDestination) {
  runKernel(kernels::yuv422ToBGR, pSource, pDestination);
}

void OXVisionVideoInput::xYUV422toYYCbCr(const OXImage* pSource, OXImage* pDestination) {
  runKernel(kernels::yuv422ToYYCbCr, pSource, pDestination);
}

void OXVisionVideoInput::xYUV422toH2RGB(const OXImage* pSource, OXImage* pDestination) {
  runKernel(kernels::yuv422ToH2RGB, pSource, pDestination);
}

void OXVisionVideoInput::xYUV422toHSMixed(const OXImage* pSource, OXImage* pDestination) {
  runKernel(kernels::yuv422ToHSMixed, pSource, pDestination);
}

const OXVisionVideoInput::ColorKernel* OXVisionVideoInput::xFindKernel(int pColorSpace) {
  static constexpr std::array<ColorKernel, 10> kKernels{{
      {kYuv, xYUV422toYuv, false, true},
      {kHsy, xYUV422toHsy, true, false},
      {kYUV422, xYUV422toYUV422, false, true},
      {kYUV, xYUV422toYUV, true, true},
      {kRGB, xYUV422toRGB, true, true},
      {kHSY, xYUV422toHSY, true, true},
      {kBGR, xYUV422toBGR, true, true},
      {kYYCbCr, xYUV422toYYCbCr, true, true},
      {kH2RGB, xYUV422toH2RGB, true, true},
      {kHSMixed, xYUV422toHSMixed, true, true},
  }};
  for (const ColorKernel& kernel : kKernels)
    if (kernel.colorSpace == pColorSpace) return &kernel;
  return nullptr;
}

bool OXVisionVideoInput::xFillsImage(int pColorSpace) {
  const ColorKernel* const kernel = xFindKernel(pColorSpace);
  return kernel && kernel->isWhole;
}

bool OXVisionVideoInput::xConvertPixels(const OXImage& pRawImage, OXImage& pDestination,
                                        int pColorSpace) {
  const ColorKernel* const kernel = xFindKernel(pColorSpace);
  if (!kernel) {
    report::log(ki::log::kError, "xConvertImage", "Unknown colorSpace required");
    return false;
  }
  // Images of size -1 x -1 have nothing to convert.
  if (!pRawImage.fData || pRawImage.getSizeBytes() == 0 || pDestination.getSizeBytes() == 0)
    return false;
  if (sourceBytes(pRawImage, pDestination) > pRawImage.fCapacityBytes) {
    report::log(
        ki::log::kError, "xConvertImage",
        report::text("A raw image of ", pRawImage.fWidth, " x ", pRawImage.fHeight,
                     " can't be converted to ", pDestination.fWidth, " x ", pDestination.fHeight));
    return false;
  }
  const OXDurationScope duration(fStages.convert);
  if (kernel->passFirst) xApplyPatchForKernelMemcopy(&pRawImage);
  kernel->convert(&pRawImage, &pDestination);
  return true;
}

// One sequential pass over the frame, which a hardware source keeps in a kernel buffer that is slow
// to read in small pieces. Never beyond the storage, whatever size the image claims.
void OXVisionVideoInput::xApplyPatchForKernelMemcopy(const OXImage* pSource) {
  constexpr std::size_t kBytesPerPixel = 2;
  const std::size_t pixels = static_cast<std::size_t>(std::max(pSource->fWidth, 0)) *
                             static_cast<std::size_t>(std::max(pSource->fHeight, 0));
  unsigned char scratch[kernels::kTouchScratchBytes];
  kernels::touchFrame(pSource->fData, std::min(kBytesPerPixel * pixels, pSource->fCapacityBytes),
                      scratch);
}

}  // namespace OX
