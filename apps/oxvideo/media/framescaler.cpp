// Scaling happens before turning and padding: the library scales best, and a scaled frame is the
// smallest that has to be moved about.
#include "media/framescaler.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "media/ffmpeg.h"
#include "terminal/exitstatus.h"

namespace OX::cli {

namespace {

/// "J" formats imply full range; the scaler wants the plain format and the range separately.
AVPixelFormat plainFormat(int pFormat, bool& pFullRange) {
  pFullRange = true;
  switch (pFormat) {
    case AV_PIX_FMT_YUVJ420P:
      return AV_PIX_FMT_YUV420P;
    case AV_PIX_FMT_YUVJ411P:
      return AV_PIX_FMT_YUV411P;
    case AV_PIX_FMT_YUVJ422P:
      return AV_PIX_FMT_YUV422P;
    case AV_PIX_FMT_YUVJ440P:
      return AV_PIX_FMT_YUV440P;
    case AV_PIX_FMT_YUVJ444P:
      return AV_PIX_FMT_YUV444P;
    default:
      pFullRange = false;
      return static_cast<AVPixelFormat>(pFormat);
  }
}

int colorMatrix(const AVFrame& pFrame) {
  switch (pFrame.colorspace) {
    case AVCOL_SPC_BT709:
      return SWS_CS_ITU709;
    case AVCOL_SPC_FCC:
      return SWS_CS_FCC;
    case AVCOL_SPC_SMPTE240M:
      return SWS_CS_SMPTE240M;
    case AVCOL_SPC_BT2020_NCL:
    case AVCOL_SPC_BT2020_CL:
      return SWS_CS_BT2020;
    case AVCOL_SPC_BT470BG:
    case AVCOL_SPC_SMPTE170M:
      return SWS_CS_ITU601;
    default:
      // Unspecified: players go by the size.
      return pFrame.height >= 720 ? SWS_CS_ITU709 : SWS_CS_ITU601;
  }
}

/// A scaled frame seen upright: maps what is shown to the stored pixel.
struct OrientedFrame {
  const unsigned char* source;
  std::ptrdiff_t sourceStride;
  FrameSize stored;
  Orientation orientation;

  const unsigned char* pixel(int pX, int pY) const {
    return source + pY * sourceStride + (orientation.mirrored ? stored.width - 1 - pX : pX) * 3;
  }

  /// The stored pixel shown at column pX, row pY.
  const unsigned char* shown(int pX, int pY) const {
    switch (orientation.quarterTurns) {
      case 1:
        return pixel(pY, stored.height - 1 - pX);
      case 2:
        return pixel(stored.width - 1 - pX, stored.height - 1 - pY);
      case 3:
        return pixel(stored.width - 1 - pY, pX);
      default:
        return pixel(pX, pY);
    }
  }
};

}  // namespace

FrameSize uprightSize(const AVFrame& pFrame, Orientation pOrientation) {
  if (pOrientation.quarterTurns % 2 != 0) return {pFrame.height, pFrame.width};
  return {pFrame.width, pFrame.height};
}

Placement placeFrame(double pShapeWidth, double pShapeHeight, FrameSize pTarget, Fit pFit) {
  if (pFit == Fit::kStretch) return {0, 0, pTarget};
  const double factor = std::min(pTarget.width / pShapeWidth, pTarget.height / pShapeHeight);
  const auto side = [&](double pShape, int pLimit) {
    return std::clamp(static_cast<int>(std::lround(pShape * factor)), 1, pLimit);
  };
  const FrameSize size{side(pShapeWidth, pTarget.width), side(pShapeHeight, pTarget.height)};
  return {(pTarget.width - size.width) / 2, (pTarget.height - size.height) / 2, size};
}

struct OXFrameScaler::Impl {
  ScalerOwner scaler;
  FrameOwner scaled;

  void prepareTarget(FrameSize pSize);
  void scale(const AVFrame& pFrame, FrameSize pSize);
};

OXFrameScaler::OXFrameScaler() : fImpl(std::make_unique<Impl>()) {}

OXFrameScaler::~OXFrameScaler() = default;

/// Allocated by the library, because its scaler writes whole vectors past the end of a row.
void OXFrameScaler::Impl::prepareTarget(FrameSize pSize) {
  if (scaled && scaled->width == pSize.width && scaled->height == pSize.height) return;
  scaled.reset(av_frame_alloc());
  if (!scaled) throw OXFailure("out of memory");
  scaled->format = AV_PIX_FMT_RGB24;
  scaled->width = pSize.width;
  scaled->height = pSize.height;
  if (av_frame_get_buffer(scaled.get(), 0) < 0) throw OXFailure("out of memory");
}

void OXFrameScaler::Impl::scale(const AVFrame& pFrame, FrameSize pSize) {
  prepareTarget(pSize);
  bool fullRange = false;
  const AVPixelFormat format = plainFormat(pFrame.format, fullRange);
  fullRange = fullRange || pFrame.color_range == AVCOL_RANGE_JPEG;
  // The library trades accuracy of colours for speed unless these flags forbid it.
  // Kept from frame to frame: making one costs more than scaling a small frame. Released first,
  // because the library frees it when it needs another.
  scaler.reset(sws_getCachedContext(scaler.release(), pFrame.width, pFrame.height, format,
                                    pSize.width, pSize.height, AV_PIX_FMT_RGB24,
                                    SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT, nullptr,
                                    nullptr, nullptr));
  if (!scaler) {
    const char* name = av_get_pix_fmt_name(static_cast<AVPixelFormat>(pFrame.format));
    throw OXFailure(fmt::format("can't convert frames of format {} and size {}x{}",
                                name ? name : "unknown", pFrame.width, pFrame.height));
  }
  // RGB is always full range: without this it would keep the range of the source.
  sws_setColorspaceDetails(scaler.get(), sws_getCoefficients(colorMatrix(pFrame)),
                           fullRange ? 1 : 0, sws_getCoefficients(SWS_CS_DEFAULT), 1, 0, 1 << 16,
                           1 << 16);
  sws_scale(scaler.get(), pFrame.data, pFrame.linesize, 0, pFrame.height, scaled->data,
            scaled->linesize);
}

void OXFrameScaler::render(const AVFrame& pFrame, Orientation pOrientation, FrameSize pSize,
                           Fit pFit, std::vector<unsigned char>& pTarget) {
  const bool isSideways = pOrientation.quarterTurns % 2 != 0;
  const AVRational aspect = pFrame.sample_aspect_ratio;
  const double shapeWidth =
      pFrame.width * (aspect.num > 0 && aspect.den > 0 ? av_q2d(aspect) : 1.0);
  const Placement place = isSideways ? placeFrame(pFrame.height, shapeWidth, pSize, pFit)
                                     : placeFrame(shapeWidth, pFrame.height, pSize, pFit);
  const FrameSize stored = isSideways ? FrameSize{place.size.height, place.size.width} : place.size;
  fImpl->scale(pFrame, stored);

  // Black first: padding is whatever the frame does not cover.
  pTarget.assign(static_cast<std::size_t>(pSize.width) * static_cast<std::size_t>(pSize.height) * 3,
                 0);
  const OrientedFrame oriented{fImpl->scaled->data[0], fImpl->scaled->linesize[0], stored,
                               pOrientation};
  const bool isPlain = pOrientation.quarterTurns == 0 && !pOrientation.mirrored;
  for (int y = 0; y < place.size.height; ++y) {
    unsigned char* row = pTarget.data() + (static_cast<std::size_t>(place.top + y) *
                                               static_cast<std::size_t>(pSize.width) +
                                           static_cast<std::size_t>(place.left)) *
                                              3;
    if (isPlain) {
      std::memcpy(row, oriented.pixel(0, y), static_cast<std::size_t>(place.size.width) * 3);
      continue;
    }
    for (int x = 0; x < place.size.width; ++x) std::memcpy(row + x * 3, oriented.shown(x, y), 3);
  }
}

}  // namespace OX::cli
