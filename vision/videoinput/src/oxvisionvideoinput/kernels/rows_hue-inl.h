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

/// 16 bits for each element of two vectors by turns: all where it is greater than the other, or
/// none.
HWY_INLINE U16 isOver(I32 pEven, I32 pEvenOther, I32 pOdd, I32 pOddOther) {
  const I32 even = hn::VecFromMask(kI32, hn::Gt(pEven, pEvenOther));
  const I32 odd = hn::VecFromMask(kI32, hn::Gt(pOdd, pOddOther));
  return hn::OddEven(hn::BitCast(kU16, odd), hn::BitCast(kU16, even));
}

/// pNumber less pLess where pSign is negative, 0 at least.
HWY_INLINE U16 subtractWhereNegative(U16 pNumber, U16 pSign, U16 pLess) {
  const I16 isNegative = hn::ShiftRight<15>(hn::BitCast(kI16, pSign));
  return hn::SaturatedSub(pNumber, hn::And(hn::BitCast(kU16, isNegative), pLess));
}

// ---- Division

/// Zero bits above the highest one of a number below 2^24: 32 or more for 0. Of negative numbers
/// anything that makes the ratio below about 0.
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

/// Two numbers in 16-bit elements: those of two vectors of 32-bit ones by turns.
struct Fraction {
  U16 n, d;        ///< the upper bits, so that d is 1/2 to 1 in units of 2^-16
  U16 lowN, lowD;  ///< the lower bits
};

/// Makes fractions of 32-bit elements, for 0 <= n <= d < 2^18. Negative d count as large.
/// Halves change places by shuffles, as the units that shift have more than enough to do.
class FractionMaker {
 public:
  HWY_INLINE FractionMaker()
      : fDown(inAllLanes({2, 3, 2, 3, 6, 7, 6, 7, 10, 11, 10, 11, 14, 15, 14, 15})),
        fUp(inAllLanes({0, 1, 0, 1, 4, 5, 4, 5, 8, 9, 8, 9, 12, 13, 12, 13})) {}

  HWY_INLINE Fraction of(I32 pEvenN, I32 pOddN, I32 pEvenD, I32 pOddD) const {
    const U32 even = leadingZeros(pEvenD);
    const U32 odd = leadingZeros(pOddD);
    return {highWords(shiftLeft(pEvenN, even), shiftLeft(pOddN, odd)),
            highWords(shiftLeft(pEvenD, even), shiftLeft(pOddD, odd)), lowWords(pEvenN, pOddN),
            lowWords(pEvenD, pOddD)};
  }

  /// With one n for both.
  HWY_INLINE Fraction of(I32 pN, I32 pEvenD, I32 pOddD) const {
    Fraction fraction = of(pN, pN, pEvenD, pOddD);
    fraction.lowN = hn::BitCast(kU16, hn::TableLookupBytes(hn::BitCast(kU8, pN), fUp));
    return fraction;
  }

 private:
  HWY_INLINE U16 highWords(I32 pEven, I32 pOdd) const {
#if HWY_MAX_BYTES == 64
    return U16{_mm512_mask_shuffle_epi8(pOdd.raw, 0x3333333333333333, pEven.raw, fDown.raw)};
#else
    return hn::OddEven(hn::BitCast(kU16, pOdd),
                       hn::BitCast(kU16, hn::TableLookupBytes(hn::BitCast(kU8, pEven), fDown)));
#endif
  }

  HWY_INLINE U16 lowWords(I32 pEven, I32 pOdd) const {
#if HWY_MAX_BYTES == 64
    return U16{_mm512_mask_shuffle_epi8(pEven.raw, 0xCCCCCCCCCCCCCCCC, pOdd.raw, fUp.raw)};
#else
    return hn::OddEven(hn::BitCast(kU16, hn::TableLookupBytes(hn::BitCast(kU8, pOdd), fUp)),
                       hn::BitCast(kU16, pEven));
#endif
  }

  U8 fDown, fUp;
};

/// What a fraction is multiplied with.
struct Factor {
  HWY_INLINE Factor(int pFactor, int pSlack)
      : factor(words(pFactor)),
        factor256(words(pFactor * 256)),
        slack(words(pSlack)),
        twiceSlack(words(2 * pSlack)) {}

  U16 factor, factor256;
  U16 slack, twiceSlack;  ///< in 64ths
};

/// factor * n / d, truncated, of several fractions; 0 for n = 0.
///
/// An approximation, raised by the slack, is at most twice the slack too large and never too small.
/// So the quotient or one more is known, and the sign of the remainder decides. Where they are in
/// doubt the remainder fits 16 bits, so 16 bits of each product will do; where they are not, the
/// correction is too small to change the quotient, whatever it is.
///
/// Each step is taken for all fractions before the next one: a fraction's own steps wait for each
/// other, and the processor doesn't look far enough ahead to fill the time by itself.
class Division {
 public:
  HWY_INLINE Division() : fSlope(words(55214)), fCurve(words(22774)), fOnes(words(0xFFFF)) {}

  template <int kCount>
  HWY_INLINE void operator()(const Fraction (&pFractions)[kCount],
                             const Factor* const (&pFactors)[kCount],
                             U16 (&pQuotients)[kCount]) const {
    U16 quotient64[kCount], remainder[kCount];
    approximateRatios(pFractions, quotient64);
    for (int i = 0; i < kCount; ++i) {
      quotient64[i] =
          hn::Add(hn::MulHigh(quotient64[i], pFactors[i]->factor256), pFactors[i]->slack);
    }
    for (int i = 0; i < kCount; ++i) {
      const U16 dividend = hn::Mul(pFractions[i].lowN, pFactors[i]->factor);
      const U16 product = hn::Mul(hn::ShiftRight<6>(quotient64[i]), pFractions[i].lowD);
      remainder[i] = hn::Sub(dividend, product);
    }
    for (int i = 0; i < kCount; ++i) {
      pQuotients[i] = hn::ShiftRight<6>(
          subtractWhereNegative(quotient64[i], remainder[i], pFactors[i]->twiceSlack));
    }
  }

 private:
  /// 2^14 * n / d, a little below. A parabola gives 1 / d to 1.5 %, and one step of Newton's method
  /// squares the error.
  template <int kCount>
  HWY_INLINE void approximateRatios(const Fraction (&pFractions)[kCount],
                                    U16 (&pRatios)[kCount]) const {
    U16 t[kCount], slope[kCount], reciprocal[kCount], product[kCount];
    for (int i = 0; i < kCount; ++i) {
      t[i] = hn::Add(pFractions[i].d, pFractions[i].d);  // 2 * d - 1: the leading 1 falls off
      slope[i] = hn::Sub(fSlope, hn::MulHigh(t[i], fCurve));
    }
    for (int i = 0; i < kCount; ++i) {
      reciprocal[i] = hn::Xor(hn::MulHigh(t[i], slope[i]), fOnes);  // 2^15 / d
    }
    for (int i = 0; i < kCount; ++i) {
      product[i] = hn::MulHigh(reciprocal[i], pFractions[i].d);  // near 2^15
      pRatios[i] = hn::MulHigh(reciprocal[i], pFractions[i].n);
    }
    for (int i = 0; i < kCount; ++i) {
      pRatios[i] = hn::MulHigh(pRatios[i], hn::Sub(hn::Zero(kU16), product[i]));
    }
  }

  U16 fSlope, fCurve, fOnes;
};

// ---- Chroma, hue, saturation

/// What hue and saturation take from a vector's U and V, an element for a macro-pixel.
struct Chroma {
  I32 red, green, blue;
  I32 largest, range, rest;
};

/// The three terms are those of the plain loop; green's coefficients are swapped on purpose.
class ChromaTerms {
 public:
  HWY_INLINE ChromaTerms()
      : fChroma(inAllLanes({1, 128, 3, 128, 5, 128, 7, 128, 9, 128, 11, 128, 13, 128, 15, 128})),
        fRedWeights(wordPairs(0, 409)),
        fGreenWeights(wordPairs(-208, -100)),
        fBlueWeights(wordPairs(516, 0)),
        fRedOffset(signedDoubleWords(-57119)),
        fGreenOffset(signedDoubleWords(34657)),
        fBlueOffset(signedDoubleWords(-70815)) {}

  HWY_INLINE Chroma of(U8 pMacroPixels) const {
    const I16 uv = hn::BitCast(kI16, hn::TableLookupBytesOr0(pMacroPixels, fChroma));
    const I32 red = multiplyAddWords(fRedOffset, uv, fRedWeights);
    const I32 green = multiplyAddWords(fGreenOffset, uv, fGreenWeights);
    const I32 blue = multiplyAddWords(fBlueOffset, uv, fBlueWeights);

    const I32 over = hn::Max(green, blue);
    const I32 under = hn::Min(green, blue);
    const I32 largest = hn::Max(red, over);
    const I32 middle = hn::Max(under, hn::Min(red, over));
    const I32 smallest = hn::Min(red, under);
    return {red, green, blue, largest, hn::Sub(largest, smallest), hn::Sub(middle, smallest)};
  }

 private:
  U8 fChroma;
  I16 fRedWeights, fGreenWeights, fBlueWeights;
  I32 fRedOffset, fGreenOffset, fBlueOffset;
};

/// The part of the hue's scale that a pair's quotients belong to: 16 bits each.
struct Sector {
  U16 isBackward;  ///< all bits or none
  U16 offset;
};

/// Hues are 85 * rest / (2 * range), turned to their sector. Of a pair: even elements are the first
/// vector's, odd ones the second's.
class Hue {
 public:
  HWY_INLINE Hue() : fFactor(85, 4), f85(words(85)), fLowByte(words(255)) {}

  HWY_INLINE const Factor* factor() const { return &fFactor; }

  static HWY_INLINE Fraction fraction(const FractionMaker& pMaker, const Chroma& pFirst,
                                      const Chroma& pSecond) {
    return pMaker.of(pFirst.rest, pSecond.rest, hn::Add(pFirst.range, pFirst.range),
                     hn::Add(pSecond.range, pSecond.range));
  }

  HWY_INLINE Sector sector(const Chroma& pFirst, const Chroma& pSecond) const {
    const U16 greenOverRed = isOver(pFirst.green, pFirst.red, pSecond.green, pSecond.red);
    const U16 blueOverRed = isOver(pFirst.blue, pFirst.red, pSecond.blue, pSecond.red);
    const U16 blueOverGreen = isOver(pFirst.blue, pFirst.green, pSecond.blue, pSecond.green);

    // Every other sector runs backwards. Where red is largest that is -quotient - 1.
    const U16 isBackward = hn::Xor(hn::Xor(greenOverRed, blueOverRed), blueOverGreen);
    // Else it is -quotient, one more, from 85 for green or -85 for blue.
    const U16 isRedLess = hn::Or(greenOverRed, blueOverRed);
    const U16 corner = hn::Sub(hn::Xor(f85, blueOverGreen), blueOverGreen);
    return {isBackward, hn::And(isRedLess, hn::Sub(corner, isBackward))};
  }

  /// The hues, modulo 256.
  HWY_INLINE U16 turn(U16 pQuotient, const Sector& pSector) const {
    return hn::And(hn::Add(hn::Xor(pQuotient, pSector.isBackward), pSector.offset), fLowByte);
  }

 private:
  Factor fFactor;
  U16 f85, fLowByte;
};

/// Saturations are 255 * range / (298 * Y + largest), of the pixels of one vector.
class Saturation {
 public:
  HWY_INLINE Saturation()
      : fFactor(255, 8), fFirstLuma(wordPairs(298, 0)), fSecondLuma(wordPairs(0, 298)) {}

  HWY_INLINE const Factor* factor() const { return &fFactor; }

  HWY_INLINE Fraction fraction(const FractionMaker& pMaker, I16 pLumas,
                               const Chroma& pChroma) const {
    return pMaker.of(pChroma.range, denominator(pLumas, fFirstLuma, pChroma),
                     denominator(pLumas, fSecondLuma, pChroma));
  }

 private:
  /// At range the saturation is 255, the most. Negative ones count as large: they give 0.
  static HWY_INLINE I32 denominator(I16 pLumas, I16 pWeights, const Chroma& pChroma) {
    const I32 channel = multiplyAddWords(pChroma.largest, pLumas, pWeights);
    return hn::BitCast(kI32, hn::Max(hn::BitCast(kU32, channel), hn::BitCast(kU32, pChroma.range)));
  }

  Factor fFactor;
  I16 fFirstLuma, fSecondLuma;
};

// ---- Formats

/// 16 bits for each pixel of a pair.
struct PixelsOfPair {
  I16 firstHues, secondHues;
  I16 firstSaturations, secondSaturations;
  I16 firstLumas, secondLumas;
};

class HueAndSaturation {
 public:
  HWY_INLINE HueAndSaturation()
      : fFirst(inAllLanes({0, 128, 0, 128, 4, 128, 4, 128, 8, 128, 8, 128, 12, 128, 12, 128})),
        fSecond(inAllLanes({2, 128, 2, 128, 6, 128, 6, 128, 10, 128, 10, 128, 14, 128, 14, 128})),
        fLowByte(words(255)) {}

  HWY_INLINE PixelsOfPair of(const Pair& pPair) const {
    const I16 firstLumas = lumas(pPair.first);
    const I16 secondLumas = lumas(pPair.second);
    const Chroma first = fChroma.of(pPair.first);
    const Chroma second = fChroma.of(pPair.second);
    const Sector sector = fHue.sector(first, second);
    const Fraction fractions[] = {Hue::fraction(fMaker, first, second),
                                  fSaturation.fraction(fMaker, firstLumas, first),
                                  fSaturation.fraction(fMaker, secondLumas, second)};
    const Factor* const factors[] = {fHue.factor(), fSaturation.factor(), fSaturation.factor()};
    U16 quotients[3];
    fDivision(fractions, factors, quotients);
    const U8 hues = hn::BitCast(kU8, fHue.turn(quotients[0], sector));
    return {hn::BitCast(kI16, hn::TableLookupBytesOr0(hues, fFirst)),
            hn::BitCast(kI16, hn::TableLookupBytesOr0(hues, fSecond)),
            hn::BitCast(kI16, quotients[1]),
            hn::BitCast(kI16, quotients[2]),
            firstLumas,
            secondLumas};
  }

 private:
  HWY_INLINE I16 lumas(U8 pMacroPixels) const {
    return hn::BitCast(kI16, hn::And(hn::BitCast(kU16, pMacroPixels), fLowByte));
  }

  ChromaTerms fChroma;
  FractionMaker fMaker;
  Division fDivision;
  Hue fHue;
  Saturation fSaturation;
  U8 fFirst, fSecond;
  U16 fLowByte;
};

struct HSYFormat {
  HWY_INLINE HSYFormat() {}

  HWY_INLINE ThreeBytes convert(const Pair& pPair) const {
    const PixelsOfPair pixels = fPixels.of(pPair);
    return {packClamped(pixels.firstHues, pixels.firstSaturations),
            packClamped(pixels.secondHues, pixels.secondSaturations),
            packClamped(pixels.firstLumas, pixels.secondLumas)};
  }
  HueAndSaturation fPixels;
};

struct HSMixedFormat {
  HWY_INLINE HSMixedFormat() {}

  HWY_INLINE ThreeBytes convert(const Pair& pPair) const {
    const PixelsOfPair pixels = fPixels.of(pPair);
    return {packClamped(pixels.firstHues, pixels.firstSaturations),
            packClamped(pixels.secondHues, pixels.secondSaturations),
            packClamped(pixels.firstHues, pixels.secondHues)};
  }
  HueAndSaturation fPixels;
};

/// The ramps of the plain loop, with the sums that it takes modulo 256 as they are.
class H2RGBFormat {
 public:
  HWY_INLINE H2RGBFormat()
      : fFirst(inAllLanes({0, 0, 4, 4, 8, 8, 12, 12, 1, 1, 5, 5, 9, 9, 13, 13})),
        fSecond(inAllLanes({2, 2, 6, 6, 10, 10, 14, 14, 3, 3, 7, 7, 11, 11, 15, 15})),
        fThird(inAllLanes({0, 0, 4, 4, 8, 8, 12, 12, 2, 2, 6, 6, 10, 10, 14, 14})),
        fFull(signedWords(255)) {}

  HWY_INLINE ThreeBytes convert(const Pair& pPair) const {
    const I16 hue = hueOf(pPair);
    const I16 hue6 = hn::Add(hn::ShiftLeft<1>(hue), hn::ShiftLeft<2>(hue));
    const I16 blue = hn::IfThenElse(isAbove<126>(hue), falling<1521>(hue6), rising<510>(hue6));
    const I16 green = hn::IfThenZeroElse(isAbove<168>(hue), hn::Min(hue6, falling<1017>(hue6)));
    const I16 red =
        hn::IfThenElse(isAbove<210>(hue), fFull,
                       hn::IfThenElse(isAbove<84>(hue), rising<1014>(hue6), falling<513>(hue6)));

    const U8 blueAndGreen = hn::BitCast(kU8, hn::Or(blue, hn::ShiftLeft<8>(green)));
    return {hn::TableLookupBytes(blueAndGreen, fFirst), hn::TableLookupBytes(blueAndGreen, fSecond),
            hn::TableLookupBytes(hn::BitCast(kU8, red), fThird)};
  }

 private:
  HWY_INLINE I16 hueOf(const Pair& pPair) const {
    const Chroma first = fChroma.of(pPair.first);
    const Chroma second = fChroma.of(pPair.second);
    const Sector sector = fHue.sector(first, second);
    const Fraction fractions[] = {Hue::fraction(fMaker, first, second)};
    const Factor* const factors[] = {fHue.factor()};
    U16 quotients[1];
    fDivision(fractions, factors, quotients);
    return hn::BitCast(kI16, fHue.turn(quotients[0], sector));
  }

  template <int kHue>
  HWY_INLINE hn::Mask<decltype(kI16)> isAbove(I16 pHue) const {
    return hn::Gt(pHue, signedWords(kHue));
  }
  template <int kFrom>
  HWY_INLINE I16 rising(I16 pHue6) const {
    return hn::Max(hn::Sub(pHue6, signedWords(kFrom)), hn::Zero(kI16));
  }
  template <int kFrom>
  HWY_INLINE I16 falling(I16 pHue6) const {
    const I16 ramp = hn::Sub(signedWords(kFrom), pHue6);
    return hn::Min(hn::Max(ramp, hn::Zero(kI16)), fFull);
  }

  ChromaTerms fChroma;
  FractionMaker fMaker;
  Division fDivision;
  Hue fHue;
  U8 fFirst, fSecond, fThird;
  I16 fFull;
};

void rowToHSY(const Byte* pSource, Index pStep, Byte* pDestination, Index pCount) {
  convertRow<ThreeBytesBlock<HSYFormat>>(pSource, pStep, pDestination, pCount, plainRows().toHSY);
}

void rowToHSMixed(const Byte* pSource, Index pStep, Byte* pDestination, Index pCount) {
  convertRow<ThreeBytesBlock<HSMixedFormat>>(pSource, pStep, pDestination, pCount,
                                             plainRows().toHSMixed);
}

void rowToH2RGB(const Byte* pSource, Index pStep, Byte* pDestination, Index pCount) {
  convertRow<ThreeBytesBlock<H2RGBFormat>>(pSource, pStep, pDestination, pCount,
                                           plainRows().toH2RGB);
}

}  // namespace HWY_NAMESPACE
}  // namespace kernels
}  // namespace OX
HWY_AFTER_NAMESPACE();

#endif  // OX_ROWS_HUE_INL_H
