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

/// Converts all items, pixels or pairs, in blocks of kColours. The last block ends with the last
/// item: it may do some of the block before again, to the same bytes. There must be one at least.
template <typename Block>
HWY_INLINE void forEachBlock(const Byte* pSource, Byte* pTarget, Index pItems) {
  const Block block;
  const Index last = pItems - kColours;
  for (Index i = 0; i < last; i += kColours) {
    block.convert(pSource + Block::kBytesIn * i, pTarget + Block::kBytesOut * i);
  }
  block.convert(pSource + Block::kBytesIn * last, pTarget + Block::kBytesOut * last);
}

struct PairsBlock {
  static constexpr Index kBytesIn = 6;
  static constexpr Index kBytesOut = 4;

  HWY_INLINE PairsBlock() {}

  HWY_INLINE void convert(const Byte* pSource, Byte* pTarget) const {
    const PairColours pairs = fLoader.load(pSource);
    storePairs(fConverter.of(pairs.left), fConverter.of(pairs.right), pTarget);
  }

  PairLoader fLoader;
  Converter fConverter;
};

void toPairs(const Byte* pSource, Byte* pTarget, Index pPairs) {
  if (pPairs < kColours) return plainRows().toPairs(pSource, pTarget, pPairs);
  forEachBlock<PairsBlock>(pSource, pTarget, pPairs);
}

template <int kRatio>
struct DownBlock {
  static constexpr Index kBytesIn = 6 * kRatio;
  static constexpr Index kBytesOut = 4;

  HWY_INLINE DownBlock() {}

  HWY_INLINE void convert(const Byte* pSource, Byte* pTarget) const {
    const Byte* right = pSource + 3 * (kRatio / 2) * kRatio;
    storePairs(fConverter.of(loadColoursApart<6 * kRatio>(pSource)),
               fConverter.of(loadColoursApart<6 * kRatio>(right)), pTarget);
  }

  Converter fConverter;
};

template <int kRatio>
void downBy(const Byte* pSource, Byte* pTarget, Index pPairs) {
  const Index blocks = pPairs > kColours ? pPairs - 1 : 0;
  if (blocks > 0) forEachBlock<DownBlock<kRatio>>(pSource, pTarget, blocks);
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

/// Stores each four bytes of kColours pairs kTimes in a row.
template <int kTimes>
HWY_INLINE void storeRepeated(const Byte* pPairs, Byte* pTarget) {
  constexpr Index kPerVector = kVectorBytes / 4;
  alignas(64) static constexpr auto kOrders = [] {
    std::array<std::int32_t, kTimes * kPerVector> orders{};
    for (Index i = 0; i < kTimes * kPerVector; ++i) orders[i] = static_cast<int>(i / kTimes);
    return orders;
  }();
  for (Index pair = 0; pair < kColours; pair += kPerVector) {
    const U32 pairs = hn::BitCast(kU32, hn::LoadU(kU8, pPairs + 4 * pair));
    for (Index i = 0; i < kTimes; ++i) {
      const auto order = hn::SetTableIndices(kU32, kOrders.data() + i * kPerVector);
      hn::StoreU(hn::BitCast(kU8, hn::TableLookupLanes(pairs, order)), kU8,
                 pTarget + 4 * kTimes * pair + kVectorBytes * i);
    }
  }
}

template <int kRatio>
struct UpBlock {
  static constexpr Index kBytesIn = 3;
  static constexpr Index kBytesOut = 2 * kRatio;

  HWY_INLINE UpBlock() {}

  HWY_INLINE void convert(const Byte* pSource, Byte* pTarget) const {
    const Channels channels = fConverter.of(loadColours(pSource));
    if constexpr (kRatio == 2) {
      storePairs(channels, channels, pTarget);
    } else {
      alignas(64) Byte pairs[4 * kColours];
      storePairs(channels, channels, pairs);
      storeRepeated<kRatio / 2>(pairs, pTarget);
    }
  }

  Converter fConverter;
};

template <int kRatio>
void upBy(const Byte* pSource, Byte* pTarget, Index pPixels) {
  if (pPixels < kColours) return plainRows().up(kRatio, pSource, pTarget, pPixels);
  forEachBlock<UpBlock<kRatio>>(pSource, pTarget, pPixels);
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
