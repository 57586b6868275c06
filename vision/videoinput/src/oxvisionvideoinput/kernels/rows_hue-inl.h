// The hue family: kHSY, kHSMixed, kH2RGB.
//
// The seven cases of the plain loop come down to this. The saturation is 255 * range / (298 * Y +
// largest), where range is the largest less the smallest of the three chroma terms. The hue is
// 85 * rest / (2 * range), where rest is the middle one less the smallest, turned to the sector
// that the order of the three gives. Two terms are equal only for grey, where all three are, so the
// order is never in doubt. All divisions are of the form factor * n / d with n <= d.
#if defined(OX_ROWS_HUE_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef OX_ROWS_HUE_INL_H
#undef OX_ROWS_HUE_INL_H
#else
#define OX_ROWS_HUE_INL_H
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

// ---- 32-bit elements into the even and odd 16-bit ones of a vector

/// Of elements whose halves are equal.
HWY_INLINE U16 eitherWords(I32 pEven, I32 pOdd) {
  return hn::OddEven(hn::BitCast(kU16, pOdd), hn::BitCast(kU16, pEven));
}

HWY_INLINE U16 lowWords(I32 pEven, I32 pOdd) {
  return hn::OddEven(hn::BitCast(kU16, hn::ShiftLeft<16>(pOdd)), hn::BitCast(kU16, pEven));
}

HWY_INLINE U16 highWords(I32 pEven, I32 pOdd) {
  const U32 even = hn::ShiftRight<16>(hn::BitCast(kU32, pEven));
  return hn::OddEven(hn::BitCast(kU16, pOdd), hn::BitCast(kU16, even));
}

HWY_INLINE U16 words(int pValue) { return hn::Set(kU16, static_cast<std::uint16_t>(pValue)); }

// ---- Division

/// Zero bits above the highest one of a number below 2^24: 32 or more for 0. Of negative numbers
/// anything that makes approximateRatio() about 0.
HWY_INLINE U32 leadingZeros(I32 pNumber) {
#if OX_USES_VNNI
  return U32{_mm512_lzcnt_epi32(pNumber.raw)};
#else
  // The exponent of the number as a float tells, and the conversion is exact.
  const auto asFloat = hn::ConvertTo(hn::RebindToFloat<decltype(kI32)>(), pNumber);
  return hn::Sub(hn::Set(kU32, 158), hn::ShiftRight<23>(hn::BitCast(kU32, asFloat)));
#endif
}

/// 0 for shifts by 32 and more.
HWY_INLINE I32 shiftLeft(I32 pNumber, U32 pBits) {
  const I32 shifted = pNumber << hn::BitCast(kI32, pBits);
#if HWY_TARGET == HWY_SSE4
  // Made of a multiplication, which knows only proper shifts.
  const U32 excess = hn::AndNot(hn::Set(kU32, 31), pBits);
  return hn::And(shifted, hn::VecFromMask(kI32, hn::Eq(hn::BitCast(kI32, excess), hn::Zero(kI32))));
#else
  return shifted;
#endif
}

/// About 2^14 * n / d, a little below, for n <= d, both 0 to 1 in units of 2^-16 and d >= 1/2.
/// A parabola gives 1 / d to 1.5 %, and one step of Newton's method squares the error.
HWY_INLINE U16 approximateRatio(U16 pN, U16 pD) {
  const U16 t = hn::Add(pD, pD);  // 2 * d - 1: the leading 1 falls off
  const U16 slope = hn::Sub(words(55214), hn::MulHigh(t, words(22774)));
  const U16 reciprocal = hn::Sub(words(65535), hn::MulHigh(t, slope));  // 2^15 / d
  const U16 product = hn::MulHigh(reciprocal, pD);                      // near 2^15
  return hn::MulHigh(hn::MulHigh(reciprocal, pN), hn::Sub(words(0), product));
}

/// kFactor * n / d, truncated, for 0 <= n <= d < 2^18, of the even and the odd elements; 0 for n =
/// 0 and for negative d. The approximation, raised by kSlack / 64, is at most 2 * kSlack / 64 too
/// large, never too small. So the quotient or one more is known, and the sign of the remainder
/// decides; where they are in doubt the remainder fits 16 bits, so 16 bits of each product will do.
/// Where they are not, the correction is too small to change the quotient.
template <int kFactor, int kSlack>
HWY_INLINE U16 scaledRatio(I32 pEvenN, I32 pOddN, I32 pEvenD, I32 pOddD) {
  const U32 evenZeros = leadingZeros(pEvenD);
  const U32 oddZeros = leadingZeros(pOddD);
  const U16 n = highWords(shiftLeft(pEvenN, evenZeros), shiftLeft(pOddN, oddZeros));
  const U16 d = highWords(shiftLeft(pEvenD, evenZeros), shiftLeft(pOddD, oddZeros));

  const U16 quotient64 =
      hn::Add(hn::MulHigh(approximateRatio(n, d), words(kFactor * 256)), words(kSlack));
  const U16 dividend = hn::Mul(lowWords(pEvenN, pOddN), words(kFactor));
  const U16 product = hn::Mul(hn::ShiftRight<6>(quotient64), lowWords(pEvenD, pOddD));
  const I16 remainder = hn::BitCast(kI16, hn::Sub(dividend, product));
  const U16 isNegative = hn::BitCast(kU16, hn::ShiftRight<15>(remainder));
  const U16 correction = hn::And(isNegative, words(2 * kSlack));
  return hn::ShiftRight<6>(hn::SaturatedSub(quotient64, correction));
}

// ---- Chroma

/// What hue and saturation take from a vector's U and V, an element for a macro-pixel.
struct Chroma {
  I32 largest, range, rest;
  I32 greenOverRed, blueOverRed, blueOverGreen;  ///< all bits or none
};

HWY_INLINE I32 isOver(I32 pOne, I32 pOther) { return hn::VecFromMask(kI32, hn::Gt(pOne, pOther)); }

/// The three terms are those of the plain loop; green's coefficients are swapped on purpose.
HWY_INLINE Chroma chromaOf(U8 pMacroPixels) {
  const I16 uv = hn::BitCast(
      kI16, hn::TableLookupBytesOr0(pMacroPixels, inAllLanes({1, 128, 3, 128, 5, 128, 7, 128, 9,
                                                              128, 11, 128, 13, 128, 15, 128})));
  const I32 red = multiplyAddWords(hn::Set(kI32, -57119), uv, wordPairs(0, 409));
  const I32 green = multiplyAddWords(hn::Set(kI32, 34657), uv, wordPairs(-208, -100));
  const I32 blue = multiplyAddWords(hn::Set(kI32, -70815), uv, wordPairs(516, 0));

  const I32 over = hn::Max(green, blue);
  const I32 under = hn::Min(green, blue);
  const I32 largest = hn::Max(red, over);
  const I32 middle = hn::Max(under, hn::Min(red, over));
  const I32 smallest = hn::Min(red, under);
  return {
      largest,           hn::Sub(largest, smallest), hn::Sub(middle, smallest), isOver(green, red),
      isOver(blue, red), isOver(blue, green)};
}

/// The hues of a pair, modulo 256: even elements the first vector's, odd ones the second's.
HWY_INLINE U16 hueOf(const Chroma& pFirst, const Chroma& pSecond) {
  const U16 quotient =
      scaledRatio<85, 4>(pFirst.rest, pSecond.rest, hn::Add(pFirst.range, pFirst.range),
                         hn::Add(pSecond.range, pSecond.range));
  const U16 greenOverRed = eitherWords(pFirst.greenOverRed, pSecond.greenOverRed);
  const U16 blueOverRed = eitherWords(pFirst.blueOverRed, pSecond.blueOverRed);
  const U16 blueOverGreen = eitherWords(pFirst.blueOverGreen, pSecond.blueOverGreen);

  // Every other sector runs backwards. Where red is largest that is -quotient - 1, the complement.
  const U16 isBackward = hn::Xor(hn::Xor(greenOverRed, blueOverRed), blueOverGreen);
  const U16 turned = hn::Xor(quotient, isBackward);
  // Else it is the negative number, one more, from 85 for green or -85 for blue.
  const U16 isRedLess = hn::Or(greenOverRed, blueOverRed);
  const U16 corner = hn::Sub(hn::Xor(words(85), blueOverGreen), blueOverGreen);
  const U16 offset = hn::And(isRedLess, hn::Sub(corner, isBackward));
  return hn::And(hn::Add(turned, offset), words(255));
}

/// The saturations of a vector's pixels.
HWY_INLINE U16 saturationOf(U8 pMacroPixels, const Chroma& pChroma) {
  const I16 lumas = hn::BitCast(kI16, hn::And(hn::BitCast(kU16, pMacroPixels), words(255)));
  const auto denominator = [&](I16 pWeights) __attribute__((always_inline)) {
    const I32 channel = multiplyAddWords(pChroma.largest, lumas, pWeights);
    // At range it is 255, the most. Negative ones count as large: they give 0.
    const U32 atLeast = hn::BitCast(kU32, pChroma.range);
    return hn::BitCast(kI32, hn::Max(hn::BitCast(kU32, channel), atLeast));
  };
  return scaledRatio<255, 8>(pChroma.range, pChroma.range, denominator(wordPairs(298, 0)),
                             denominator(wordPairs(0, 298)));
}

// ---- Formats

/// Both pixels' hues of the first or the second vector of a pair, 16 bits each.
template <int kVector>
HWY_INLINE I16 huesOfPixels(U16 pHues) {
  constexpr Byte k = 2 * kVector;
  const U8 order = inAllLanes(
      {k, 128, k, 128, k + 4, 128, k + 4, 128, k + 8, 128, k + 8, 128, k + 12, 128, k + 12, 128});
  return hn::BitCast(kI16, hn::TableLookupBytesOr0(hn::BitCast(kU8, pHues), order));
}

struct HuesAndSaturations {
  U8 first, second;  ///< as in ThreeBytes
  U16 hues;          ///< as of hueOf()
};

HWY_INLINE HuesAndSaturations huesAndSaturations(const Pair& pPair) {
  const Chroma first = chromaOf(pPair.first);
  const Chroma second = chromaOf(pPair.second);
  const U16 hues = hueOf(first, second);
  const I16 firstSaturations = hn::BitCast(kI16, saturationOf(pPair.first, first));
  const I16 secondSaturations = hn::BitCast(kI16, saturationOf(pPair.second, second));
  return {packClamped(huesOfPixels<0>(hues), firstSaturations),
          packClamped(huesOfPixels<1>(hues), secondSaturations), hues};
}

HWY_INLINE ThreeBytes toHSY(const Pair& pPair) {
  const HuesAndSaturations pixels = huesAndSaturations(pPair);
  const U8 lumas = packLowBytes(hn::BitCast(kU16, pPair.first), hn::BitCast(kU16, pPair.second));
  return {pixels.first, pixels.second, lumas};
}

HWY_INLINE ThreeBytes toHSMixed(const Pair& pPair) {
  const HuesAndSaturations pixels = huesAndSaturations(pPair);
  const U8 hues = packClamped(huesOfPixels<0>(pixels.hues), huesOfPixels<1>(pixels.hues));
  return {pixels.first, pixels.second, hues};
}

/// The ramps of the plain loop, with the sums that it takes modulo 256 as they are.
HWY_INLINE ThreeBytes toH2RGB(const Pair& pPair) {
  const I16 hue = hn::BitCast(kI16, hueOf(chromaOf(pPair.first), chromaOf(pPair.second)));
  const I16 hue6 = hn::Mul(hue, hn::Set(kI16, 6));
  const I16 zero = hn::Zero(kI16);
  const I16 full = hn::Set(kI16, 255);
  const auto isAbove = [&](int pHue) __attribute__((always_inline)) {
    return hn::Gt(hue, hn::Set(kI16, static_cast<std::int16_t>(pHue)));
  };
  const auto rising = [&](int pFrom) __attribute__((always_inline)) {
    return hn::Max(hn::Sub(hue6, hn::Set(kI16, static_cast<std::int16_t>(pFrom))), zero);
  };
  const auto falling = [&](int pFrom) __attribute__((always_inline)) {
    return hn::Max(hn::Sub(hn::Set(kI16, static_cast<std::int16_t>(pFrom)), hue6), zero);
  };
  const I16 blue = hn::IfThenElse(isAbove(126), hn::Min(falling(1521), full), rising(510));
  const I16 green = hn::IfThenElse(isAbove(168), zero, hn::Min(hn::Min(hue6, falling(1017)), full));
  const I16 red = hn::IfThenElse(
      isAbove(210), full, hn::IfThenElse(isAbove(84), rising(1014), hn::Min(falling(513), full)));

  const U8 blueAndGreen = hn::BitCast(kU8, hn::Or(blue, hn::ShiftLeft<8>(green)));
  return {hn::TableLookupBytes(blueAndGreen,
                               inAllLanes({0, 0, 4, 4, 8, 8, 12, 12, 1, 1, 5, 5, 9, 9, 13, 13})),
          hn::TableLookupBytes(
              blueAndGreen, inAllLanes({2, 2, 6, 6, 10, 10, 14, 14, 3, 3, 7, 7, 11, 11, 15, 15})),
          hn::TableLookupBytes(hn::BitCast(kU8, red),
                               inAllLanes({0, 0, 4, 4, 8, 8, 12, 12, 2, 2, 6, 6, 10, 10, 14, 14}))};
}

void rowToHSY(const Byte* pSource, Index pStep, Byte* pDestination, Index pCount) {
  convertRow<ThreeBytesBlock<toHSY>>(pSource, pStep, pDestination, pCount, plainRows().toHSY);
}

void rowToHSMixed(const Byte* pSource, Index pStep, Byte* pDestination, Index pCount) {
  convertRow<ThreeBytesBlock<toHSMixed>>(pSource, pStep, pDestination, pCount,
                                         plainRows().toHSMixed);
}

void rowToH2RGB(const Byte* pSource, Index pStep, Byte* pDestination, Index pCount) {
  convertRow<ThreeBytesBlock<toH2RGB>>(pSource, pStep, pDestination, pCount, plainRows().toH2RGB);
}

}  // namespace HWY_NAMESPACE
}  // namespace kernels
}  // namespace OX
HWY_AFTER_NAMESPACE();

#endif  // OX_ROWS_HUE_INL_H
