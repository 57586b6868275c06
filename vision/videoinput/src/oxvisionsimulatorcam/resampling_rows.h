/// Row kernels of the resampler, one table for each instruction set. resampling_scalar.cpp states
/// the rules; resampling_vector.cpp gives the same bytes faster.
#pragma once

#include <cstddef>

namespace OX::resampling {

struct RowKernels {
  /// Converts pPairs pairs of neighbouring pixels.
  void (*toPairs)(const unsigned char* pSource, unsigned char* pTarget, std::ptrdiff_t pPairs);
  /// Converts pPairs pairs, whose pixels lie as subSample() says, to one target row.
  void (*down)(int pRatio, const unsigned char* pSource, unsigned char* pTarget,
               std::ptrdiff_t pPairs);
  /// Converts pPixels pixels to the first of pRatio equal target rows, pRatio pixels each.
  void (*up)(int pRatio, const unsigned char* pSource, unsigned char* pTarget,
             std::ptrdiff_t pPixels);
};

/// The plain loops.
const RowKernels& plainRows();

/// The vector forms of the instruction set in use, see kernels/levels.h.
const RowKernels& vectorRows();

}  // namespace OX::resampling
