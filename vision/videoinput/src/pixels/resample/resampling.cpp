// Which source rows make which target rows. Arguments are checked here: the row kernels trust
// theirs.
#include "resampling.h"

#include <cstddef>

#include "pixels/simd/levels.h"
#include "resamplingrows.h"

namespace OX::resampling {
namespace {

using Byte = unsigned char;

const RowKernels& rowKernels() { return kernels::usesPlainLoops() ? plainRows() : vectorRows(); }

// The three steps between the four resolutions. Others have no kernel.
bool isRatio(int pRatio) { return pRatio == 2 || pRatio == 4 || pRatio == 8; }

bool isEmpty(int pWidth, int pHeight) { return pWidth <= 0 || pHeight <= 0; }

}  // namespace

void rgbToYuv422(const Byte* pSource, int pWidth, int pHeight, Byte* pTarget) {
  if (isEmpty(pWidth, pHeight)) return;
  // One long row: a pair may begin on one row and end on the next, if the width is odd.
  const auto pixels = std::ptrdiff_t{pWidth} * pHeight;
  rowKernels().toPairs({.source = pSource,
                        .sourceStride = 0,
                        .target = pTarget,
                        .targetStride = 0,
                        .items = (pixels + 1) / 2,
                        .count = 1});
}

bool subSample(int pRatio, int pWidth, int pHeight, const Byte* pSource, Byte* pTarget) {
  if (!isRatio(pRatio)) return false;
  if (isEmpty(pWidth, pHeight)) return true;
  const std::ptrdiff_t count = pHeight / pRatio;
  // If the ratio does not divide the width, the distance between target rows varies by a pixel.
  const std::ptrdiff_t atOnce = pWidth % pRatio == 0 ? count : 1;
  for (std::ptrdiff_t y = 0; y < count; y += atOnce) {
    rowKernels().down(pRatio, {.source = pSource + 3 * y * pRatio * pWidth,
                               .sourceStride = std::ptrdiff_t{3} * pRatio * pWidth,
                               .target = pTarget + y * pWidth / pRatio * 2,
                               .targetStride = std::ptrdiff_t{2} * (pWidth / pRatio),
                               .items = (pWidth / pRatio + 1) / 2,
                               .count = atOnce});
  }
  return true;
}

bool overSample(int pRatio, int pWidth, int pHeight, const Byte* pSource, Byte* pTarget) {
  if (!isRatio(pRatio)) return false;
  if (isEmpty(pWidth, pHeight)) return true;
  rowKernels().up(pRatio, {.source = pSource,
                           .sourceStride = std::ptrdiff_t{3} * pWidth,
                           .target = pTarget,
                           .targetStride = std::ptrdiff_t{2} * pRatio * pRatio * pWidth,
                           .items = pWidth,
                           .count = pHeight});
  return true;
}

}  // namespace OX::resampling
