// Which source bytes make which destination row, for each colour space. The row kernels know
// nothing of frames: oddities of addressing, which clients rely on, are all here.
#include "kernels.h"

#include <algorithm>
#include <cstring>

#include "pixels/simd/levels.h"
#include "rows.h"

namespace OX::kernels {
namespace {

using Byte = unsigned char;

// Asked anew for each frame: tests change the level while the process runs.
const RowKernels& rowKernels() { return usesPlainLoops() ? plainRows() : vectorRows(); }

bool isEmpty(int pWidth, int pHeight) { return pWidth <= 0 || pHeight <= 0; }

/// The rows of all colour spaces except those that say otherwise in kernels.h.
Rows usualRows(const Byte* pSource, int pSourceWidth, Byte* pDestination, int pWidth, int pHeight,
               int pBytesPerMacroPixel) {
  const std::ptrdiff_t step = std::max(pSourceWidth, 0) / pWidth;
  const std::ptrdiff_t macroPixels = pWidth / 2 + pWidth % 2;
  return {.source = pSource,
          .sourceStride = 2 * step * step * pWidth,
          .step = step,
          .destination = pDestination,
          .destinationStride = pBytesPerMacroPixel * macroPixels,
          .macroPixels = macroPixels,
          .count = pHeight};
}

/// A frame without gaps is converted as one long row: vectors then leave one tail and not one a
/// row. Only the source can have gaps. An odd width at step 1 counts as one: rows overlap, since
/// each ends with a whole macro-pixel.
void convert(RowsKernel* pKernel, Rows pRows) {
  const bool hasGaps = pRows.step != 1 || pRows.sourceStride != 4 * pRows.macroPixels;
  if (!hasGaps) {
    pRows.macroPixels *= pRows.count;
    pRows.count = 1;
  }
  pKernel(pRows);
}

void convertUsual(RowsKernel* pKernel, int pBytesPerMacroPixel, const Byte* pSource,
                  int pSourceWidth, Byte* pDestination, int pWidth, int pHeight) {
  if (isEmpty(pWidth, pHeight)) return;
  convert(pKernel,
          usualRows(pSource, pSourceWidth, pDestination, pWidth, pHeight, pBytesPerMacroPixel));
}

/// Makes the compiler assume that pData is read here, so that writes to it can't be removed.
void escape(const Byte* pData) { asm volatile("" : : "r"(pData) : "memory"); }

}  // namespace

void yuv422ToYuv(const Byte* pSource, int pSourceWidth, Byte* pDestination, int pWidth,
                 int pHeight) {
  convertUsual(rowKernels().toYuv, 2, pSource, pSourceWidth, pDestination, pWidth, pHeight);
}

void yuv422ToHsy(const Byte* pSource, int pSourceWidth, Byte* pDestination, int pWidth,
                 int pHeight) {
  if (isEmpty(pWidth, pHeight)) return;
  Rows rows = usualRows(pSource, pSourceWidth, pDestination, pWidth, pHeight, 2);
  // Each row overwrites the one before, which nobody can see meanwhile: only the last is converted.
  // Half the usual stride, as half the usual distance of macro-pixels: kernels.h has the rule.
  rows.source += rows.sourceStride / 2 * (pHeight - 1);
  rows.count = 1;
  rowKernels().toHsy(rows);
}

void yuv422ToYUV422(const Byte* pSource, int pSourceWidth, Byte* pDestination, int pWidth,
                    int pHeight) {
  if (isEmpty(pWidth, pHeight)) return;
  Rows rows = usualRows(pSource, pSourceWidth, pDestination, pWidth, pHeight, 4);
  if (rows.step == 1) {
    // Whole words, as the contract has it: up to 6 bytes at the end of the frame are not copied,
    // and one word is copied even for a frame that is smaller.
    const std::size_t words = static_cast<std::size_t>(pWidth) * pHeight / 4;
    std::memcpy(pDestination, pSource, 8 * std::max(words, std::size_t{1}));
    return;
  }
  // Truncated, unlike the usual rows: the last pixel of an odd width is not written, and the rows
  // follow each other without it.
  rows.macroPixels = pWidth / 2;
  rows.destinationStride = 4 * rows.macroPixels;
  convert(rowKernels().toYUV422, rows);
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
  Rows rows = usualRows(pSource, pSourceWidth, pDestination, pWidth, pHeight, 4);
  rows.macroPixels = pWidth / 2;
  rows.destinationStride = 4 * rows.macroPixels;
  // By the true width of the source: rows don't drift when it is no multiple of pWidth.
  rows.sourceStride = std::ptrdiff_t{4} * (pSourceWidth / 2) * rows.step;
  convert(rowKernels().toYYCbCr, rows);
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
    escape(pScratch);
  }
}

}  // namespace OX::kernels
