/// Row kernels: what kernels.cpp walks over a frame with, one table for each instruction set.
/// rows_scalar.cpp states the rules; rows_vector.cpp gives the same bytes faster.
#pragma once

#include <cstddef>

namespace OX::kernels {

/// Converts pCount macro-pixels of one row. Source macro-pixel i lies at byte 4 * pStep * i.
/// Reads no source byte behind the last macro-pixel's (for yuv: behind its second luma's).
using RowKernel = void(const unsigned char* pSource, std::ptrdiff_t pStep,
                       unsigned char* pDestination, std::ptrdiff_t pCount);

/// One row kernel for each colour space; Yuv and YUV differ as the colour spaces kYuv and kYUV do.
struct RowKernels {
  RowKernel* toYuv;
  RowKernel* toYUV422;
  RowKernel* toYUV;
  RowKernel* toRGB;
  RowKernel* toHSY;
  RowKernel* toBGR;
  RowKernel* toYYCbCr;
  RowKernel* toH2RGB;
  RowKernel* toHSMixed;
  /// As the others, but source macro-pixel i lies at byte 2 * pStep * i.
  RowKernel* toHsy;
};

/// The plain loops.
const RowKernels& plainRows();

/// The vector forms of the instruction set in use, see levels.h.
const RowKernels& vectorRows();

}  // namespace OX::kernels
