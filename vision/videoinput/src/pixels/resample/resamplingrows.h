/// Row kernels of the resampler, one table for each instruction set. scalarresampling.cpp states
/// the rules; vectorresampling.cpp produces the same bytes faster. Thread-safe.
#pragma once

#include <cstddef>
#include <cstring>

namespace OX::resampling {

/// Rows of pairs or pixels to convert. A kernel is passed all rows of a frame at once, so that it
/// prepares its constants once.
struct Rows {
  const unsigned char* source;
  std::ptrdiff_t sourceStride;  ///< bytes from row to row
  unsigned char* target;
  std::ptrdiff_t targetStride;  ///< bytes from row to row
  std::ptrdiff_t items;         ///< pairs or pixels of each row
  std::ptrdiff_t count;         ///< of rows
};

struct RowKernels {
  /// Converts pairs of neighbouring pixels.
  void (*toPairs)(const Rows& pRows);
  /// Converts pairs whose pixels are as far apart as subSample() says.
  void (*down)(int pRatio, const Rows& pRows);
  /// Converts pixels, each to a block of pRatio x pRatio; a target row is a row of such blocks.
  void (*up)(int pRatio, const Rows& pRows);
};

/// Copies the first pixel row of a row of blocks to the others, doubling what is copied each time.
inline void repeatRow(unsigned char* pFirst, std::ptrdiff_t pBytes, int pRatio) {
  for (int rows = 1; rows < pRatio; rows *= 2) {
    std::memcpy(pFirst + rows * pBytes, pFirst, static_cast<std::size_t>(rows * pBytes));
  }
}

/// The plain loops.
const RowKernels& plainRows();

/// The vector forms of the instruction set in use, see simd/levels.h.
const RowKernels& vectorRows();

}  // namespace OX::resampling
