// The formats that only move bytes: kYuv, kYUV422, kYYCbCr and kYUV. Memory bounds their speed, so
// what counts is how few instructions there are for each store.
#if defined(OX_LUMAROWS_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef OX_LUMAROWS_INL_H
#undef OX_LUMAROWS_INL_H
#else
#define OX_LUMAROWS_INL_H
#endif

#include "pixels/simd/vectorpixels-inl.h"
#include "rowblocks-inl.h"
#include "rows.h"

HWY_BEFORE_NAMESPACE();
#if OX_USES_VNNI
#pragma GCC target("avx512vnni,avx512cd")
#endif
namespace OX {
namespace kernels {
namespace HWY_NAMESPACE {

/// Byte 0 of each macro-pixel of four vectors.
template <int kStep>
HWY_INLINE U8 firstLumas(const Byte* pFrom) {
  const auto load = [=](int i) __attribute__((always_inline)) {
    return hn::BitCast(kU16, loadVector<kStep>(pFrom + i * kStep * kVectorBytes));
  };
  const U16 low = hn::ConcatEven(kU16, load(1), load(0));
  const U16 high = hn::ConcatEven(kU16, load(3), load(2));
  return hn::ConcatEven(kU8, hn::BitCast(kU8, high), hn::BitCast(kU8, low));
}

struct YuvBlock {
  static constexpr Index kMacroPixels = 2 * kPerVector;
  static constexpr Index kBytesOut = 2;

  template <int kStep>
  HWY_INLINE void convert(const Byte* pFrom, Byte* pTo) const {
    if constexpr (kStep == 1) {
      const U8 low = hn::LoadU(kU8, pFrom);
      const U8 high = hn::LoadU(kU8, pFrom + kVectorBytes);
      hn::StoreU(hn::ConcatEven(kU8, high, low), kU8, pTo);
    } else {
      // Each byte is the first luma of a macro-pixel at half the step.
      hn::StoreU(firstLumas<kStep / 2>(pFrom), kU8, pTo);
    }
  }
};

struct YUV422Block {
  static constexpr Index kMacroPixels = kPerVector;
  static constexpr Index kBytesOut = 4;

  template <int kStep>
  HWY_INLINE void convert(const Byte* pFrom, Byte* pTo) const {
    const U32 own = hn::BitCast(kU32, loadVector<kStep>(pFrom));
    const U32 later = hn::BitCast(kU32, loadVector<kStep>(pFrom + 4 * (kStep / 2)));
    const U32 secondLuma = hn::ShiftLeft<16>(hn::And(later, hn::Set(kU32, 0xFF)));
    const U32 rest = hn::AndNot(hn::Set(kU32, 0xFF0000), own);
    hn::StoreU(hn::BitCast(kU8, hn::Or(rest, secondLuma)), kU8, pTo);
  }
};

struct YYCbCrBlock {
  static constexpr Index kMacroPixels = 2 * kPerVector;
  static constexpr Index kBytesOut = 4;

  HWY_INLINE YYCbCrBlock()
      : fOrder(broadcastLane({0, 2, 1, 3, 4, 6, 5, 7, 8, 10, 9, 11, 12, 14, 13, 15})) {}

  template <int kStep>
  HWY_INLINE void convert(const Byte* pFrom, Byte* pTo) const {
    const U8 low = loadVector<kStep>(pFrom);
    const U8 high = loadVector<kStep>(pFrom + kVectorBytes * kStep);
    hn::StoreU(hn::TableLookupBytes(low, fOrder), kU8, pTo);
    hn::StoreU(hn::TableLookupBytes(high, fOrder), kU8, pTo + kVectorBytes);
  }

 private:
  U8 fOrder;
};

/// Y0 U V Y1 U V: six bytes out of the four of a macro-pixel.
alignas(64) constexpr auto kYUVPatterns = makePatterns<2>([](Index pByte) {
  constexpr Index kOrder[] = {0, 1, 3, 2, 1, 3};
  constexpr Index kMacroPixels = kPatternBytes / 4;  // of one vector
  const Index macroPixel = pByte / 6;
  return std::pair<Index, Index>(macroPixel / kMacroPixels,
                                 4 * (macroPixel % kMacroPixels) + kOrder[pByte % 6]);
});

struct YUVBlock {
  static constexpr Index kMacroPixels = kPerPair;
  static constexpr Index kBytesOut = 6;

  HWY_INLINE YUVBlock()
      : fLeft(kYUVPatterns[0][0]),
        fMiddleFirst(kYUVPatterns[1][0]),
        fMiddleSecond(kYUVPatterns[1][1]),
        fRight(kYUVPatterns[2][1]) {}

  template <int kStep>
  HWY_INLINE void convert(const Byte* pFrom, Byte* pTo) const {
    const Pair pair = loadPair<kStep>(pFrom);
    storePieces(permute(pair.first, fLeft),
                permuteInto(permute(pair.first, fMiddleFirst), pair.second, fMiddleSecond),
                permute(pair.second, fRight), pTo);
  }

 private:
  Permutation fLeft, fMiddleFirst, fMiddleSecond, fRight;
};

/// As convertRows(), for formats whose second luma comes from a later macro-pixel above step 1. The
/// blocks read that one whole. For the last macro-pixel of a row it may extend beyond the frame, so
/// that is left to the plain loop.
template <typename Block>
void convertRowsExceptLast(const Rows& pRows, RowsKernel* pPlain) {
  Rows blocks = pRows;
  Rows rest = pRows;
  rest.macroPixels = pRows.step > 1 ? std::min(pRows.macroPixels, Index{1}) : 0;
  blocks.macroPixels -= rest.macroPixels;
  rest.source += 4 * pRows.step * blocks.macroPixels;
  rest.destination += Block::kBytesOut * blocks.macroPixels;
  convertRows<Block>(blocks, pPlain);
  pPlain(rest);
}

void rowsToYuv(const Rows& pRows) { convertRowsExceptLast<YuvBlock>(pRows, plainRows().toYuv); }

void rowsToYUV422(const Rows& pRows) {
  convertRowsExceptLast<YUV422Block>(pRows, plainRows().toYUV422);
}

void rowsToYYCbCr(const Rows& pRows) { convertRows<YYCbCrBlock>(pRows, plainRows().toYYCbCr); }

void rowsToYUV(const Rows& pRows) { convertRows<YUVBlock>(pRows, plainRows().toYUV); }

}  // namespace HWY_NAMESPACE
}  // namespace kernels
}  // namespace OX
HWY_AFTER_NAMESPACE();

#endif  // OX_LUMAROWS_INL_H
