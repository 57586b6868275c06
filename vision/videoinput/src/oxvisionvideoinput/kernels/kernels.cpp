// Walks the row kernels over a frame: which source bytes make which destination row.
#include "kernels.h"

#include <algorithm>
#include <cstring>

#include "levels.h"
#include "rows.h"

namespace OX::kernels {
namespace {

using Byte = unsigned char;

/// Where the rows of one conversion lie.
struct Walk {
  std::ptrdiff_t step;         ///< source pixels per destination pixel
  std::ptrdiff_t macroPixels;  ///< to convert in each row
  std::ptrdiff_t rows;         ///< to convert
  std::ptrdiff_t sourceRow;    ///< source bytes from one row to the next that is used
  std::ptrdiff_t bytesPerRow;  ///< destination bytes written for a row, and from row to row
};

const RowKernels& rowKernels() { return usesPlainLoops() ? plainRows() : vectorRows(); }

bool isEmpty(int pWidth, int pHeight) { return pWidth <= 0 || pHeight <= 0; }

/// The walk that all colour spaces share but those that say otherwise.
Walk usualWalk(int pSourceWidth, int pWidth, int pHeight, int pBytesPerMacroPixel) {
  const std::ptrdiff_t step = std::max(pSourceWidth, 0) / pWidth;
  const std::ptrdiff_t macroPixels = pWidth / 2 + pWidth % 2;
  return {step, macroPixels, pHeight, 2 * step * step * pWidth, pBytesPerMacroPixel * macroPixels};
}

void convert(Walk pWalk, RowKernel* pRow, const Byte* pSource, Byte* pDestination) {
  const bool hasGaps = pWalk.step != 1 || pWalk.sourceRow != 4 * pWalk.macroPixels;
  if (!hasGaps) {
    pWalk.macroPixels *= pWalk.rows;
    pWalk.rows = 1;
  }
  for (std::ptrdiff_t y = 0; y < pWalk.rows; ++y) {
    pRow(pSource + y * pWalk.sourceRow, pWalk.step, pDestination + y * pWalk.bytesPerRow,
         pWalk.macroPixels);
  }
}

void convertUsual(RowKernel* pRow, int pBytesPerMacroPixel, const Byte* pSource, int pSourceWidth,
                  Byte* pDestination, int pWidth, int pHeight) {
  if (isEmpty(pWidth, pHeight)) return;
  convert(usualWalk(pSourceWidth, pWidth, pHeight, pBytesPerMacroPixel), pRow, pSource,
          pDestination);
}

/// Tells the compiler that pData is read here, so that writes to it must happen.
void keep(const Byte* pData) { asm volatile("" : : "r"(pData) : "memory"); }

}  // namespace

void yuv422ToYuv(const Byte* pSource, int pSourceWidth, Byte* pDestination, int pWidth,
                 int pHeight) {
  convertUsual(rowKernels().toYuv, 2, pSource, pSourceWidth, pDestination, pWidth, pHeight);
}

void yuv422ToHsy(const Byte* pSource, int pSourceWidth, Byte* pDestination, int pWidth,
                 int pHeight) {
  if (isEmpty(pWidth, pHeight)) return;
  const Walk walk = usualWalk(pSourceWidth, pWidth, pHeight, 2);
  // Each row overwrites the one before and the caller holds the image: only the last can be seen.
  const std::ptrdiff_t lastRow = walk.sourceRow / 2 * (pHeight - 1);
  rowKernels().toHsy(pSource + lastRow, walk.step, pDestination, walk.macroPixels);
}

void yuv422ToYUV422(const Byte* pSource, int pSourceWidth, Byte* pDestination, int pWidth,
                    int pHeight) {
  if (isEmpty(pWidth, pHeight)) return;
  Walk walk = usualWalk(pSourceWidth, pWidth, pHeight, 4);
  if (walk.step == 1) {
    const std::size_t words = static_cast<std::size_t>(pWidth) * pHeight / 4;
    std::memcpy(pDestination, pSource, 8 * std::max(words, std::size_t{1}));
    return;
  }
  walk.macroPixels = pWidth / 2;
  walk.bytesPerRow = 4 * walk.macroPixels;
  convert(walk, rowKernels().toYUV422, pSource, pDestination);
}

void yuv422ToYUV(const Byte* pSource, int pSourceWidth, Byte* pDestination, int pWidth,
                 int pHeight) {
  convertUsual(rowKernels().toYUV, 6, pSource, pSourceWidth, pDestination, pWidth, pHeight);
}

void yuv422ToRGB(const Byte* pSource, int pSourceWidth, Byte* pDestination, int pWidth,
                 int pHeight) {
  convertUsual(rowKernels().toRGB, 6, pSource, pSourceWidth, pDestination, pWidth, pHeight);
}

void yuv422ToHSY(const Byte* pSource, int pSourceWidth, Byte* pDestination, int pWidth,
                 int pHeight) {
  convertUsual(rowKernels().toHSY, 6, pSource, pSourceWidth, pDestination, pWidth, pHeight);
}

void yuv422ToBGR(const Byte* pSource, int pSourceWidth, Byte* pDestination, int pWidth,
                 int pHeight) {
  convertUsual(rowKernels().toBGR, 6, pSource, pSourceWidth, pDestination, pWidth, pHeight);
}

void yuv422ToYYCbCr(const Byte* pSource, int pSourceWidth, Byte* pDestination, int pWidth,
                    int pHeight) {
  if (isEmpty(pWidth, pHeight)) return;
  Walk walk = usualWalk(pSourceWidth, pWidth, pHeight, 4);
  walk.macroPixels = pWidth / 2;
  walk.bytesPerRow = 4 * walk.macroPixels;
  walk.sourceRow = std::ptrdiff_t{4} * (pSourceWidth / 2) * walk.step;
  convert(walk, rowKernels().toYYCbCr, pSource, pDestination);
}

void yuv422ToH2RGB(const Byte* pSource, int pSourceWidth, Byte* pDestination, int pWidth,
                   int pHeight) {
  convertUsual(rowKernels().toH2RGB, 6, pSource, pSourceWidth, pDestination, pWidth, pHeight);
}

void yuv422ToHSMixed(const Byte* pSource, int pSourceWidth, Byte* pDestination, int pWidth,
                     int pHeight) {
  convertUsual(rowKernels().toHSMixed, 6, pSource, pSourceWidth, pDestination, pWidth, pHeight);
}

void touchFrame(const Byte* pSource, std::size_t pBytes, Byte* pScratch) {
  for (std::size_t done = 0; done < pBytes; done += kTouchScratchBytes) {
    std::memcpy(pScratch, pSource + done, std::min(pBytes - done, kTouchScratchBytes));
    keep(pScratch);
  }
}

}  // namespace OX::kernels
