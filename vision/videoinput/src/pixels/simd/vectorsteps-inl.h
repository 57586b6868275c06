// Small steps that kernels and resampler are built of, beyond Highway's own: instructions that
// Highway has no name for, and loads that never read beyond the frame. Included once for each
// instruction set.
#if defined(OX_VECTORSTEPS_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef OX_VECTORSTEPS_INL_H
#undef OX_VECTORSTEPS_INL_H
#else
#define OX_VECTORSTEPS_INL_H
#endif

#include <hwy/highway.h>

#include <array>
#include <cstddef>
#include <cstdint>

// All processors with VBMI that Highway accepts have two more extensions, which it doesn't name.
#undef OX_USES_VNNI
#if HWY_TARGET == HWY_AVX3_DL && HWY_COMPILER_GCC_ACTUAL
#define OX_USES_VNNI 1
#else
#define OX_USES_VNNI 0
#endif

HWY_BEFORE_NAMESPACE();
#if OX_USES_VNNI
#pragma GCC target("avx512vnni,avx512cd")
#endif
namespace OX {
namespace HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

using Byte = unsigned char;
using Index = std::ptrdiff_t;

constexpr Index kLaneBytes = 16;  ///< most shuffles stay within blocks of this size
constexpr Index kVectorBytes = HWY_MAX_BYTES;
constexpr Index kLanes = kVectorBytes / kLaneBytes;

constexpr hn::ScalableTag<std::uint8_t> kU8;
constexpr hn::ScalableTag<std::int8_t> kI8;
constexpr hn::ScalableTag<std::uint16_t> kU16;
constexpr hn::ScalableTag<std::int16_t> kI16;
constexpr hn::ScalableTag<std::uint32_t> kU32;
constexpr hn::ScalableTag<std::int32_t> kI32;

using U8 = hn::Vec<decltype(kU8)>;
using I8 = hn::Vec<decltype(kI8)>;
using U16 = hn::Vec<decltype(kU16)>;
using I16 = hn::Vec<decltype(kI16)>;
using U32 = hn::Vec<decltype(kU32)>;
using I32 = hn::Vec<decltype(kI32)>;

/// Computes a constant once, before the loop. Otherwise the compiler recomputes constants that find
/// no register in each iteration, by two moves from general registers; hoisted ones are kept in
/// memory.
template <typename Vector>
HWY_INLINE Vector hoist(Vector pVector) {
  asm("" : "+v"(pVector.raw));
  return pVector;
}

HWY_INLINE U16 words(int pValue) {
  return hoist(hn::Set(kU16, static_cast<std::uint16_t>(pValue)));
}
HWY_INLINE I16 signedWords(int pValue) {
  return hoist(hn::Set(kI16, static_cast<std::int16_t>(pValue)));
}
HWY_INLINE U32 doubleWords(std::uint32_t pValue) { return hoist(hn::Set(kU32, pValue)); }
HWY_INLINE I32 signedDoubleWords(int pValue) { return hoist(hn::Set(kI32, pValue)); }

/// Two bytes or words in each element, the lower one first: weights of a multiply-add.
HWY_INLINE U8 unsignedBytePairs(int pLow, int pHigh) {
  return hn::BitCast(kU8, words((pLow & 255) | pHigh << 8));
}
HWY_INLINE I8 bytePairs(int pLow, int pHigh) {
  return hn::BitCast(kI8, unsignedBytePairs(pLow, pHigh));
}
HWY_INLINE I16 wordPairs(int pLow, int pHigh) {
  const auto low = static_cast<std::uint32_t>(pLow) & 0xFFFF;
  return hn::BitCast(kI16, doubleWords(low | static_cast<std::uint32_t>(pHigh) << 16));
}

// Sums of neighbouring products. Bytes saturate at 16 bits: the callers' ranges rule that out.
#if HWY_MAX_BYTES == 64
HWY_INLINE I16 multiplyAddBytes(U8 pUnsigned, I8 pSigned) {
  return I16{_mm512_maddubs_epi16(pUnsigned.raw, pSigned.raw)};
}
HWY_INLINE I32 multiplyAddWords(I16 pWords, I16 pWeights) {
  return I32{_mm512_madd_epi16(pWords.raw, pWeights.raw)};
}
/// Bytes of both, clamped; in each lane pLow's come first.
HWY_INLINE U8 packClamped(I16 pLow, I16 pHigh) {
  return U8{_mm512_packus_epi16(pLow.raw, pHigh.raw)};
}
#elif HWY_MAX_BYTES == 32
HWY_INLINE I16 multiplyAddBytes(U8 pUnsigned, I8 pSigned) {
  return I16{_mm256_maddubs_epi16(pUnsigned.raw, pSigned.raw)};
}
HWY_INLINE I32 multiplyAddWords(I16 pWords, I16 pWeights) {
  return I32{_mm256_madd_epi16(pWords.raw, pWeights.raw)};
}
HWY_INLINE U8 packClamped(I16 pLow, I16 pHigh) {
  return U8{_mm256_packus_epi16(pLow.raw, pHigh.raw)};
}
#else
HWY_INLINE I16 multiplyAddBytes(U8 pUnsigned, I8 pSigned) {
  return I16{_mm_maddubs_epi16(pUnsigned.raw, pSigned.raw)};
}
HWY_INLINE I32 multiplyAddWords(I16 pWords, I16 pWeights) {
  return I32{_mm_madd_epi16(pWords.raw, pWeights.raw)};
}
HWY_INLINE U8 packClamped(I16 pLow, I16 pHigh) { return U8{_mm_packus_epi16(pLow.raw, pHigh.raw)}; }
#endif

/// pSum plus the sums of neighbouring products.
HWY_INLINE I32 multiplyAddWords(I32 pSum, I16 pWords, I16 pWeights) {
#if OX_USES_VNNI
  return I32{_mm512_dpwssd_epi32(pSum.raw, pWords.raw, pWeights.raw)};
#else
  return hn::Add(multiplyAddWords(pWords, pWeights), pSum);
#endif
}

/// A pattern of one lane in all lanes.
HWY_INLINE U8 broadcastLane(const std::array<Byte, kLaneBytes>& pPattern) {
  alignas(kLaneBytes) const std::array<Byte, kLaneBytes> pattern = pPattern;
  return hoist(hn::LoadDup128(kU8, pattern.data()));
}

/// Elements of pOther where kElements has a bit, else those of pOne.
template <std::uint32_t kElements>
HWY_INLINE U32 blendElements(U32 pOne, U32 pOther) {
#if HWY_MAX_BYTES == 64
  return U32{_mm512_mask_blend_epi32(kElements, pOne.raw, pOther.raw)};
#elif HWY_MAX_BYTES == 32
  return U32{_mm256_blend_epi32(pOne.raw, pOther.raw, kElements)};
#else
  // Two bits for each.
  constexpr int kSpread = (kElements & 1 ? 3 : 0) | (kElements & 2 ? 12 : 0) |
                          (kElements & 4 ? 48 : 0) | (kElements & 8 ? 192 : 0);
  return U32{_mm_blend_epi16(pOne.raw, pOther.raw, kSpread)};
#endif
}

constexpr Index kCacheLine = 64;

/// Prefetches the cache lines of some bytes for reading: those of the next row that is wanted,
/// which the processor doesn't predict when rows in between are skipped.
template <Index kBytes>
HWY_INLINE void prefetchLoads(const Byte* pFrom) {
  for (Index i = 0; i < kBytes; i += kCacheLine) __builtin_prefetch(pFrom + i);
}

// ---- Vectors of lanes: each lane is loaded and stored by itself, pAdvance bytes apart

using Lane = hn::Vec<hn::Full128<std::uint8_t>>;

HWY_INLINE Lane loadLaneAt(const Byte* pFrom) {
  return hn::LoadU(hn::Full128<std::uint8_t>(), pFrom);
}

/// A vector of the lanes that kLoad(address) returns.
template <auto kLoad>
HWY_INLINE U8 joinLanes(const Byte* pFrom, Index pAdvance) {
#if HWY_MAX_BYTES == 64
  const hn::Full256<std::uint8_t> half;
  return hn::Combine(kU8,
                     hn::Combine(half, kLoad(pFrom + 3 * pAdvance), kLoad(pFrom + 2 * pAdvance)),
                     hn::Combine(half, kLoad(pFrom + pAdvance), kLoad(pFrom)));
#elif HWY_MAX_BYTES == 32
  return hn::Combine(kU8, kLoad(pFrom + pAdvance), kLoad(pFrom));
#else
  static_cast<void>(pAdvance);
  return kLoad(pFrom);
#endif
}

HWY_INLINE void storeLanes(U8 pVector, Byte* pTo, Index pAdvance) {
  const hn::Full128<std::uint8_t> lane;
#if HWY_MAX_BYTES == 64
  const hn::Full256<std::uint8_t> half;
  const auto low = hn::LowerHalf(half, pVector);
  const auto high = hn::UpperHalf(half, pVector);
  hn::StoreU(hn::LowerHalf(lane, low), lane, pTo);
  hn::StoreU(hn::UpperHalf(lane, low), lane, pTo + pAdvance);
  hn::StoreU(hn::LowerHalf(lane, high), lane, pTo + 2 * pAdvance);
  hn::StoreU(hn::UpperHalf(lane, high), lane, pTo + 3 * pAdvance);
#elif HWY_MAX_BYTES == 32
  hn::StoreU(hn::LowerHalf(lane, pVector), lane, pTo);
  hn::StoreU(hn::UpperHalf(lane, pVector), lane, pTo + pAdvance);
#else
  static_cast<void>(pAdvance);
  hn::StoreU(pVector, lane, pTo);
#endif
}

/// Lanes 0, 2 and so on of one vector and then of the other; pLow if a vector has one lane.
HWY_INLINE U8 evenLanes(U8 pLow, U8 pHigh) {
#if HWY_MAX_BYTES == 64
  return U8{_mm512_shuffle_i32x4(pLow.raw, pHigh.raw, _MM_SHUFFLE(2, 0, 2, 0))};
#elif HWY_MAX_BYTES == 32
  return hn::ConcatLowerLower(kU8, pHigh, pLow);
#else
  static_cast<void>(pHigh);
  return pLow;
#endif
}

/// Lanes 1, 3 and so on; pHigh if a vector has one lane.
HWY_INLINE U8 oddLanes(U8 pLow, U8 pHigh) {
#if HWY_MAX_BYTES == 64
  return U8{_mm512_shuffle_i32x4(pLow.raw, pHigh.raw, _MM_SHUFFLE(3, 1, 3, 1))};
#elif HWY_MAX_BYTES == 32
  return hn::ConcatUpperUpper(kU8, pHigh, pLow);
#else
  static_cast<void>(pLow);
  return pHigh;
#endif
}

}  // namespace HWY_NAMESPACE
}  // namespace OX
HWY_AFTER_NAMESPACE();

#endif  // OX_VECTORSTEPS_INL_H
