// kRGB and kBGR in 16-bit elements, two for a macro-pixel.
//
// A channel is (298 * (Y - 16) + chroma) >> 8, and as Y's factor is even the same as
// (149 * (Y - 16) + floor(chroma / 2)) >> 7; where the chroma's factors are multiples of 4, as for
// green and blue, also (floor(149 * (Y - 16) / 2) + chroma / 4) >> 6. The offsets are shared out
// between the two terms so that each fits 16 bits. Sums above 32767 saturate: those are above
// 255 << 7 anyway, which is clamped. The exhaustive test covers every combination.
#if defined(OX_ROWS_RGB_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef OX_ROWS_RGB_INL_H
#undef OX_ROWS_RGB_INL_H
#else
#define OX_ROWS_RGB_INL_H
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

/// Channels of a vector's pixels, not clamped.
struct Channels {
  I16 red, green, blue;
};

/// pFactor / 256 of a byte, rounded down, plus pOffset. The byte is the upper one of pUpperByte,
/// whose lower one is 0. The high half of a product keeps the compiler from shifts and adds.
HWY_INLINE I16 scaled(U16 pUpperByte, int pFactor, int pOffset) {
  const U16 product = hn::MulHigh(pUpperByte, hn::Set(kU16, static_cast<std::uint16_t>(pFactor)));
  return hn::Add(hn::BitCast(kI16, product), hn::Set(kI16, static_cast<std::int16_t>(pOffset)));
}

HWY_INLINE Channels channelsOf(U8 pMacroPixels) {
  constexpr int kLumaOffset = -8192;  // a multiple of 2; lets red's two terms fit

  const U16 luma = hn::ShiftLeft<8>(hn::BitCast(kU16, pMacroPixels));
  const I16 halfLuma = scaled(luma, 149 * 256, kLumaOffset);
  const I16 quarterLuma = hn::ShiftRight<1>(halfLuma);

  const U8 uv = hn::TableLookupBytes(
      pMacroPixels, inAllLanes({1, 3, 1, 3, 5, 7, 5, 7, 9, 11, 9, 11, 13, 15, 13, 15}));
  const U16 u = hn::ShiftLeft<8>(hn::BitCast(kU16, uv));
  const U16 v = hn::And(hn::BitCast(kU16, uv), hn::Set(kU16, 0xFF00));

  // The offsets: -16 of luma, -128 of chroma, less what the luma term has.
  const I16 redTerm = scaled(v, 409 * 128, -149 * 16 - 409 * 64 - kLumaOffset);
  const I16 greenTerm = hn::Add(multiplyAddBytes(uv, bytePairs(-25, -52)),
                                hn::Set(kI16, -149 * 8 + (25 + 52) * 128 - kLumaOffset / 2));
  const I16 blueTerm = scaled(u, 129 * 256, -149 * 8 - 129 * 128 - kLumaOffset / 2);

  return {hn::ShiftRight<7>(hn::SaturatedAdd(halfLuma, redTerm)),
          hn::ShiftRight<6>(hn::Add(quarterLuma, greenTerm)),
          hn::ShiftRight<6>(hn::SaturatedAdd(quarterLuma, blueTerm))};
}

HWY_INLINE ThreeBytes toRGB(const Pair& pPair) {
  const Channels first = channelsOf(pPair.first);
  const Channels second = channelsOf(pPair.second);
  return {packClamped(first.red, first.green), packClamped(second.red, second.green),
          packClamped(first.blue, second.blue)};
}

HWY_INLINE ThreeBytes toBGR(const Pair& pPair) {
  const Channels first = channelsOf(pPair.first);
  const Channels second = channelsOf(pPair.second);
  return {packClamped(first.blue, first.green), packClamped(second.blue, second.green),
          packClamped(first.red, second.red)};
}

void rowToRGB(const Byte* pSource, Index pStep, Byte* pDestination, Index pCount) {
  convertRow<ThreeBytesBlock<toRGB>>(pSource, pStep, pDestination, pCount, plainRows().toRGB);
}

void rowToBGR(const Byte* pSource, Index pStep, Byte* pDestination, Index pCount) {
  convertRow<ThreeBytesBlock<toBGR>>(pSource, pStep, pDestination, pCount, plainRows().toBGR);
}

}  // namespace HWY_NAMESPACE
}  // namespace kernels
}  // namespace OX
HWY_AFTER_NAMESPACE();

#endif  // OX_ROWS_RGB_INL_H
