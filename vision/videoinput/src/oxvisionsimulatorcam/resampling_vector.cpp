// The vector forms of the resampler, compiled once for each instruction set; the best one is chosen
// at run time.
#include "oxvisionvideoinput/kernels/vector_targets.h"
// After the targets.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "oxvisionsimulatorcam/resampling_vector.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include "resampling_rows.h"

// Highway's fallback for other processors has no vectors worth the name.
#if HWY_TARGET <= HWY_SSE4
#include "resampling_load-inl.h"
#endif

HWY_BEFORE_NAMESPACE();
#if HWY_TARGET <= HWY_SSE4 && OX_USES_VNNI
#pragma GCC target("avx512vnni,avx512cd")
#endif
namespace OX {
namespace resampling {
namespace HWY_NAMESPACE {

#if HWY_TARGET <= HWY_SSE4

/// Calls kBlock(item) for all items in blocks of kColours. The last block ends with the last item:
/// it may do some of the block before again, to the same bytes. There must be a block at least.
template <auto kBlock>
HWY_INLINE void forEachBlock(const Byte* pSource, Index pSourceBytes, Byte* pTarget,
                             Index pTargetBytes, Index pItems) {
  const Index last = pItems - kColours;
  for (Index i = 0; i < last; i += kColours) {
    kBlock(pSource + pSourceBytes * i, pTarget + pTargetBytes * i);
  }
  kBlock(pSource + pSourceBytes * last, pTarget + pTargetBytes * last);
}

HWY_INLINE void pairsBlock(const Byte* pSource, Byte* pTarget) {
  const PairColours pairs = loadPairs(pSource);
  storePairs(channelsOf(pairs.left), channelsOf(pairs.right), pTarget);
}

void toPairs(const Byte* pSource, Byte* pTarget, Index pPairs) {
  if (pPairs < kColours) return plainRows().toPairs(pSource, pTarget, pPairs);
  forEachBlock<pairsBlock>(pSource, 6, pTarget, 4, pPairs);
}

template <int kRatio>
HWY_INLINE void downBlock(const Byte* pSource, Byte* pTarget) {
  const Byte* right = pSource + 3 * (kRatio / 2) * kRatio;
  storePairs(channelsOf(loadColoursApart<6 * kRatio>(pSource)),
             channelsOf(loadColoursApart<6 * kRatio>(right)), pTarget);
}

template <int kRatio>
void downBy(const Byte* pSource, Byte* pTarget, Index pPairs) {
  const Index blocks = pPairs > kColours ? pPairs - 1 : 0;
  if (blocks > 0) forEachBlock<downBlock<kRatio>>(pSource, 6 * kRatio, pTarget, 4, blocks);
  plainRows().down(kRatio, pSource + 6 * kRatio * blocks, pTarget + 4 * blocks, pPairs - blocks);
}

void down(int pRatio, const Byte* pSource, Byte* pTarget, Index pPairs) {
  switch (pRatio) {
    case 2:
      return downBy<2>(pSource, pTarget, pPairs);
    case 4:
      return downBy<4>(pSource, pTarget, pPairs);
    default:
      return downBy<8>(pSource, pTarget, pPairs);
  }
}

/// Each four bytes of pPairs kTimes in a row.
template <int kTimes>
HWY_INLINE void repeat(const Byte* pPairs, Byte* pTarget) {
  const hn::Full128<std::uint32_t> elements;
  for (Index i = 0; i < kColours; i += 4 / kTimes) {
    std::uint32_t pairs[4];
    hwy::CopyBytes<4>(pPairs + 4 * i, pairs);
    if constexpr (kTimes == 2) {
      hwy::CopyBytes<4>(pPairs + 4 * i + 4, pairs + 2);
      pairs[1] = pairs[0];
      pairs[3] = pairs[2];
      hn::StoreU(hn::LoadU(elements, pairs), elements,
                 reinterpret_cast<std::uint32_t*>(pTarget + 4 * kTimes * i));
    } else {
      hn::StoreU(hn::Set(elements, pairs[0]), elements,
                 reinterpret_cast<std::uint32_t*>(pTarget + 4 * kTimes * i));
    }
  }
}

template <int kRatio>
HWY_INLINE void upBlock(const Byte* pSource, Byte* pTarget) {
  const Channels channels = channelsOf(loadColours(pSource));
  if constexpr (kRatio == 2) {
    storePairs(channels, channels, pTarget);
  } else {
    alignas(64) Byte pairs[4 * kColours];
    storePairs(channels, channels, pairs);
    repeat<kRatio / 2>(pairs, pTarget);
  }
}

template <int kRatio>
void upBy(const Byte* pSource, Byte* pTarget, Index pPixels) {
  if (pPixels < kColours) return plainRows().up(kRatio, pSource, pTarget, pPixels);
  forEachBlock<upBlock<kRatio>>(pSource, 3, pTarget, 2 * kRatio, pPixels);
}

void up(int pRatio, const Byte* pSource, Byte* pTarget, Index pPixels) {
  switch (pRatio) {
    case 2:
      return upBy<2>(pSource, pTarget, pPixels);
    case 4:
      return upBy<4>(pSource, pTarget, pPixels);
    default:
      return upBy<8>(pSource, pTarget, pPixels);
  }
}

#endif

const RowKernels& rows() {
#if HWY_TARGET <= HWY_SSE4
  static constexpr RowKernels kRows = {.toPairs = toPairs, .down = down, .up = up};
  return kRows;
#else
  return plainRows();
#endif
}

}  // namespace HWY_NAMESPACE
}  // namespace resampling
}  // namespace OX
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace OX::resampling {

HWY_EXPORT(rows);

const RowKernels& vectorRows() { return HWY_DYNAMIC_DISPATCH(rows)(); }

}  // namespace OX::resampling
#endif
