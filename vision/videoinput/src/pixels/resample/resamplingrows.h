/// Row kernels of the resampler, one table for each instruction set. scalarresampling.cpp states
/// the rules; vectorresampling.cpp gives the same bytes faster.
#pragma once

#include <cstddef>
#include <cstring>

namespace OX::resampling {

/// Rows of pairs or pixels to convert, one after the other: what a kernel prepares it prepares
/// once.
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
  /// Converts pairs whose pixels lie as subSample() says.
  void (*down)(int pRatio, const Rows& pRows);
  /// Converts pixels, each to a block of pRatio x pRatio; a target row is one of such blocks.
  void (*up)(int pRatio, const Rows& pRows);
};

/// Makes the other pixel rows of a row of blocks, equal to the first.
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
