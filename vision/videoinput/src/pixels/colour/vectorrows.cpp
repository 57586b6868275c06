// The vector forms, compiled once for each instruction set: Highway includes this file for each of
// them again, and the best one is chosen at run time. The formats are in the -inl.h files.
#include "pixels/simd/vectortargets.h"
// After the targets.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "pixels/colour/vectorrows.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include "rows.h"

// Highway's fallback for other processors only emulates vectors: the plain loops serve instead.
#if HWY_TARGET <= HWY_SSE4
#include "huerows-inl.h"
#include "lumarows-inl.h"
#include "rgbrows-inl.h"
#endif

HWY_BEFORE_NAMESPACE();
namespace OX {
namespace kernels {
namespace HWY_NAMESPACE {

const RowKernels& rows() {
#if HWY_TARGET <= HWY_SSE4
  static const RowKernels kRows = {
      .toYuv = rowsToYuv,
      .toYUV422 = rowsToYUV422,
      .toYUV = rowsToYUV,
      .toRGB = rowsToRGB,
      .toHSY = rowsToHSY,
      .toBGR = rowsToBGR,
      .toYYCbCr = rowsToYYCbCr,
      .toH2RGB = rowsToH2RGB,
      .toHSMixed = rowsToHSMixed,
      // One row a frame: not worth a vector form.
      .toHsy = plainRows().toHsy,
  };
  return kRows;
#else
  return plainRows();
#endif
}

}  // namespace HWY_NAMESPACE
}  // namespace kernels
}  // namespace OX
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace OX::kernels {

HWY_EXPORT(rows);

const RowKernels& vectorRows() { return HWY_DYNAMIC_DISPATCH(rows)(); }

}  // namespace OX::kernels
#endif
