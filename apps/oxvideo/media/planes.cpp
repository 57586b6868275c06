// Plain copies between layouts. Nothing here computes a colour, so an export can be lossless.
#include "media/planes.h"

#include <oxframework/oxdefinitions.h>
#include "media/picture.h"
#include "terminal/exitstatus.h"

namespace OX::cli {

namespace {

/// Calls pCopy(source row, row number) for each row.
template <typename Copy>
void eachRow(const unsigned char* pSource, int pRowBytes, int pRows, Copy pCopy) {
  for (int y = 0; y < pRows; ++y) pCopy(pSource + std::ptrdiff_t{y} * pRowBytes, y);
}

unsigned char* rowOf(AVFrame& pFrame, int pPlane, int pRow) {
  return pFrame.data[pPlane] + std::ptrdiff_t{pRow} * pFrame.linesize[pPlane];
}

/// Offsets of both lumas, U and V in a macro-pixel.
struct Pair {
  int firstY, secondY, u, v;
};

/// Widths are even: newFrame() refuses others.
void fillPairs(const CameraImage& pImage, const Pair& pPair, AVFrame& pFrame) {
  eachRow(pImage.pixels, pImage.width * 2, pImage.height, [&](const unsigned char* pRow, int pY) {
    unsigned char* y = rowOf(pFrame, 0, pY);
    unsigned char* u = rowOf(pFrame, 1, pY);
    unsigned char* v = rowOf(pFrame, 2, pY);
    for (int i = 0; i < pImage.width / 2; ++i, pRow += 4) {
      y[2 * i] = pRow[pPair.firstY];
      y[2 * i + 1] = pRow[pPair.secondY];
      u[i] = pRow[pPair.u];
      v[i] = pRow[pPair.v];
    }
  });
}

void fillTriples(const CameraImage& pImage, AVFrame& pFrame) {
  eachRow(pImage.pixels, pImage.width * 3, pImage.height, [&](const unsigned char* pRow, int pY) {
    for (int x = 0; x < pImage.width; ++x)
      for (int plane = 0; plane < 3; ++plane) rowOf(pFrame, plane, pY)[x] = *pRow++;
  });
}

void fillGrey(const CameraImage& pImage, AVFrame& pFrame) {
  eachRow(pImage.pixels, pImage.width, pImage.height, [&](const unsigned char* pRow, int pY) {
    std::copy(pRow, pRow + pImage.width, rowOf(pFrame, 0, pY));
  });
}

void fillColors(const Picture& pPicture, AVFrame& pFrame) {
  eachRow(pPicture.rgb.data(), pPicture.width * 3, pPicture.height,
          [&](const unsigned char* pRow, int pY) {
            unsigned char* to = rowOf(pFrame, 0, pY);
            for (int x = 0; x < pPicture.width; ++x, pRow += 3, to += 4) {
              to[0] = pRow[2];
              to[1] = pRow[1];
              to[2] = pRow[0];
              // Padding; opaque, in case a reader takes it for alpha.
              to[3] = 255;
            }
          });
}

}  // namespace

AVPixelFormat losslessFormat(int pColorSpace) {
  switch (pColorSpace) {
    case kYUV422:
    case kYYCbCr:
      return AV_PIX_FMT_YUV422P;
    case kYUV:
      return AV_PIX_FMT_YUV444P;
    case kYuv:
      return AV_PIX_FMT_GRAY8;
    default:
      // RGB, and all that is shown as RGB: FFV1 takes 24-bit colours only with a padding byte.
      return AV_PIX_FMT_BGR0;
  }
}

FrameOwner newFrame(int pWidth, int pHeight, int pColorSpace) {
  FrameOwner frame(av_frame_alloc());
  if (!frame) throw OXFailure("out of memory");
  frame->format = losslessFormat(pColorSpace);
  if (frame->format == AV_PIX_FMT_YUV422P && pWidth % 2 != 0)
    throw OXFailure("frames whose pixels share chroma in pairs can't have an odd width");
  frame->width = pWidth;
  frame->height = pHeight;
  // The matrix and range that the formulas of the cameras use.
  if (frame->format == AV_PIX_FMT_YUV422P || frame->format == AV_PIX_FMT_YUV444P) {
    frame->colorspace = AVCOL_SPC_SMPTE170M;
    frame->color_range = AVCOL_RANGE_MPEG;
  }
  if (av_frame_get_buffer(frame.get(), 0) < 0)
    throw OXFailure("can't allocate a frame of " + std::to_string(pWidth) + " x " +
                    std::to_string(pHeight) + " pixels");
  return frame;
}

void fillFrame(const CameraImage& pImage, AVFrame& pFrame) {
  switch (pImage.colorSpace) {
    case kYUV422:
      return fillPairs(pImage, {0, 2, 1, 3}, pFrame);
    case kYYCbCr:
      return fillPairs(pImage, {0, 1, 2, 3}, pFrame);
    case kYUV:
      return fillTriples(pImage, pFrame);
    case kYuv:
      return fillGrey(pImage, pFrame);
    default:
      return fillColors(toPicture(pImage), pFrame);
  }
}

}  // namespace OX::cli
