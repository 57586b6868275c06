// Exact division of small integers in lanes: factor * n / d, truncated, for 0 <= n <= d < 2^18 and
// factors below 256. Quotients are 16-bit integers: a vector holds twice as many of them as floats.
#if defined(OX_VECTORDIVISION_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef OX_VECTORDIVISION_INL_H
#undef OX_VECTORDIVISION_INL_H
#else
#define OX_VECTORDIVISION_INL_H
#endif

#include "vectorsteps-inl.h"

HWY_BEFORE_NAMESPACE();
#if OX_USES_VNNI
#pragma GCC target("avx512vnni,avx512cd")
#endif
namespace OX {
namespace HWY_NAMESPACE {

/// Zero bits above the highest set one of a number below 2^24; 32 or more for 0. For negative
/// numbers any count that makes the ratio below about 0.
HWY_INLINE U32 leadingZeros(I32 pNumber) {
#if OX_USES_VNNI
  return U32{_mm512_lzcnt_epi32(pNumber.raw)};
#else
  // From the exponent of the number as a float: the conversion is exact.
  const auto asFloat = hn::ConvertTo(hn::RebindToFloat<decltype(kI32)>(), pNumber);
  return hn::Sub(hn::Set(kU32, 158), hn::ShiftRight<23>(hn::BitCast(kU32, asFloat)));
#endif
}

/// Shifts each element by its own count; 0 for counts of 32 and more.
HWY_INLINE I32 shiftLeft(I32 pNumber, U32 pBits) {
  const I32 shifted = pNumber << hn::BitCast(kI32, pBits);
#if HWY_TARGET == HWY_SSE4
  // Highway multiplies by a power of two here, which works for counts below 32 only.
  const U32 excess = hn::AndNot(hn::Set(kU32, 31), pBits);
  return hn::And(shifted, hn::VecFromMask(kI32, hn::Eq(hn::BitCast(kI32, excess), hn::Zero(kI32))));
#else
  return shifted;
#endif
}

/// Numerators and denominators in 16-bit elements, alternating between those of two vectors of
/// 32-bit elements.
struct Fraction {
  U16 n, d;        ///< the upper bits, so that d is 1/2 to 1 in units of 2^-16
  U16 lowN, lowD;  ///< the lower bits
};

/// Makes fractions of 32-bit elements, for 0 <= n <= d < 2^18. A negative d counts as large. Halves
/// are moved by shuffles, since the execution units that shift are busy already.
class FractionMaker {
 public:
  HWY_INLINE FractionMaker()
      : fDown(broadcastLane({2, 3, 2, 3, 6, 7, 6, 7, 10, 11, 10, 11, 14, 15, 14, 15})),
        fUp(broadcastLane({0, 1, 0, 1, 4, 5, 4, 5, 8, 9, 8, 9, 12, 13, 12, 13})) {}

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

/// What a fraction is multiplied by, below 256.
struct Factor {
  HWY_INLINE explicit Factor(int pFactor)
      : factor(words(pFactor)), factor256(words(pFactor * 256)) {}

  U16 factor, factor256;
};

/// factor * n / d of several fractions, in 64ths: the integer part is exact, the rest is not. 0 for
/// n = 0.
///
/// A line approximates 1 / d to 7 %, and a parabola of the error corrects that to 1 in 4000. The
/// approximate quotient, in 64ths, is never below the true one and less than 15 of them above it:
/// the integer part is right or one too large, and the remainder decides. 16 bits of the remainder
/// are enough. A negative one, above -15/64 of a divisor below 2^18, has more 4096s in these 16
/// bits than the quotient has 64ths above its integer part, so subtracting as many makes the
/// integer one less. One that isn't negative has fewer, whether it fits 16 bits or not, and leaves
/// the integer as it is.
///
/// Each step is done for all fractions before the next one: a fraction's own steps depend on each
/// other, and the processor doesn't look far enough ahead to interleave them by itself.
class Division {
 public:
  HWY_INLINE Division() : fLine(words(96000 & 0xFFFF)), fParabola(words(32831)), fSlack(words(5)) {}

  template <int kCount>
  HWY_INLINE void operator()(const Fraction (&pFractions)[kCount],
                             const Factor* const (&pFactors)[kCount],
                             U16 (&pQuotients)[kCount]) const {
    U16 remainder[kCount];
    approximateRatios(pFractions, pQuotients);
    for (int i = 0; i < kCount; ++i) {
      pQuotients[i] = hn::Add(hn::MulHigh(pQuotients[i], pFactors[i]->factor256), fSlack);
    }
    for (int i = 0; i < kCount; ++i) {
      const U16 dividend = hn::Mul(pFractions[i].lowN, pFactors[i]->factor);
      const U16 product = hn::Mul(hn::ShiftRight<6>(pQuotients[i]), pFractions[i].lowD);
      remainder[i] = hn::Sub(dividend, product);
    }
    for (int i = 0; i < kCount; ++i) {
      pQuotients[i] = hn::SaturatedSub(pQuotients[i], hn::ShiftRight<12>(remainder[i]));
    }
  }

 private:
  /// 2^14 * n / d, to 1 in 4000 and 5 units.
  template <int kCount>
  HWY_INLINE void approximateRatios(const Fraction (&pFractions)[kCount],
                                    U16 (&pRatios)[kCount]) const {
    U16 line[kCount], product[kCount], parabola[kCount];
    for (int i = 0; i < kCount; ++i) {
      line[i] = hn::Sub(fLine, pFractions[i].d);  // near 2^15 / d
    }
    for (int i = 0; i < kCount; ++i) {
      product[i] = hn::MulHigh(line[i], pFractions[i].d);  // 2^15 * p, p near 1
      pRatios[i] = hn::MulHigh(line[i], pFractions[i].n);
    }
    for (int i = 0; i < kCount; ++i) {
      const I16 error = hn::BitCast(kI16, hn::Sub(fParabola, product[i]));
      parabola[i] = hn::BitCast(kU16, hn::MulFixedPoint15(error, error));
    }
    for (int i = 0; i < kCount; ++i) {
      // 1 / p is near (1.002 - p)^2 - p + 2, and 2^15 times 2 falls off.
      pRatios[i] = hn::MulHigh(pRatios[i], hn::Sub(parabola[i], product[i]));
    }
  }

  U16 fLine, fParabola, fSlack;
};

}  // namespace HWY_NAMESPACE
}  // namespace OX
HWY_AFTER_NAMESPACE();

#endif  // OX_VECTORDIVISION_INL_H
