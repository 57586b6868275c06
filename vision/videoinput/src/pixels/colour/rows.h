/// Row kernels, with which kernels.cpp converts a frame: one table for each instruction set.
/// scalarrows.cpp states the rules; vectorrows.cpp produces the same bytes faster. Thread-safe.
#pragma once

#include <cstddef>

namespace OX::kernels {

/// Rows of macro-pixels to convert. A kernel is passed all rows of a frame at once, so that it
/// prepares its constants once.
struct Rows {
  const unsigned char* source;
  std::ptrdiff_t sourceStride;  ///< bytes from row to row
  std::ptrdiff_t step;          ///< macro-pixel i of a row is at byte 4 * step * i of it
  unsigned char* destination;
  std::ptrdiff_t destinationStride;  ///< bytes from row to row
  std::ptrdiff_t macroPixels;        ///< of each row
  std::ptrdiff_t count;              ///< of rows
};

/// Converts rows. Reads no source byte after a row's last macro-pixel (for kYuv: after its second
/// luma).
using RowsKernel = void(const Rows& pRows);

/// One kernel for each colour space; Yuv and YUV differ as the colour spaces kYuv and kYUV do.
struct RowKernels {
  RowsKernel* toYuv;
  RowsKernel* toYUV422;
  RowsKernel* toYUV;
  RowsKernel* toRGB;
  RowsKernel* toHSY;
  RowsKernel* toBGR;
  RowsKernel* toYYCbCr;
  RowsKernel* toH2RGB;
  RowsKernel* toHSMixed;
  /// As the others, but source macro-pixel i is at byte 2 * step * i.
  RowsKernel* toHsy;
};

/// The plain loops.
const RowKernels& plainRows();

/// The vector forms of the instruction set in use, see simd/levels.h.
const RowKernels& vectorRows();

}  // namespace OX::kernels
