// RGB pixels in vectors, and their conversion to YUV422.
//
// A channel is two multiply-adds of bytes, over (red, green) and (blue, green): green's 129 in the
// luma exceeds a signed byte, so it is split between the two. The sums with their offsets stay
// below 2^16, and the result is their upper byte. Chroma is computed as its complement, because the
// processor's mean of bytes rounds up and ours must round down.
#if defined(OX_RESAMPLINGCOLOURS_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef OX_RESAMPLINGCOLOURS_INL_H
#undef OX_RESAMPLINGCOLOURS_INL_H
#else
#define OX_RESAMPLINGCOLOURS_INL_H
#endif

#include "pixels/simd/vectorsteps-inl.h"

HWY_BEFORE_NAMESPACE();
#if OX_USES_VNNI
#pragma GCC target("avx512vnni,avx512cd")
#endif
namespace OX {
namespace resampling {
namespace HWY_NAMESPACE {

using namespace OX::HWY_NAMESPACE;

constexpr int kLumaOffset = 128 + 16 * 256;
/// 2^16 - 1 minus chroma's own offset.
constexpr int kComplementOffset = 0xFFFF - 128 - 128 * 256;

#if OX_USES_VNNI

constexpr Index kColours = kVectorBytes / 4;

/// Colours of kColours pixels, in order: red, green, blue, green.
struct Colours {
  U8 rgbg;
};

/// Channels of as many pixels: byte 1 of each element. The chroma is complemented.
struct Channels {
  U32 luma, blueChroma, redChroma;
};

/// A channel: the sum of the four products of each element and an offset.
class Channel {
 public:
  HWY_INLINE Channel(int pOffset, int pRed, int pGreen, int pBlue, int pMoreGreen)
      : fWeights(hn::BitCast(
            kU32, wordPairs((pRed & 255) | pGreen << 8, (pBlue & 255) | pMoreGreen << 8))),
        fOffset(doubleWords(static_cast<std::uint32_t>(pOffset))) {}

  HWY_INLINE U32 of(const Colours& pColours) const {
    return U32{_mm512_dpbusd_epi32(fOffset.raw, pColours.rgbg.raw, fWeights.raw)};
  }

 private:
  U32 fWeights, fOffset;
};

/// Stores Y U Y V of pairs, in order.
HWY_INLINE void storePairs(const Channels& pLeft, const Channels& pRight, Byte* pTarget) {
  const auto mean = [](U32 pOne, U32 pOther) __attribute__((always_inline)) {
    return hn::AverageRound(hn::BitCast(kU8, pOne), hn::BitCast(kU8, pOther));
  };
  const U32 lowByte = hn::Set(kU32, 0x00FF00FF);
  const U32 u = hn::BitCast(kU32, mean(pLeft.blueChroma, pRight.blueChroma));
  const U32 v = hn::BitCast(kU32, mean(pLeft.redChroma, pRight.redChroma));
  const auto select = [=](U32 pLuma, U32 pComplement) __attribute__((always_inline)) {
    // pLuma where lowByte is set, else the complement's complement.
    return U32{_mm512_ternarylogic_epi32(lowByte.raw, pLuma.raw, pComplement.raw, 0xC5)};
  };
  const U32 left = select(hn::ShiftRight<8>(pLeft.luma), u);
  const U32 right = select(hn::ShiftRight<8>(pRight.luma), v);
  const U32 pairs = hn::BitCast(
      kU32, hn::OddEven(hn::BitCast(kU16, hn::ShiftLeft<16>(right)), hn::BitCast(kU16, left)));
  hn::StoreU(hn::BitCast(kU8, pairs), kU8, pTarget);
}

#else

constexpr Index kColours = kVectorBytes / 2;

/// Colours of kColours pixels: in each lane eight pixels in order.
struct Colours {
  U8 rg, bg;
};

/// Channels of as many pixels: byte 1 of each element. The chroma is complemented.
struct Channels {
  U16 luma, blueChroma, redChroma;
};

/// A channel: the sum of the products with both vectors of bytes and an offset.
class Channel {
 public:
  HWY_INLINE Channel(int pOffset, int pRed, int pGreen, int pBlue, int pMoreGreen)
      : fRedGreen(bytePairs(pRed, pGreen)),
        fBlueGreen(bytePairs(pBlue, pMoreGreen)),
        fOffset(words(pOffset)) {}

  HWY_INLINE U16 of(const Colours& pColours) const {
    const I16 sum = hn::Add(multiplyAddBytes(pColours.rg, fRedGreen),
                            multiplyAddBytes(pColours.bg, fBlueGreen));
    return hn::Add(hn::BitCast(kU16, sum), fOffset);
  }

 private:
  I8 fRedGreen, fBlueGreen;
  U16 fOffset;
};

/// Y U of left and Y V of right pixels in two vectors.
HWY_INLINE void storePairs(const Channels& pLeft, const Channels& pRight, Byte* pTarget) {
  const auto join = [](U16 pLuma, U16 pOne, U16 pOther) __attribute__((always_inline)) {
    const U16 complement =
        hn::BitCast(kU16, hn::AverageRound(hn::BitCast(kU8, pOne), hn::BitCast(kU8, pOther)));
    return hn::Or(hn::ShiftRight<8>(pLuma), hn::AndNot(complement, hn::Set(kU16, 0xFF00)));
  };
  const U16 left = join(pLeft.luma, pLeft.blueChroma, pRight.blueChroma);
  const U16 right = join(pRight.luma, pLeft.redChroma, pRight.redChroma);
  const U8 low = hn::BitCast(kU8, hn::InterleaveLower(kU16, left, right));
  const U8 high = hn::BitCast(kU8, hn::InterleaveUpper(kU16, left, right));
#if HWY_MAX_BYTES == 32
  hn::StoreU(hn::ConcatLowerLower(kU8, high, low), kU8, pTarget);
  hn::StoreU(hn::ConcatUpperUpper(kU8, high, low), kU8, pTarget + kVectorBytes);
#else
  storeLanes(low, pTarget, 2 * kLaneBytes);
  storeLanes(high, pTarget + kLaneBytes, 2 * kLaneBytes);
#endif
}

#endif

class Converter {
 public:
  HWY_INLINE Converter()
      : fLuma(kLumaOffset, 66, 60, 25, 69),
        fBlueChroma(kComplementOffset, 38, 74, -112, 0),
        fRedChroma(kComplementOffset, -112, 94, 18, 0) {}

  HWY_INLINE Channels of(const Colours& pColours) const {
    return {fLuma.of(pColours), fBlueChroma.of(pColours), fRedChroma.of(pColours)};
  }

 private:
  Channel fLuma, fBlueChroma, fRedChroma;
};

}  // namespace HWY_NAMESPACE
}  // namespace resampling
}  // namespace OX
HWY_AFTER_NAMESPACE();

#endif  // OX_RESAMPLINGCOLOURS_INL_H
