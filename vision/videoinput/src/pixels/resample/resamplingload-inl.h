// Loads RGB pixels that are adjacent or apart. Pixels that are apart are loaded with the byte that
// follows each, so callers leave the last one of a row to the plain loop.
#if defined(OX_RESAMPLINGLOAD_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef OX_RESAMPLINGLOAD_INL_H
#undef OX_RESAMPLINGLOAD_INL_H
#else
#define OX_RESAMPLINGLOAD_INL_H
#endif

#include <array>
#include <utility>

#include "resamplingcolours-inl.h"

HWY_BEFORE_NAMESPACE();
#if OX_USES_VNNI
#pragma GCC target("avx512vnni,avx512cd")
#endif
namespace OX {
namespace resampling {
namespace HWY_NAMESPACE {

/// Left and right pixels of kColours pairs.
struct PairColours {
  Colours left, right;
};

#if OX_USES_VNNI

using Pattern = std::array<Byte, kVectorBytes>;

/// The bytes red, green, blue, green of pixels; pOffsetOf(pixel) is the byte at which each starts.
template <typename Offset>
constexpr Pattern coloursAt(Offset pOffsetOf) {
  Pattern pattern{};
  for (Index i = 0; i < kVectorBytes; ++i) {
    constexpr Index kOrder[] = {0, 1, 2, 1};
    pattern[i] = static_cast<Byte>(pOffsetOf(i / 4) + kOrder[i % 4]);
  }
  return pattern;
}

HWY_INLINE __m512i permute(__m512i pBytes, const Pattern& pPattern) {
  return _mm512_permutexvar_epi8(_mm512_loadu_si512(pPattern.data()), pBytes);
}

/// Pixels side by side.
HWY_INLINE Colours loadColours(const Byte* pFrom) {
  static constexpr Pattern kInOrder = coloursAt([](Index pPixel) { return 3 * pPixel; });
  const auto bytes = _mm512_maskz_loadu_epi8((1ULL << 3 * kColours) - 1, pFrom);
  return {U8{permute(bytes, kInOrder)}};
}

/// Pixels that are kStride bytes apart, a multiple of 4. Load i starts so that its pixels are the
/// elements i, i + kStride / 4 and so on; the mask keeps other elements from being read.
template <int kStride>
HWY_INLINE Colours loadColoursApart(const Byte* pFrom) {
  constexpr int kApart = kStride / 4;
  constexpr auto kMaskOf = [](int pLoad) {
    std::uint32_t mask = 0;
    for (int i = pLoad; i < kColours; i += kApart) mask |= 1u << i;
    return static_cast<__mmask16>(mask);
  };
  constexpr auto kFirstPixelOf = [](int pLoad) {
    int pixels = 0;
    for (int load = 0; load < pLoad; ++load) pixels += (kColours - 1 - load) / kApart + 1;
    return pixels;
  };
  static constexpr Pattern kInOrder = coloursAt([=](Index pPixel) {
    int load = 0;
    while (kFirstPixelOf(load + 1) <= pPixel) ++load;
    return 4 * (load + kApart * (pPixel - kFirstPixelOf(load)));
  });
  const auto load = [=]<int... kLoads>(std::integer_sequence<int, kLoads...>)
      __attribute__((always_inline)) {
    __m512i elements = _mm512_setzero_si512();
    ((elements = _mm512_mask_loadu_epi32(elements, kMaskOf(kLoads),
                                         pFrom + kStride * kFirstPixelOf(kLoads) - 4 * kLoads)),
     ...);
    return elements;
  };
  constexpr int kLoads = kApart < kColours ? kApart : kColours;
  return {U8{permute(load(std::make_integer_sequence<int, kLoads>()), kInOrder)}};
}

constexpr Index kSecondLoad = 6 * kColours - kVectorBytes;  ///< where the second load starts
constexpr Index kInFirstLoad = 10;                          ///< pairs that the first load has whole

constexpr Index offsetOfPair(Index pPair) {
  return 6 * pPair - (pPair < kInFirstLoad ? 0 : kSecondLoad);
}
constexpr Pattern kLeftOfPairs = coloursAt(offsetOfPair);
constexpr Pattern kRightOfPairs = coloursAt([](Index pPair) { return offsetOfPair(pPair) + 3; });

/// Adjacent pairs of pixels: left and right ones from two loads that overlap and end with the
/// pairs.
class PairLoader {
 public:
  HWY_INLINE PairLoader()
      : fLeft(hoist(hn::LoadU(kU8, kLeftOfPairs.data()))),
        fRight(hoist(hn::LoadU(kU8, kRightOfPairs.data()))) {}

  HWY_INLINE PairColours load(const Byte* pFrom) const {
    const auto first = _mm512_loadu_si512(pFrom);
    const auto second = _mm512_loadu_si512(pFrom + kSecondLoad);
    return {{permuteBoth(first, second, fLeft)}, {permuteBoth(first, second, fRight)}};
  }

 private:
  static HWY_INLINE U8 permuteBoth(__m512i pFirst, __m512i pSecond, U8 pOrder) {
    constexpr __mmask64 kInSecond = ~0ULL << 4 * kInFirstLoad;
    return U8{_mm512_mask_permutexvar_epi8(_mm512_permutexvar_epi8(pOrder.raw, pFirst), kInSecond,
                                           pOrder.raw, pSecond)};
  }

  U8 fLeft, fRight;
};

#else

constexpr hn::Repartition<std::uint64_t, decltype(kU8)> kHalves;

/// The lower halves of both vectors' lanes.
HWY_INLINE U8 lowerHalves(U8 pFirst, U8 pSecond) {
  return hn::BitCast(kU8, hn::InterleaveLower(kHalves, hn::BitCast(kHalves, pFirst),
                                              hn::BitCast(kHalves, pSecond)));
}
HWY_INLINE U8 upperHalves(U8 pFirst, U8 pSecond) {
  return hn::BitCast(kU8, hn::InterleaveUpper(kHalves, hn::BitCast(kHalves, pFirst),
                                              hn::BitCast(kHalves, pSecond)));
}

/// Two vectors of four pixels a lane, each with (red, green) of them in the lower half of the lane
/// and (blue, green) in the upper one.
HWY_INLINE Colours joinHalves(U8 pFirst, U8 pSecond) {
  return {lowerHalves(pFirst, pSecond), upperHalves(pFirst, pSecond)};
}

/// Pixels side by side: the second load of a lane ends with its eighth pixel.
HWY_INLINE Colours loadColours(const Byte* pFrom) {
  const U8 first = joinLanes<loadLaneAt>(pFrom, 24);
  const U8 second = joinLanes<loadLaneAt>(pFrom + 8, 24);
  const U8 firstOrder = broadcastLane({0, 1, 3, 4, 6, 7, 9, 10, 2, 1, 5, 4, 8, 7, 11, 10});
  const U8 secondOrder = broadcastLane({4, 5, 7, 8, 10, 11, 13, 14, 6, 5, 9, 8, 12, 11, 15, 14});
  return joinHalves(hn::TableLookupBytes(first, firstOrder),
                    hn::TableLookupBytes(second, secondOrder));
}

/// Four pixels that are kStride bytes apart, each in an element: pixel i is element i of the load
/// that starts i elements before it.
template <int kStride>
HWY_INLINE Lane loadLaneApart(const Byte* pFrom) {
  const hn::Full128<std::uint8_t> bytes;
  const hn::Full128<std::uint32_t> elements;
  constexpr Index kAdvance = kStride - 4;
  const auto first = hn::BitCast(elements, loadLaneAt(pFrom));
  const auto second = hn::BitCast(elements, loadLaneAt(pFrom + kAdvance));
  const auto third = hn::BitCast(elements, loadLaneAt(pFrom + 2 * kAdvance));
  const auto fourth = hn::BitCast(elements, loadLaneAt(pFrom + 3 * kAdvance));
  return hn::BitCast(bytes, hn::ConcatUpperLower(elements, hn::OddEven(fourth, third),
                                                 hn::OddEven(second, first)));
}

template <int kStride>
HWY_INLINE Colours loadColoursApart(const Byte* pFrom) {
  const U8 order = broadcastLane({0, 1, 4, 5, 8, 9, 12, 13, 2, 1, 6, 5, 10, 9, 14, 13});
  const U8 first = joinLanes<loadLaneApart<kStride> >(pFrom, 8 * kStride);
  const U8 second = joinLanes<loadLaneApart<kStride> >(pFrom + 4 * kStride, 8 * kStride);
  return joinHalves(hn::TableLookupBytes(first, order), hn::TableLookupBytes(second, order));
}

/// Adjacent pairs of pixels: first sorted by colours and side within four loads of two pairs a
/// lane, then combined.
class PairLoader {
 public:
  // (r, g) of two left and two right pixels, then (b, g) of them. The last load starts 4 bytes
  // early to end with its pairs.
  HWY_INLINE PairLoader()
      : fOrder(broadcastLane({0, 1, 6, 7, 3, 4, 9, 10, 2, 1, 8, 7, 5, 4, 11, 10})),
        fLastOrder(broadcastLane({4, 5, 10, 11, 7, 8, 13, 14, 6, 5, 12, 11, 9, 8, 15, 14})) {}

  HWY_INLINE PairColours load(const Byte* pFrom) const {
    const U32 first = sortPairs(pFrom, fOrder);
    const U32 second = sortPairs(pFrom + 12, fOrder);
    const U32 third = sortPairs(pFrom + 24, fOrder);
    const U32 fourth = sortPairs(pFrom + 32, fLastOrder);
    // In each lane (r, g) left of four pairs, then right; the same of (b, g).
    const U8 rgLow = hn::BitCast(kU8, hn::InterleaveLower(kU32, first, second));
    const U8 bgLow = hn::BitCast(kU8, hn::InterleaveUpper(kU32, first, second));
    const U8 rgHigh = hn::BitCast(kU8, hn::InterleaveLower(kU32, third, fourth));
    const U8 bgHigh = hn::BitCast(kU8, hn::InterleaveUpper(kU32, third, fourth));
    return {{lowerHalves(rgLow, rgHigh), lowerHalves(bgLow, bgHigh)},
            {upperHalves(rgLow, rgHigh), upperHalves(bgLow, bgHigh)}};
  }

 private:
  static HWY_INLINE U32 sortPairs(const Byte* pFrom, U8 pOrder) {
    return hn::BitCast(kU32, hn::TableLookupBytes(joinLanes<loadLaneAt>(pFrom, 48), pOrder));
  }

  U8 fOrder, fLastOrder;
};

#endif

}  // namespace HWY_NAMESPACE
}  // namespace resampling
}  // namespace OX
HWY_AFTER_NAMESPACE();

#endif  // OX_RESAMPLINGLOAD_INL_H
