// The formats that only move bytes: kYuv, kYUV422, kYYCbCr and kYUV.
#if defined(OX_ROWS_LUMA_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef OX_ROWS_LUMA_INL_H
#undef OX_ROWS_LUMA_INL_H
#else
#define OX_ROWS_LUMA_INL_H
#endif

#include "rows.h"
#include "vector_pixels-inl.h"

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
      : fOrder(inAllLanes({0, 2, 1, 3, 4, 6, 5, 7, 8, 10, 9, 11, 12, 14, 13, 15})) {}

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
    storePieces(pick(pair.first, fLeft),
                pickMore(pick(pair.first, fMiddleFirst), pair.second, fMiddleSecond),
                pick(pair.second, fRight), pTo);
  }

 private:
  Picker fLeft, fMiddleFirst, fMiddleSecond, fRight;
};

/// As convertRow(), for formats whose second luma comes from a later macro-pixel above step 1. The
/// blocks read that one whole, so the last macro-pixel of the row, where it may lie behind the
/// frame's end in part, is left to the plain loop.
template <typename Block>
void convertRowButTheLast(const Byte* pSource, Index pStep, Byte* pDestination, Index pCount,
                          RowKernel* pPlain) {
  const Index blocks = pStep > 1 && pCount > 0 ? pCount - 1 : pCount;
  convertRow<Block>(pSource, pStep, pDestination, blocks, pPlain);
  pPlain(pSource + 4 * pStep * blocks, pStep, pDestination + Block::kBytesOut * blocks,
         pCount - blocks);
}

void rowToYuv(const Byte* pSource, Index pStep, Byte* pDestination, Index pCount) {
  convertRowButTheLast<YuvBlock>(pSource, pStep, pDestination, pCount, plainRows().toYuv);
}

void rowToYUV422(const Byte* pSource, Index pStep, Byte* pDestination, Index pCount) {
  convertRowButTheLast<YUV422Block>(pSource, pStep, pDestination, pCount, plainRows().toYUV422);
}

void rowToYYCbCr(const Byte* pSource, Index pStep, Byte* pDestination, Index pCount) {
  convertRow<YYCbCrBlock>(pSource, pStep, pDestination, pCount, plainRows().toYYCbCr);
}

void rowToYUV(const Byte* pSource, Index pStep, Byte* pDestination, Index pCount) {
  convertRow<YUVBlock>(pSource, pStep, pDestination, pCount, plainRows().toYUV);
}

}  // namespace HWY_NAMESPACE
}  // namespace kernels
}  // namespace OX
HWY_AFTER_NAMESPACE();

#endif  // OX_ROWS_LUMA_INL_H
