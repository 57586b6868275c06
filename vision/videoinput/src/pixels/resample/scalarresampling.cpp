// The reference of the resampler: plain loops with no tricks. The vector forms are tested against
// this file bit for bit and leave it what fills no vector. The coefficients and the two roundings
// of chroma define what every subscriber sees of a pushed frame.
#include <cstddef>

#include "resamplingrows.h"

namespace OX::resampling {
namespace {

using Byte = unsigned char;

int lumaOf(const Byte* pPixel) {
  return ((66 * pPixel[0] + 129 * pPixel[1] + 25 * pPixel[2] + 128) >> 8) + 16;
}

int blueChromaOf(const Byte* pPixel) {
  return ((-38 * pPixel[0] - 74 * pPixel[1] + 112 * pPixel[2] + 128) >> 8) + 128;
}

int redChromaOf(const Byte* pPixel) {
  return ((112 * pPixel[0] - 94 * pPixel[1] - 18 * pPixel[2] + 128) >> 8) + 128;
}

/// Y U Y V of two pixels; their chroma is the truncated mean of the two rounded values.
void writePair(const Byte* pLeft, const Byte* pRight, Byte* pTarget) {
  pTarget[0] = static_cast<Byte>(lumaOf(pLeft));
  pTarget[1] = static_cast<Byte>((blueChromaOf(pLeft) + blueChromaOf(pRight)) >> 1);
  pTarget[2] = static_cast<Byte>(lumaOf(pRight));
  pTarget[3] = static_cast<Byte>((redChromaOf(pLeft) + redChromaOf(pRight)) >> 1);
}

/// Calls pConvert(source, target) for each row.
template <typename Convert>
void forEachRow(const Rows& pRows, Convert pConvert) {
  for (std::ptrdiff_t y = 0; y < pRows.count; ++y) {
    pConvert(pRows.source + pRows.sourceStride * y, pRows.target + pRows.targetStride * y);
  }
}

void rowsToPairs(const Rows& pRows) {
  forEachRow(pRows, [pairs = pRows.items](const Byte* in, Byte* out) {
    for (std::ptrdiff_t i = 0; i < pairs; ++i) writePair(in + 6 * i, in + 6 * i + 3, out + 4 * i);
  });
}

void rowsDown(int pRatio, const Rows& pRows) {
  const std::ptrdiff_t toRight = std::ptrdiff_t{3} * (pRatio / 2) * pRatio;
  forEachRow(pRows, [=, pairs = pRows.items](const Byte* in, Byte* out) {
    for (std::ptrdiff_t i = 0; i < pairs; ++i) {
      const Byte* const left = in + 6 * pRatio * i;
      writePair(left, left + toRight, out + 4 * i);
    }
  });
}

void rowsUp(int pRatio, const Rows& pRows) {
  const int pairsPerPixel = pRatio / 2;
  forEachRow(pRows, [=, pixels = pRows.items](const Byte* in, Byte* out) {
    for (std::ptrdiff_t i = 0; i < pixels * pairsPerPixel; ++i) {
      const Byte* const pixel = in + 3 * (i / pairsPerPixel);
      writePair(pixel, pixel, out + 4 * i);
    }
    repeatRow(out, 2 * pRatio * pixels, pRatio);
  });
}

}  // namespace

const RowKernels& plainRows() {
  static constexpr RowKernels kRows = {.toPairs = rowsToPairs, .down = rowsDown, .up = rowsUp};
  return kRows;
}

}  // namespace OX::resampling
