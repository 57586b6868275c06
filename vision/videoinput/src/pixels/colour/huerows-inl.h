// The hue family: kHSY, kHSMixed, kH2RGB.
//
// The seven cases of the plain loop reduce to this. The saturation is 255 * range / (298 * Y +
// largest), where range is the largest minus the smallest of the three chroma terms. The hue is
// 85 * rest / (2 * range), where rest is the middle one minus the smallest, moved to the sector
// that the order of the three selects. Two terms are equal only for grey, where all three are, so
// the order is unambiguous. All divisions are of the form factor * n / d with n <= d.
#if defined(OX_HUEROWS_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef OX_HUEROWS_INL_H
#undef OX_HUEROWS_INL_H
#else
#define OX_HUEROWS_INL_H
#endif

#include "pixels/simd/vectordivision-inl.h"
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

/// 16 bits for each element, alternating between the even and the odd vector: all set where it is
/// greater than the other, else none.
HWY_INLINE U16 isGreater(I32 pEven, I32 pEvenOther, I32 pOdd, I32 pOddOther) {
  const I32 even = hn::VecFromMask(kI32, hn::Gt(pEven, pEvenOther));
  const I32 odd = hn::VecFromMask(kI32, hn::Gt(pOdd, pOddOther));
  return hn::OddEven(hn::BitCast(kU16, odd), hn::BitCast(kU16, even));
}

// ---- Chroma, hue, saturation

/// What hue and saturation need of a vector's U and V, one element a macro-pixel.
struct Chroma {
  I32 red, green, blue;
  I32 over, under;  ///< the larger and the smaller of green and blue
  I32 largest, range, rest;
};

/// The three terms are those of the plain loop; green's coefficients are swapped on purpose.
class ChromaTerms {
 public:
  HWY_INLINE ChromaTerms()
      : fChroma(broadcastLane({1, 128, 3, 128, 5, 128, 7, 128, 9, 128, 11, 128, 13, 128, 15, 128})),
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
    return {red,
            green,
            blue,
            over,
            under,
            largest,
            hn::Sub(largest, smallest),
            hn::Sub(middle, smallest)};
  }

 private:
  U8 fChroma;
  I16 fRedWeights, fGreenWeights, fBlueWeights;
  I32 fRedOffset, fGreenOffset, fBlueOffset;
};

/// The sector of the hue scale that each of a pair's quotients belongs to: 16 bits each.
struct Sector {
  U16 isBackward;  ///< all bits or none
  U16 less;        ///< to be subtracted
};

/// Hues are 85 * rest / (2 * range), moved to their sector. Even elements are those of a pair's
/// first vector, odd ones those of the second.
class Hue {
 public:
  HWY_INLINE Hue() : fFactor(85), fMinus85(words(-85 & 0xFFFF)) {}

  HWY_INLINE const Factor* factor() const { return &fFactor; }

  static HWY_INLINE Fraction fraction(const FractionMaker& pMaker, const Chroma& pFirst,
                                      const Chroma& pSecond) {
    return pMaker.of(pFirst.rest, pSecond.rest, pFirst.range, pSecond.range);
  }

  HWY_INLINE Sector sector(const Chroma& pFirst, const Chroma& pSecond) const {
    const U16 blueOverGreen = isGreater(pFirst.blue, pFirst.green, pSecond.blue, pSecond.green);
    const U16 isRedSmallest = isGreater(pFirst.under, pFirst.red, pSecond.under, pSecond.red);
    const U16 isRedLess = isGreater(pFirst.over, pFirst.red, pSecond.over, pSecond.red);

    // Every other sector runs backwards. Where red is the largest, that is -quotient - 1.
    const U16 isRedMiddle = hn::Xor(isRedLess, isRedSmallest);
    const U16 isBackward = hn::Xor(isRedMiddle, blueOverGreen);
    // Otherwise it is 85 + quotient or 85 - quotient for green, minus 170 for blue. To subtract for
    // green: -85 or, to undo the -1, -86; for blue the same with all bits inverted, 84 or 85.
    const U16 less = hn::Xor(hn::Add(isRedMiddle, fMinus85), blueOverGreen);
    return {isBackward, hn::And(isRedLess, less)};
  }

  /// The hues, modulo 256, of the quotients in 64ths. Truncating divisions commute, so the one by 2
  /// can be the second.
  static HWY_INLINE U16 toHue(U16 pQuotient64, const Sector& pSector) {
    const U16 half = hn::ShiftRight<7>(pQuotient64);
    return hn::Sub(hn::Xor(half, pSector.isBackward), pSector.less);
  }

 private:
  Factor fFactor;
  U16 fMinus85;
};

/// Saturations are 255 * range / (298 * Y + largest), of the pixels of one vector.
class Saturation {
 public:
  HWY_INLINE Saturation()
      : fFactor(255), fFirstLuma(wordPairs(298, 0)), fSecondLuma(wordPairs(0, 298)) {}

  HWY_INLINE const Factor* factor() const { return &fFactor; }

  HWY_INLINE Fraction fraction(const FractionMaker& pMaker, I16 pLumas,
                               const Chroma& pChroma) const {
    return pMaker.of(pChroma.range, denominator(pLumas, fFirstLuma, pChroma),
                     denominator(pLumas, fSecondLuma, pChroma));
  }

 private:
  /// With a denominator below range the saturation would exceed 255, so that is raised to range. A
  /// negative one counts as large, for a saturation of 0.
  static HWY_INLINE I32 denominator(I16 pLumas, I16 pWeights, const Chroma& pChroma) {
    const I32 channel = multiplyAddWords(pChroma.largest, pLumas, pWeights);
    return hn::BitCast(kI32, hn::Max(hn::BitCast(kU32, channel), hn::BitCast(kU32, pChroma.range)));
  }

  Factor fFactor;
  I16 fFirstLuma, fSecondLuma;
};

// ---- Formats

/// Hues and saturations of a pair.
struct PixelsOfPair {
  U16 hues;  ///< of macro-pixels, alternating between the two vectors; modulo 256
  U16 firstSaturations, secondSaturations;  ///< of pixels
};

class HueAndSaturation {
 public:
  HWY_INLINE HueAndSaturation() : fLowByte(words(255)) {}

  HWY_INLINE PixelsOfPair of(const Pair& pPair) const {
    const Chroma first = fChroma.of(pPair.first);
    const Chroma second = fChroma.of(pPair.second);
    const Sector sector = fHue.sector(first, second);
    const Fraction fractions[] = {Hue::fraction(fMaker, first, second),
                                  fSaturation.fraction(fMaker, lumas(pPair.first), first),
                                  fSaturation.fraction(fMaker, lumas(pPair.second), second)};
    const Factor* const factors[] = {fHue.factor(), fSaturation.factor(), fSaturation.factor()};
    U16 quotients[3];
    fDivision(fractions, factors, quotients);
    return {Hue::toHue(quotients[0], sector), hn::ShiftRight<6>(quotients[1]),
            hn::ShiftRight<6>(quotients[2])};
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
  U16 fLowByte;
};

/// The shared vector has words of hues, one a macro-pixel, alternating between the two vectors; the
/// others have words of saturation and luma, one a pixel. Format says which bytes are hues.
template <typename Format>
struct HueLayout {
  static constexpr bool isShared(Index pByte) { return Format::isHue(pByte); }
  static constexpr Index position(Index pPixel, Index pByte, bool pIsSecond) {
    return isShared(pByte) ? 4 * (pPixel / 2) + 2 * pIsSecond : 2 * pPixel + pByte - 1;
  }
};

struct HSYFormat {
  using Layout = HueLayout<HSYFormat>;
  static constexpr bool isHue(Index pByte) { return pByte == 0; }

  HWY_INLINE HSYFormat() {}

  HWY_INLINE ThreeBytes convert(const Pair& pPair) const {
    const PixelsOfPair pixels = fPixels.of(pPair);
    return {withLumas(pixels.firstSaturations, pPair.first),
            withLumas(pixels.secondSaturations, pPair.second), hn::BitCast(kU8, pixels.hues)};
  }

 private:
  static HWY_INLINE U8 withLumas(U16 pSaturations, U8 pMacroPixels) {
    const U16 lumas = hn::ShiftLeft<8>(hn::BitCast(kU16, pMacroPixels));
    return hn::BitCast(kU8, hn::Or(pSaturations, lumas));
  }

  HueAndSaturation fPixels;
};

struct HSMixedFormat {
  using Layout = HueLayout<HSMixedFormat>;
  static constexpr bool isHue(Index pByte) { return pByte != 1; }

  HWY_INLINE HSMixedFormat() {}

  HWY_INLINE ThreeBytes convert(const Pair& pPair) const {
    const PixelsOfPair pixels = fPixels.of(pPair);
    return {hn::BitCast(kU8, pixels.firstSaturations), hn::BitCast(kU8, pixels.secondSaturations),
            hn::BitCast(kU8, pixels.hues)};
  }

 private:
  HueAndSaturation fPixels;
};

/// The ramps of the plain loop, whose sums modulo 256 are replaced by what they amount to.
class H2RGBFormat {
 public:
  /// Words in the order of the hues: in both own vectors blue in the lower byte and green in the
  /// upper one, in the shared vector red.
  struct Layout {
    static constexpr bool isShared(Index pByte) { return pByte == 2; }
    static constexpr Index position(Index pPixel, Index pByte, bool pIsSecond) {
      return 4 * (pPixel / 2) + 2 * pIsSecond + pByte % 2;
    }
  };

  HWY_INLINE H2RGBFormat() : fLowByte(signedWords(255)), fFull(signedWords(255)) {}

  HWY_INLINE ThreeBytes convert(const Pair& pPair) const {
    const I16 hue = hn::And(hueOf(pPair), fLowByte);
    const I16 hue6 = hn::Add(hn::ShiftLeft<1>(hue), hn::ShiftLeft<2>(hue));
    const I16 blue =
        hn::IfThenElse(isAbove<126>(hue), fallingRamp<1521>(hue6), risingRamp<510>(hue6));
    const I16 green = hn::IfThenZeroElse(isAbove<168>(hue), hn::Min(hue6, fallingRamp<1017>(hue6)));
    const I16 red = hn::IfThenElse(
        isAbove<210>(hue), fFull,
        hn::IfThenElse(isAbove<84>(hue), risingRamp<1014>(hue6), fallingRamp<513>(hue6)));

    const U8 blueAndGreen = hn::BitCast(kU8, hn::Or(blue, hn::ShiftLeft<8>(green)));
    return {blueAndGreen, blueAndGreen, hn::BitCast(kU8, red)};
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
    return hn::BitCast(kI16, Hue::toHue(quotients[0], sector));
  }

  template <int kHue>
  HWY_INLINE hn::Mask<decltype(kI16)> isAbove(I16 pHue) const {
    return hn::Gt(pHue, signedWords(kHue));
  }
  template <int kFrom>
  HWY_INLINE I16 risingRamp(I16 pHue6) const {
    return hn::Max(hn::Sub(pHue6, signedWords(kFrom)), hn::Zero(kI16));
  }
  template <int kFrom>
  HWY_INLINE I16 fallingRamp(I16 pHue6) const {
    const I16 ramp = hn::Sub(signedWords(kFrom), pHue6);
    return hn::Min(hn::Max(ramp, hn::Zero(kI16)), fFull);
  }

  ChromaTerms fChroma;
  FractionMaker fMaker;
  Division fDivision;
  Hue fHue;
  I16 fLowByte, fFull;
};

void rowsToHSY(const Rows& pRows) {
  convertRows<ThreeBytesBlock<HSYFormat>>(pRows, plainRows().toHSY);
}

void rowsToHSMixed(const Rows& pRows) {
  convertRows<ThreeBytesBlock<HSMixedFormat>>(pRows, plainRows().toHSMixed);
}

void rowsToH2RGB(const Rows& pRows) {
  convertRows<ThreeBytesBlock<H2RGBFormat>>(pRows, plainRows().toH2RGB);
}

}  // namespace HWY_NAMESPACE
}  // namespace kernels
}  // namespace OX
HWY_AFTER_NAMESPACE();

#endif  // OX_HUEROWS_INL_H
