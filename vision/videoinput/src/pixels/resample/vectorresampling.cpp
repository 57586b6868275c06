// The vector forms of the resampler, compiled once for each instruction set: Highway includes this
// file for each of them again, and the best one is chosen at run time.
#include "pixels/simd/vectortargets.h"
// After the targets.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "pixels/resample/vectorresampling.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include "resamplingrows.h"

// Highway's fallback for other processors only emulates vectors: the plain loops serve instead.
#if HWY_TARGET <= HWY_SSE4
#include "resamplingload-inl.h"
#endif

HWY_BEFORE_NAMESPACE();
#if HWY_TARGET <= HWY_SSE4 && OX_USES_VNNI
#pragma GCC target("avx512vnni,avx512cd")
#endif
namespace OX {
namespace resampling {
namespace HWY_NAMESPACE {

#if HWY_TARGET <= HWY_SSE4

/// Converts rows in blocks of kColours items, pixels or pairs. The last block of a row ends with
/// the last item: it may convert some of the block before again, to the same bytes. A row must have
/// at least one block. Calls pEndRow(source, target) after each row.
template <typename Block, typename EndRow>
HWY_INLINE void forEachBlock(const Rows& pRows, EndRow pEndRow) {
  const Block block;
  const Index last = pRows.items - kColours;
  for (Index y = 0; y < pRows.count; ++y) {
    const Byte* const from = pRows.source + pRows.sourceStride * y;
    Byte* const to = pRows.target + pRows.targetStride * y;
    // Asked for while this row is converted. The last row has no next one and asks for itself.
    const Byte* const next = y + 1 < pRows.count ? from + pRows.sourceStride : from;
    for (Index i = 0; i < last; i += kColours) {
      if constexpr (Block::kSkipsRows) {
        prefetchLoads<kColours * Block::kBytesIn>(next + Block::kBytesIn * i);
      }
      block.convert(from + Block::kBytesIn * i, to + Block::kBytesOut * i);
    }
    block.convert(from + Block::kBytesIn * last, to + Block::kBytesOut * last);
    pEndRow(from, to);
  }
}

// Blocks differ in what they load and store; the colours are the converter's. Loaders and
// converters are members, so that their constants are prepared once for all rows.
struct PairsBlock {
  static constexpr bool kSkipsRows = false;
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

void toPairs(const Rows& pRows) {
  if (pRows.items < kColours) return plainRows().toPairs(pRows);
  forEachBlock<PairsBlock>(pRows, [](const Byte*, Byte*) {});
}

// The right pixel of a pair is not the left one's neighbour: resampling.h has the distances.
template <int kRatio>
struct DownBlock {
  static constexpr bool kSkipsRows = true;
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

/// The last pair of a row is left to the plain loop, since a block would read beyond its pixels. It
/// comes before the next row, which may overlap it.
template <int kRatio>
void downBy(const Rows& pRows) {
  if (pRows.items <= kColours) return plainRows().down(kRatio, pRows);
  Rows blocks = pRows;
  --blocks.items;
  const Index last = blocks.items;
  forEachBlock<DownBlock<kRatio>>(blocks, [last](const Byte* pSource, Byte* pTarget) {
    plainRows().down(kRatio, {pSource + 6 * kRatio * last, 0, pTarget + 4 * last, 0, 1, 1});
  });
}

void down(int pRatio, const Rows& pRows) {
  switch (pRatio) {
    case 2:
      return downBy<2>(pRows);
    case 4:
      return downBy<4>(pRows);
    default:
      return downBy<8>(pRows);
  }
}

/// Stores each group of four bytes of kColours pairs kTimes in succession.
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

// A pixel becomes pairs of the same two pixels: its chroma is its own, as the mean of two equal
// values is.
template <int kRatio>
struct UpBlock {
  static constexpr bool kSkipsRows = false;
  static constexpr Index kBytesIn = 3;
  static constexpr Index kBytesOut = 2 * kRatio;

  HWY_INLINE UpBlock() {}

  HWY_INLINE void convert(const Byte* pSource, Byte* pTarget) const {
    const Channels channels = fConverter.of(loadColours(pSource));
    if constexpr (kRatio == 2) {
      storePairs(channels, channels, pTarget);
    } else {
      // Through memory: storePairs() puts the pairs in order, which registers hold by channel.
      alignas(64) Byte pairs[4 * kColours];
      storePairs(channels, channels, pairs);
      storeRepeated<kRatio / 2>(pairs, pTarget);
    }
  }

  Converter fConverter;
};

// Only the first pixel row of each row of blocks is converted; the others are copies of it.
template <int kRatio>
void upBy(const Rows& pRows) {
  if (pRows.items < kColours) return plainRows().up(kRatio, pRows);
  const Index bytes = 2 * kRatio * pRows.items;
  forEachBlock<UpBlock<kRatio>>(
      pRows, [bytes](const Byte*, Byte* pTarget) { repeatRow(pTarget, bytes, kRatio); });
}

void up(int pRatio, const Rows& pRows) {
  switch (pRatio) {
    case 2:
      return upBy<2>(pRows);
    case 4:
      return upBy<4>(pRows);
    default:
      return upBy<8>(pRows);
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
