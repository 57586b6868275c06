// Loads macro-pixels into vectors and stores pixels from them, for each instruction set.
//
// A pair of vectors holds 2 * kPerVector macro-pixels. With byte permutes over the whole vector
// (VBMI) the first holds the first half of them, in order. Without, shuffles stay in 16-byte lanes,
// so each lane has eight consecutive macro-pixels: four in the first vector, four in the second.
// The arithmetic in between works on single elements and is the same for both.
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

/// Loads macro-pixels that lie kStep apart, in order. Load i starts so that the wanted ones of its
/// macro-pixels become elements i, i + kStep and so on, and ends with the last of them: nothing
/// beyond it is read. A shuffle puts them in order.
template <int kStep>
struct SteppedLoad {
  static constexpr Index kWanted = kStep < kPerVector ? kPerVector / kStep : 1;  ///< per load
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

// ---- Shuffling bytes into the order in which they are stored

/// A pair becomes two or three pieces, which are stored as vectors. A pattern says which byte of a
/// source each byte of a piece is.
constexpr Index kPatternBytes = OX_PERMUTES_WHOLE_VECTORS ? kVectorBytes : kLaneBytes;
using Pattern = std::array<Byte, kPatternBytes>;
/// Elements of a pattern that take no byte.
constexpr Byte kNothing = 0x80;

#if OX_PERMUTES_WHOLE_VECTORS

/// A pattern, loaded into registers.
struct Permutation {
  HWY_INLINE explicit Permutation(const Pattern& pPattern)
      : fOrder(hoist(hn::LoadU(kU8, pPattern.data()))),
        fTakes(_knot_mask64(_mm512_movepi8_mask(fOrder.raw))) {}

  U8 fOrder;
  __mmask64 fTakes;
};

/// The bytes of pFrom in the pattern's order; unspecified where the pattern takes none.
HWY_INLINE U8 permute(U8 pFrom, const Permutation& pPermutation) {
  return U8{_mm512_permutexvar_epi8(pPermutation.fOrder.raw, pFrom.raw)};
}

/// The same, with pBase's bytes where the pattern takes none.
HWY_INLINE U8 permuteInto(U8 pBase, U8 pFrom, const Permutation& pPermutation) {
  return U8{_mm512_mask_permutexvar_epi8(pBase.raw, pPermutation.fTakes, pPermutation.fOrder.raw,
                                         pFrom.raw)};
}

#else

struct Permutation {
  HWY_INLINE explicit Permutation(const Pattern& pPattern) : fOrder(broadcastLane(pPattern)) {}

  U8 fOrder;
};

HWY_INLINE U8 permute(U8 pFrom, const Permutation& pPermutation) {
  return hn::TableLookupBytesOr0(pFrom, pPermutation.fOrder);
}

HWY_INLINE U8 permuteInto(U8 pBase, U8 pFrom, const Permutation& pPermutation) {
  return hn::Or(pBase, permute(pFrom, pPermutation));
}

#endif

#if OX_PERMUTES_WHOLE_VECTORS || HWY_MAX_BYTES == 16

/// Stores three pieces one after the other.
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

/// Patterns for three pieces out of kSources sources. pSourceOf(byte of the pieces) returns where
/// it comes from: the source and the byte of that.
template <int kSources, typename SourceOf>
constexpr auto makePatterns(SourceOf pSourceOf) {
  std::array<std::array<Pattern, kSources>, 3> patterns{};
  for (auto& piece : patterns) {
    for (Pattern& pattern : piece) pattern.fill(kNothing);
  }
  for (Index i = 0; i < 3 * kPatternBytes; ++i) {
    const std::pair<Index, Index> from = pSourceOf(i);
    patterns[i / kPatternBytes][from.first][i % kPatternBytes] = static_cast<Byte>(from.second);
  }
  return patterns;
}

// ---- Formats of three bytes a pixel

/// The three bytes of a pair's pixels, in three vectors whose order is the format's own.
struct ThreeBytes {
  U8 first, second;  ///< bytes of the first vector's pixels only, and of the second's
  U8 shared;
};

/// Patterns for pixels of three bytes. Layout::position(pixel, byte, is second) is where a byte of
/// a pixel is in its vector's own source or, if Layout::isShared(byte), in the shared one.
template <typename Layout>
constexpr auto makeThreeBytesPatterns() {
  return makePatterns<3>([](Index pByte) {
    constexpr Index kPixels = kPatternBytes / 2;  // of one vector
    const Index pixel = pByte / 3;
    const bool isSecond = pixel >= kPixels;
    const Index source = Layout::isShared(pByte % 3) ? 2 : isSecond;
    return std::pair<Index, Index>(source, Layout::position(pixel % kPixels, pByte % 3, isSecond));
  });
}

/// Converts a block of macro-pixels to pixels of three bytes. Format's convert() makes ThreeBytes
/// of a Pair, and Format::Layout says where in them the bytes are.
template <typename Format>
class ThreeBytesBlock {
 public:
  static constexpr Index kMacroPixels = kPerPair;
  static constexpr Index kBytesOut = 6;  ///< of a macro-pixel

  HWY_INLINE ThreeBytesBlock() {}

  template <int kStep>
  HWY_INLINE void convert(const Byte* pFrom, Byte* pTo) const {
    const ThreeBytes pixels = fFormat.convert(loadPair<kStep>(pFrom));
    const U8 left = permuteInto(permute(pixels.first, fLeft), pixels.shared, fLeftShared);
    const U8 middle =
        permuteInto(permuteInto(permute(pixels.first, fMiddleFirst), pixels.second, fMiddleSecond),
                    pixels.shared, fMiddleShared);
    const U8 right = permuteInto(permute(pixels.second, fRight), pixels.shared, fRightShared);
    storePiecesByLanes(left, middle, right, pTo);
  }

 private:
  alignas(64) static constexpr auto kPatterns = makeThreeBytesPatterns<typename Format::Layout>();

  Format fFormat;
  Permutation fLeft{kPatterns[0][0]}, fLeftShared{kPatterns[0][2]};
  Permutation fMiddleFirst{kPatterns[1][0]}, fMiddleSecond{kPatterns[1][1]};
  Permutation fMiddleShared{kPatterns[1][2]};
  Permutation fRight{kPatterns[2][1]}, fRightShared{kPatterns[2][2]};
};

}  // namespace HWY_NAMESPACE
}  // namespace kernels
}  // namespace OX
HWY_AFTER_NAMESPACE();

#endif  // OX_VECTORPIXELS_INL_H
