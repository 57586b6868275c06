// Applies the conversion of one block of macro-pixels to the rows of a frame, for each instruction
// set. The tails of rows are handled here.
#if defined(OX_ROWBLOCKS_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef OX_ROWBLOCKS_INL_H
#undef OX_ROWBLOCKS_INL_H
#else
#define OX_ROWBLOCKS_INL_H
#endif

#include <algorithm>

#include "pixels/simd/vectorsteps-inl.h"
#include "rows.h"

HWY_BEFORE_NAMESPACE();
#if OX_USES_VNNI
#pragma GCC target("avx512vnni,avx512cd")
#endif
namespace OX {
namespace kernels {
namespace HWY_NAMESPACE {

using namespace OX::HWY_NAMESPACE;

/// How many bytes ahead of the stores their cache lines are prefetched. Otherwise stores fetch the
/// lines that they overwrite one by one, in order. Distances from 200 to 3000 measured alike.
constexpr Index kStoresAhead = 512;

/// Prefetches the cache lines of some bytes for writing.
template <Index kBytes>
HWY_INLINE void prefetchStores(const Byte* pTo) {
  if constexpr (kBytes <= kCacheLine / 2) return;  // would prefetch each line twice or more
  for (Index i = 0; i < kBytes; i += kCacheLine) {
    // A no-operation on processors that lack it.
    asm volatile("prefetchw %0" : : "m"(pTo[i]));
  }
}

/// Converts rows in blocks. The last block of a row ends with the last macro-pixel: it may convert
/// some of the block before again, to the same bytes. Rows shorter than a block are left to the
/// plain loop.
template <typename Block, int kStep>
void convertRowsAtStep(const Rows& pRows, RowsKernel* pPlain) {
  if (pRows.macroPixels < Block::kMacroPixels) return pPlain(pRows);
  const Block block;
  const Index last = pRows.macroPixels - Block::kMacroPixels;
  const Index lastInFrame = pRows.destinationStride * (pRows.count - 1) + Block::kBytesOut * last;
  for (Index y = 0; y < pRows.count; ++y) {
    const Byte* const from = pRows.source + pRows.sourceStride * y;
    const Index to = pRows.destinationStride * y;
    const Byte* const next = y + 1 < pRows.count ? from + pRows.sourceStride : from;
    for (Index i = 0; i < last; i += Block::kMacroPixels) {
      const Index ahead = std::min(to + Block::kBytesOut * i + kStoresAhead, lastInFrame);
      prefetchStores<Block::kMacroPixels * Block::kBytesOut>(pRows.destination + ahead);
      if constexpr (kStep > 1) prefetchLoads<4 * kStep * Block::kMacroPixels>(next + 4 * kStep * i);
      block.template convert<kStep>(from + 4 * kStep * i,
                                    pRows.destination + to + Block::kBytesOut * i);
    }
    block.template convert<kStep>(from + 4 * kStep * last,
                                  pRows.destination + to + Block::kBytesOut * last);
  }
}

/// The same for the steps between the four resolutions; others are left to the plain loop.
template <typename Block>
void convertRows(const Rows& pRows, RowsKernel* pPlain) {
  switch (pRows.step) {
    case 1:
      return convertRowsAtStep<Block, 1>(pRows, pPlain);
    case 2:
      return convertRowsAtStep<Block, 2>(pRows, pPlain);
    case 4:
      return convertRowsAtStep<Block, 4>(pRows, pPlain);
    case 8:
      return convertRowsAtStep<Block, 8>(pRows, pPlain);
    default:
      return pPlain(pRows);
  }
}

}  // namespace HWY_NAMESPACE
}  // namespace kernels
}  // namespace OX
HWY_AFTER_NAMESPACE();

#endif  // OX_ROWBLOCKS_INL_H
