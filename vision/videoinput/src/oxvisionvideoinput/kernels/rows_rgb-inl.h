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
#include "vector_rows-inl.h"

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

/// kFactor / 256 of a byte, rounded down, plus kOffset. The byte is the upper one of its element,
/// whose lower one is 0. The high half of a product keeps the compiler from shifts and adds.
template <int kFactor, int kOffset>
class Scale {
 public:
  HWY_INLINE Scale() : fFactor(words(kFactor)), fOffset(signedWords(kOffset)) {}

  HWY_INLINE I16 operator()(U16 pUpperByte) const {
    return hn::Add(hn::BitCast(kI16, hn::MulHigh(pUpperByte, fFactor)), fOffset);
  }

 private:
  U16 fFactor;
  I16 fOffset;
};

class RGBChannels {
 public:
  HWY_INLINE RGBChannels()
      : fChromaOfPixels(inAllLanes({1, 3, 1, 3, 5, 7, 5, 7, 9, 11, 9, 11, 13, 15, 13, 15})),
        fUpperByte(words(0xFF00)),
        fGreenWeights(bytePairs(-25, -52)),
        fGreenOffset(signedWords(-149 * 8 + (25 + 52) * 128 - kLumaOffset / 2)) {}

  HWY_INLINE Channels of(U8 pMacroPixels) const {
    const I16 halfLuma = fLuma(hn::ShiftLeft<8>(hn::BitCast(kU16, pMacroPixels)));
    const I16 quarterLuma = hn::ShiftRight<1>(halfLuma);

    const U8 uv = hn::TableLookupBytes(pMacroPixels, fChromaOfPixels);
    const I16 redTerm = fRed(hn::And(hn::BitCast(kU16, uv), fUpperByte));
    const I16 greenTerm = hn::Add(multiplyAddBytes(uv, fGreenWeights), fGreenOffset);
    const I16 blueTerm = fBlue(hn::ShiftLeft<8>(hn::BitCast(kU16, uv)));

    return {hn::ShiftRight<7>(hn::SaturatedAdd(halfLuma, redTerm)),
            hn::ShiftRight<6>(hn::Add(quarterLuma, greenTerm)),
            hn::ShiftRight<6>(hn::SaturatedAdd(quarterLuma, blueTerm))};
  }

 private:
  static constexpr int kLumaOffset = -8192;  // a multiple of 2; lets red's two terms fit

  // The other offsets: -16 of luma, -128 of chroma, less what the luma term has.
  Scale<149 * 256, kLumaOffset> fLuma;
  Scale<409 * 128, -149 * 16 - 409 * 64 - kLumaOffset> fRed;
  Scale<129 * 256, -149 * 8 - 129 * 128 - kLumaOffset / 2> fBlue;
  U8 fChromaOfPixels;
  U16 fUpperByte;
  I8 fGreenWeights;
  I16 fGreenOffset;
};

/// In each lane the first channel of eight pixels and then the second; the third of the first
/// vector's and of the second's.
struct PlaceOfChannels {
  static constexpr bool isInBoth(Index pByte) { return pByte == 2; }
  static constexpr Index place(Index pPixel, Index pByte, bool pIsSecond) {
    const bool isUpperHalf = isInBoth(pByte) ? pIsSecond : pByte == 1;
    return pPixel / 8 * kLaneBytes + 8 * isUpperHalf + pPixel % 8;
  }
};

struct RGBFormat {
  using Place = PlaceOfChannels;
  HWY_INLINE RGBFormat() {}

  HWY_INLINE ThreeBytes convert(const Pair& pPair) const {
    const Channels first = fChannels.of(pPair.first);
    const Channels second = fChannels.of(pPair.second);
    return {packClamped(first.red, first.green), packClamped(second.red, second.green),
            packClamped(first.blue, second.blue)};
  }
  RGBChannels fChannels;
};

struct BGRFormat {
  using Place = PlaceOfChannels;
  HWY_INLINE BGRFormat() {}

  HWY_INLINE ThreeBytes convert(const Pair& pPair) const {
    const Channels first = fChannels.of(pPair.first);
    const Channels second = fChannels.of(pPair.second);
    return {packClamped(first.blue, first.green), packClamped(second.blue, second.green),
            packClamped(first.red, second.red)};
  }
  RGBChannels fChannels;
};

void rowsToRGB(const Rows& pRows) {
  convertRows<ThreeBytesBlock<RGBFormat>>(pRows, plainRows().toRGB);
}

void rowsToBGR(const Rows& pRows) {
  convertRows<ThreeBytesBlock<BGRFormat>>(pRows, plainRows().toBGR);
}

}  // namespace HWY_NAMESPACE
}  // namespace kernels
}  // namespace OX
HWY_AFTER_NAMESPACE();

#endif  // OX_ROWS_RGB_INL_H
