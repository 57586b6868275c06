// Walks the resampler's row kernels over a frame.
#include "resampling.h"

#include <cstddef>
#include <cstring>

#include "oxvisionvideoinput/kernels/levels.h"
#include "resampling_rows.h"

namespace OX::resampling {
namespace {

using Byte = unsigned char;

const RowKernels& rowKernels() { return kernels::usesPlainLoops() ? plainRows() : vectorRows(); }

bool isRatio(int pRatio) { return pRatio == 2 || pRatio == 4 || pRatio == 8; }

bool isEmpty(int pWidth, int pHeight) { return pWidth <= 0 || pHeight <= 0; }

}  // namespace

void rgbToYuv422(const Byte* pSource, int pWidth, int pHeight, Byte* pTarget) {
  if (isEmpty(pWidth, pHeight)) return;
  const auto pixels = std::ptrdiff_t{pWidth} * pHeight;
  rowKernels().toPairs(pSource, pTarget, (pixels + 1) / 2);
}

bool subSample(int pRatio, int pWidth, int pHeight, const Byte* pSource, Byte* pTarget) {
  if (!isRatio(pRatio)) return false;
  if (isEmpty(pWidth, pHeight)) return true;
  const int pairs = (pWidth / pRatio + 1) / 2;
  for (std::ptrdiff_t y = 0; y < pHeight / pRatio; ++y) {
    rowKernels().down(pRatio, pSource + 3 * y * pRatio * pWidth, pTarget + y * pWidth / pRatio * 2,
                      pairs);
  }
  return true;
}

bool overSample(int pRatio, int pWidth, int pHeight, const Byte* pSource, Byte* pTarget) {
  if (!isRatio(pRatio)) return false;
  if (isEmpty(pWidth, pHeight)) return true;
  const std::ptrdiff_t rowBytes = std::ptrdiff_t{2} * pRatio * pWidth;
  for (std::ptrdiff_t y = 0; y < pHeight; ++y) {
    Byte* block = pTarget + y * pRatio * rowBytes;
    rowKernels().up(pRatio, pSource + 3 * y * pWidth, block, pWidth);
    for (int rows = 1; rows < pRatio; rows *= 2) {
      std::memcpy(block + rows * rowBytes, block, rows * rowBytes);
    }
  }
  return true;
}

}  // namespace OX::resampling
