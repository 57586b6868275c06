// kRGB and kBGR in 16-bit elements, two a macro-pixel, with 128 subtracted from Y, U and V.
//
// A channel is (298 * (Y - 16) + chroma) >> 8 which, as Y's factor is even, equals
// (149 * (Y - 16) + floor(chroma / 2)) >> 7. Where the chroma's factors are multiples of 4, as for
// green and blue, it also equals (floor(149 * (Y - 16) / 2) + chroma / 4) >> 6. Sums beyond 16 bits
// saturate: those are far below 0 or above 255 << 7, and clamped in any case. The exhaustive test
// covers every combination.
#if defined(OX_RGBROWS_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef OX_RGBROWS_INL_H
#undef OX_RGBROWS_INL_H
#else
#define OX_RGBROWS_INL_H
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

/// Channels of a vector's pixels, not clamped.
struct Channels {
  I16 red, green, blue;
};

class RGBChannels {
 public:
  HWY_INLINE RGBChannels()
      : fMiddle(hn::BitCast(kU8, words(0x8080))),
        fChromaOfPixels(broadcastLane({1, 3, 1, 3, 5, 7, 5, 7, 9, 11, 9, 11, 13, 15, 13, 15})),
        fLuma(unsignedBytePairs(149, 0)),
        fRed(unsignedBytePairs(0, 204)),
        fGreen(unsignedBytePairs(25, 52)),
        fBlue(unsignedBytePairs(129, 0)),
        fHalfOffset(signedWords(298 * (128 - 16) / 2)),
        fQuarterOffset(signedWords(298 * (128 - 16) / 4)) {}

  HWY_INLINE Channels of(U8 pMacroPixels) const {
    const U8 centred = hn::Xor(pMacroPixels, fMiddle);
    const I16 halfLuma = multiplyAddBytes(fLuma, hn::BitCast(kI8, centred));
    const I16 quarterLuma = hn::Add(hn::ShiftRight<1>(halfLuma), fQuarterOffset);

    const I8 uv = hn::BitCast(kI8, hn::TableLookupBytes(centred, fChromaOfPixels));
    // Half of 409 * V is 204 * V plus half of V, the upper byte. U, the lower byte, can't carry
    // into it.
    const I16 halfRed =
        hn::Add(multiplyAddBytes(fRed, uv), hn::ShiftRight<9>(hn::BitCast(kI16, uv)));
    const I16 red = hn::SaturatedAdd(hn::SaturatedAdd(halfLuma, halfRed), fHalfOffset);
    const I16 green = hn::Sub(quarterLuma, multiplyAddBytes(fGreen, uv));
    const I16 blue = hn::SaturatedAdd(quarterLuma, multiplyAddBytes(fBlue, uv));
    return {hn::ShiftRight<7>(red), hn::ShiftRight<6>(green), hn::ShiftRight<6>(blue)};
  }

 private:
  U8 fMiddle, fChromaOfPixels;
  U8 fLuma, fRed, fGreen, fBlue;
  I16 fHalfOffset, fQuarterOffset;
};

using Channel = I16 Channels::*;

/// Green between the two other channels.
template <Channel kFirst, Channel kThird>
struct ChannelsFormat {
  /// Each lane has the first channel of eight pixels and then the second; in the shared vector, the
  /// third channel of eight pixels of the first vector and then of the second.
  struct Layout {
    static constexpr bool isShared(Index pByte) { return pByte == 2; }
    static constexpr Index position(Index pPixel, Index pByte, bool pIsSecond) {
      const bool isUpperHalf = isShared(pByte) ? pIsSecond : pByte == 1;
      return pPixel / 8 * kLaneBytes + 8 * isUpperHalf + pPixel % 8;
    }
  };

  HWY_INLINE ChannelsFormat() {}

  HWY_INLINE ThreeBytes convert(const Pair& pPair) const {
    const Channels first = fChannels.of(pPair.first);
    const Channels second = fChannels.of(pPair.second);
    return {packClamped(first.*kFirst, first.green), packClamped(second.*kFirst, second.green),
            packClamped(first.*kThird, second.*kThird)};
  }

 private:
  RGBChannels fChannels;
};

using RGBFormat = ChannelsFormat<&Channels::red, &Channels::blue>;
using BGRFormat = ChannelsFormat<&Channels::blue, &Channels::red>;

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

#endif  // OX_RGBROWS_INL_H
