// The truth of the resampler: plain loops with no tricks. The vector forms are tested against this
// file bit for bit and hand it what fills no vector.
#include <cstddef>

#include "resampling_rows.h"

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

void pairsRow(const Byte* pSource, Byte* pTarget, std::ptrdiff_t pPairs) {
  for (std::ptrdiff_t i = 0; i < pPairs; ++i) {
    writePair(pSource + 6 * i, pSource + 6 * i + 3, pTarget + 4 * i);
  }
}

void downRow(int pRatio, const Byte* pSource, Byte* pTarget, std::ptrdiff_t pPairs) {
  const Byte* right = pSource + std::ptrdiff_t{3} * (pRatio / 2) * pRatio;
  for (std::ptrdiff_t i = 0; i < pPairs; ++i) {
    writePair(pSource + 6 * pRatio * i, right + 6 * pRatio * i, pTarget + 4 * i);
  }
}

void upRow(int pRatio, const Byte* pSource, Byte* pTarget, std::ptrdiff_t pPixels) {
  const int pairsPerPixel = pRatio / 2;
  for (std::ptrdiff_t i = 0; i < pPixels * pairsPerPixel; ++i) {
    const Byte* pixel = pSource + 3 * (i / pairsPerPixel);
    writePair(pixel, pixel, pTarget + 4 * i);
  }
}

}  // namespace

const RowKernels& plainRows() {
  static constexpr RowKernels kRows = {.toPairs = pairsRow, .down = downRow, .up = upRow};
  return kRows;
}

}  // namespace OX::resampling
