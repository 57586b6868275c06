// How macro-pixels come into vectors and pixels go out, for each instruction set.
//
// A pair of vectors holds 2 * kPerVector macro-pixels. With byte permutes over the whole vector
// (VBMI) the first holds the first half of them, in order. Without, shuffles stay in 16-byte lanes,
// so each lane gets eight macro-pixels in a row: four in the first vector, four in the second.
// The arithmetic between works on single elements and does not see the difference.
#if defined(OX_VECTORPIXELS_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef OX_VECTORPIXELS_INL_H
#undef OX_VECTORPIXELS_INL_H
#else
#define OX_VECTORPIXELS_INL_H
#endif

#include <array>
#include <utility>

#include "vectorsteps-inl.h"

HWY_BEFORE_NAMESPACE();
#if OX_USES_VNNI
#pragma GCC target("avx512vnni,avx512cd")
#endif
namespace OX {
namespace kernels {
namespace HWY_NAMESPACE {

using namespace OX::HWY_NAMESPACE;

#if HWY_TARGET == HWY_AVX3_DL
#define OX_PERMUTES_WHOLE_VECTORS 1
#else
#define OX_PERMUTES_WHOLE_VECTORS 0
#endif

constexpr Index kPerVector = kVectorBytes / 4;  ///< macro-pixels
constexpr Index kPerPair = 2 * kPerVector;

struct Pair {
  U8 first, second;
};

// ---- Loading

/// Macro-pixels that lie kStep apart, in order. Load i starts so that those of its macro-pixels
/// that are wanted become elements i, i + kStep and so on, and ends no later than the last one. A
/// shuffle puts them in order.
template <int kStep>
struct SteppedLoad {
  static constexpr Index kWanted = kStep < kPerVector ? kPerVector / kStep : 1;  ///< of a load
  static constexpr Index kLoads = kPerVector / kWanted;
  static constexpr Index kAdvance = 4 * (kStep * kWanted - 1);  ///< bytes, from load to load

  template <Index kLoad>
  static HWY_INLINE U32 elements(const Byte* pFrom) {
    const U32 own = hn::BitCast(kU32, hn::LoadU(kU8, pFrom + kAdvance * kLoad));
    if constexpr (kLoad == 0) {
      return own;
    } else {
      return blendElements<(kWantedElements << kLoad)>(elements<kLoad - 1>(pFrom), own);
    }
  }

  static HWY_INLINE U8 load(const Byte* pFrom) {
    const U32 all = elements<kLoads - 1>(pFrom);
    if constexpr (kWanted == 1) return hn::BitCast(kU8, all);
    return hn::BitCast(kU8, hn::TableLookupLanes(all, hn::SetTableIndices(kU32, kOrder.data())));
  }

 private:
  static constexpr std::uint32_t kWantedElements = [] {
    std::uint32_t elements = 0;
    for (Index i = 0; i < kWanted; ++i) elements |= std::uint32_t{1} << (kLoads * i);
    return elements;
  }();
  alignas(64) static constexpr auto kOrder = [] {
    std::array<std::int32_t, kPerVector> order{};
    for (Index i = 0; i < kPerVector; ++i) {
      order[i] = static_cast<std::int32_t>(i / kWanted + kLoads * (i % kWanted));
    }
    return order;
  }();
};

template <int kStep>
HWY_INLINE U8 loadVector(const Byte* pFrom) {
  if constexpr (kStep == 1) return hn::LoadU(kU8, pFrom);
  return SteppedLoad<kStep>::load(pFrom);
}

template <int kStep>
HWY_INLINE Pair loadPair(const Byte* pFrom) {
#if !OX_PERMUTES_WHOLE_VECTORS
  if constexpr (kStep == 1) {
    return {joinLanes<loadLaneAt>(pFrom, 32), joinLanes<loadLaneAt>(pFrom + 16, 32)};
  }
#endif
  const U8 low = loadVector<kStep>(pFrom);
  const U8 high = loadVector<kStep>(pFrom + kVectorBytes * kStep);
#if OX_PERMUTES_WHOLE_VECTORS
  return {low, high};
#else
  return {evenLanes(low, high), oddLanes(low, high)};
#endif
}

// ---- Shuffling bytes to where they are stored

/// A pair becomes two or three pieces, which are stored as vectors. A pattern says which byte of a
/// source goes where in a piece.
constexpr Index kPatternBytes = OX_PERMUTES_WHOLE_VECTORS ? kVectorBytes : kLaneBytes;
using Pattern = std::array<Byte, kPatternBytes>;
/// Elements of a pattern that take nothing.
constexpr Byte kNothing = 0x80;

#if OX_PERMUTES_WHOLE_VECTORS

/// A pattern, ready for use.
struct Picker {
  HWY_INLINE explicit Picker(const Pattern& pPattern)
      : fOrder(fixed(hn::LoadU(kU8, pPattern.data()))),
        fTakes(_knot_mask64(_mm512_movepi8_mask(fOrder.raw))) {}

  U8 fOrder;
  __mmask64 fTakes;
};

/// Bytes of pFrom by the pattern; anything where the pattern takes nothing.
HWY_INLINE U8 pick(U8 pFrom, const Picker& pPicker) {
  return U8{_mm512_permutexvar_epi8(pPicker.fOrder.raw, pFrom.raw)};
}

/// The same, with pPicked's bytes where the pattern takes nothing.
HWY_INLINE U8 pickMore(U8 pPicked, U8 pFrom, const Picker& pPicker) {
  return U8{
      _mm512_mask_permutexvar_epi8(pPicked.raw, pPicker.fTakes, pPicker.fOrder.raw, pFrom.raw)};
}

#else

struct Picker {
  HWY_INLINE explicit Picker(const Pattern& pPattern) : fOrder(inAllLanes(pPattern)) {}

  U8 fOrder;
};

HWY_INLINE U8 pick(U8 pFrom, const Picker& pPicker) {
  return hn::TableLookupBytesOr0(pFrom, pPicker.fOrder);
}

HWY_INLINE U8 pickMore(U8 pPicked, U8 pFrom, const Picker& pPicker) {
  return hn::Or(pPicked, pick(pFrom, pPicker));
}

#endif

#if OX_PERMUTES_WHOLE_VECTORS || HWY_MAX_BYTES == 16

/// Stores three pieces one behind the other.
HWY_INLINE void storePieces(U8 pLeft, U8 pMiddle, U8 pRight, Byte* pTo) {
  hn::StoreU(pLeft, kU8, pTo);
  hn::StoreU(pMiddle, kU8, pTo + kVectorBytes);
  hn::StoreU(pRight, kU8, pTo + 2 * kVectorBytes);
}

HWY_INLINE void storePiecesByLanes(U8 pLeft, U8 pMiddle, U8 pRight, Byte* pTo) {
  storePieces(pLeft, pMiddle, pRight, pTo);
}

#else

/// Stores three pieces, whose lanes take turns.
HWY_INLINE void storePiecesByLanes(U8 pLeft, U8 pMiddle, U8 pRight, Byte* pTo) {
  storeLanes(pLeft, pTo, 3 * kLaneBytes);
  storeLanes(pMiddle, pTo + kLaneBytes, 3 * kLaneBytes);
  storeLanes(pRight, pTo + 2 * kLaneBytes, 3 * kLaneBytes);
}

/// The same with more shuffles and fewer stores, for formats that do little else than store.
HWY_INLINE void storePieces(U8 pLeft, U8 pMiddle, U8 pRight, Byte* pTo) {
#if HWY_MAX_BYTES == 32
  hn::StoreU(hn::ConcatLowerLower(kU8, pMiddle, pLeft), kU8, pTo);
  hn::StoreU(hn::ConcatUpperLower(kU8, pLeft, pRight), kU8, pTo + kVectorBytes);
  hn::StoreU(hn::ConcatUpperUpper(kU8, pRight, pMiddle), kU8, pTo + 2 * kVectorBytes);
#else
  storePiecesByLanes(pLeft, pMiddle, pRight, pTo);
#endif
}

#endif

/// Patterns for three pieces out of kSources sources. pPlace(byte of the pieces) says where it
/// comes from: first the source, then the byte of it.
template <int kSources, typename Place>
constexpr auto makePatterns(Place pPlace) {
  std::array<std::array<Pattern, kSources>, 3> patterns{};
  for (auto& piece : patterns) {
    for (Pattern& pattern : piece) pattern.fill(kNothing);
  }
  for (Index i = 0; i < 3 * kPatternBytes; ++i) {
    const std::pair<Index, Index> from = pPlace(i);
    patterns[i / kPatternBytes][from.first][i % kPatternBytes] = static_cast<Byte>(from.second);
  }
  return patterns;
}

// ---- Formats of three bytes a pixel

/// Where the three bytes of a pair's pixels are, in vectors of a format's own order.
struct ThreeBytes {
  U8 first, second;  ///< what only the first vector's pixels take, and only the second's
  U8 both;
};

/// Patterns for pixels of three bytes. Place's place(pixel, byte, is second) says where a byte of a
/// pixel is in its vector's own source, or, for those where isInBoth(byte), in the shared one.
template <typename Place>
constexpr auto makeThreeBytesPatterns() {
  return makePatterns<3>([](Index pByte) {
    constexpr Index kPixels = kPatternBytes / 2;  // of one vector
    const Index pixel = pByte / 3;
    const bool isSecond = pixel >= kPixels;
    const Index source = Place::isInBoth(pByte % 3) ? 2 : isSecond;
    return std::pair<Index, Index>(source, Place::place(pixel % kPixels, pByte % 3, isSecond));
  });
}

/// A block of macro-pixels to pixels of three bytes. Format's convert() makes ThreeBytes of a Pair,
/// and Format::Place says where in them the bytes are.
template <typename Format>
class ThreeBytesBlock {
 public:
  static constexpr Index kMacroPixels = kPerPair;
  static constexpr Index kBytesOut = 6;  ///< of a macro-pixel

  HWY_INLINE ThreeBytesBlock() {}

  template <int kStep>
  HWY_INLINE void convert(const Byte* pFrom, Byte* pTo) const {
    const ThreeBytes pixels = fFormat.convert(loadPair<kStep>(pFrom));
    const U8 left = pickMore(pick(pixels.first, fLeft), pixels.both, fLeftBoth);
    const U8 middle =
        pickMore(pickMore(pick(pixels.first, fMiddleFirst), pixels.second, fMiddleSecond),
                 pixels.both, fMiddleBoth);
    const U8 right = pickMore(pick(pixels.second, fRight), pixels.both, fRightBoth);
    storePiecesByLanes(left, middle, right, pTo);
  }

 private:
  alignas(64) static constexpr auto kPatterns = makeThreeBytesPatterns<typename Format::Place>();

  Format fFormat;
  Picker fLeft{kPatterns[0][0]}, fLeftBoth{kPatterns[0][2]};
  Picker fMiddleFirst{kPatterns[1][0]}, fMiddleSecond{kPatterns[1][1]};
  Picker fMiddleBoth{kPatterns[1][2]};
  Picker fRight{kPatterns[2][1]}, fRightBoth{kPatterns[2][2]};
};

}  // namespace HWY_NAMESPACE
}  // namespace kernels
}  // namespace OX
HWY_AFTER_NAMESPACE();

#endif  // OX_VECTORPIXELS_INL_H
