// How macro-pixels come into vectors and pixels go out, for each instruction set.
//
// A pair of vectors holds 2 * kPerVector macro-pixels. With byte permutes over the whole vector
// (VBMI) the first holds the first half of them, in order. Without, shuffles stay in 16-byte lanes,
// so each lane gets eight macro-pixels in a row: four in the first vector, four in the second.
// The arithmetic between works on single elements and does not see the difference.
#if defined(OX_VECTOR_PIXELS_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef OX_VECTOR_PIXELS_INL_H
#undef OX_VECTOR_PIXELS_INL_H
#else
#define OX_VECTOR_PIXELS_INL_H
#endif

#include <array>

#include "rows.h"
#include "vector_steps-inl.h"

HWY_BEFORE_NAMESPACE();
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

/// Elements of a shuffle pattern that take nothing.
constexpr Byte kNothing = 0x80;

/// A pattern of one lane in all lanes.
HWY_INLINE U8 inAllLanes(const std::array<Byte, kLaneBytes>& pPattern) {
  alignas(kLaneBytes) std::array<Byte, kLaneBytes> pattern = pPattern;
  return hn::LoadDup128(kU8, pattern.data());
}

// ---- Loading

/// Four macro-pixels that lie kStep apart. Each comes by a load that ends no later than the last
/// macro-pixel: macro-pixel i is element i of the load that starts i elements before it.
template <int kStep>
HWY_INLINE Lane loadLane(const Byte* pFrom) {
  if constexpr (kStep == 1) return loadLaneAt(pFrom);
  const hn::Full128<std::uint8_t> bytes;
  const hn::Full128<std::uint32_t> elements;
  constexpr Index kAdvance = 4 * (kStep - 1);
  const auto first = hn::BitCast(elements, loadLaneAt(pFrom));
  const auto second = hn::BitCast(elements, loadLaneAt(pFrom + kAdvance));
  const auto third = hn::BitCast(elements, loadLaneAt(pFrom + 2 * kAdvance));
  const auto fourth = hn::BitCast(elements, loadLaneAt(pFrom + 3 * kAdvance));
  return hn::BitCast(bytes, hn::ConcatUpperLower(elements, hn::OddEven(fourth, third),
                                                 hn::OddEven(second, first)));
}

#if OX_PERMUTES_WHOLE_VECTORS

/// As loadLane(), with kPerVector / kStep macro-pixels from each load: load i starts so that its
/// macro-pixels are elements i, i + kStep and so on. The permute puts them in order.
template <int kStep>
HWY_INLINE U8 loadVector(const Byte* pFrom) {
  if constexpr (kStep == 1) return hn::LoadU(kU8, pFrom);
  alignas(64) static constexpr auto kOrder = [] {
    std::array<std::int32_t, kPerVector> order{};
    for (int i = 0; i < kPerVector; ++i) {
      const int perLoad = kPerVector / kStep;
      order[i] = i / perLoad + kStep * (i % perLoad);
    }
    return order;
  }();
  constexpr std::uint32_t kEveryStep = kStep == 2 ? 0x5555 : kStep == 4 ? 0x1111 : 0x0101;
  __m512i elements = _mm512_loadu_si512(pFrom);
  for (int i = 1; i < kStep; ++i) {
    elements = _mm512_mask_loadu_epi32(elements, static_cast<__mmask16>(kEveryStep << i),
                                       pFrom + i * (kVectorBytes - 4));
  }
  return U8{_mm512_permutexvar_epi32(_mm512_load_si512(kOrder.data()), elements)};
}

template <int kStep>
HWY_INLINE Pair loadPair(const Byte* pFrom) {
  return {loadVector<kStep>(pFrom), loadVector<kStep>(pFrom + kVectorBytes * kStep)};
}

#else

template <int kStep>
HWY_INLINE U8 loadVector(const Byte* pFrom) {
  if constexpr (kStep == 1) return hn::LoadU(kU8, pFrom);
  return joinLanes<loadLane<kStep>>(pFrom, 16 * kStep);
}

template <int kStep>
HWY_INLINE Pair loadPair(const Byte* pFrom) {
  return {joinLanes<loadLane<kStep>>(pFrom, 32 * kStep),
          joinLanes<loadLane<kStep>>(pFrom + 16 * kStep, 32 * kStep)};
}

#endif

// ---- Shuffling to pixels of three bytes

/// Bytes of a pair's pixels: in each lane of firstTwo and secondTwo, byte 0 of eight pixels and then
/// byte 1 of them; in each lane of third, byte 2 of the first vector's and of the second's pixels.
struct ThreeBytes {
  U8 firstTwo, secondTwo, third;
};

constexpr Index kPatternBytes = OX_PERMUTES_WHOLE_VECTORS ? kVectorBytes : kLaneBytes;
using Pattern = std::array<Byte, kPatternBytes>;
using Patterns = std::array<std::array<Pattern, 3>, 3>;

/// Where the bytes of the three pieces come from, in each of the three sources.
constexpr Patterns makePatterns() {
  Patterns patterns{};
  for (auto& piece : patterns) {
    for (Pattern& pattern : piece) pattern.fill(kNothing);
  }
  constexpr Index kPixels = kPatternBytes / 2;  // of one vector
  for (Index i = 0; i < 3 * kPatternBytes; ++i) {
    const Index pixel = i / 3 % kPixels;
    const bool isSecond = i / 3 >= kPixels;
    const Index byte = i % 3;
    const Index source = byte == 2 ? 2 : isSecond;
    const bool isUpperHalf = byte == 2 ? isSecond : byte == 1;
    patterns[i / kPatternBytes][source][i % kPatternBytes] =
        static_cast<Byte>(pixel / 8 * kLaneBytes + 8 * isUpperHalf + pixel % 8);
  }
  return patterns;
}
alignas(64) constexpr Patterns kPatterns = makePatterns();

/// Stores a pair's pixels of three bytes in three vectors: pieces. The outer ones draw from one of
/// the first two sources and the third, the middle one from all.
class PixelWriter {
 public:
  PixelWriter() {
    for (int piece = 0; piece < 3; ++piece) {
      for (int source = 0; source < 3; ++source) {
        fPatterns[piece][source] = load(kPatterns[piece][source]);
      }
    }
  }

  HWY_INLINE void write(const ThreeBytes& pPixels, Byte* pTo) const {
    const U8 left = pick(pick0(pPixels.firstTwo, fPatterns[0][0]), pPixels.third, fPatterns[0][2]);
    const U8 middle = pick(pick(pick0(pPixels.firstTwo, fPatterns[1][0]), pPixels.secondTwo,
                                fPatterns[1][1]),
                           pPixels.third, fPatterns[1][2]);
    const U8 right =
        pick(pick0(pPixels.secondTwo, fPatterns[2][1]), pPixels.third, fPatterns[2][2]);
    store(left, middle, right, pTo);
  }

 private:
#if OX_PERMUTES_WHOLE_VECTORS
  static HWY_INLINE U8 load(const Pattern& pPattern) { return hn::LoadU(kU8, pPattern.data()); }
  /// Bytes of pFrom by the pattern; anything where the pattern has nothing.
  static HWY_INLINE U8 pick0(U8 pFrom, U8 pPattern) {
    return U8{_mm512_permutexvar_epi8(pPattern.raw, pFrom.raw)};
  }
  /// The same, with the bytes of pElse where the pattern has nothing.
  static HWY_INLINE U8 pick(U8 pElse, U8 pFrom, U8 pPattern) {
    const __mmask64 picked = _knot_mask64(_mm512_movepi8_mask(pPattern.raw));
    return U8{_mm512_mask_permutexvar_epi8(pElse.raw, picked, pPattern.raw, pFrom.raw)};
  }
  static HWY_INLINE void store(U8 pLeft, U8 pMiddle, U8 pRight, Byte* pTo) {
    hn::StoreU(pLeft, kU8, pTo);
    hn::StoreU(pMiddle, kU8, pTo + kVectorBytes);
    hn::StoreU(pRight, kU8, pTo + 2 * kVectorBytes);
  }
#else
  static HWY_INLINE U8 load(const Pattern& pPattern) { return inAllLanes(pPattern); }
  static HWY_INLINE U8 pick0(U8 pFrom, U8 pPattern) {
    return hn::TableLookupBytesOr0(pFrom, pPattern);
  }
  static HWY_INLINE U8 pick(U8 pElse, U8 pFrom, U8 pPattern) {
    return hn::Or(pElse, hn::TableLookupBytesOr0(pFrom, pPattern));
  }
  static HWY_INLINE void store(U8 pLeft, U8 pMiddle, U8 pRight, Byte* pTo) {
    storeLanes(pLeft, pTo, 3 * kLaneBytes);
    storeLanes(pMiddle, pTo + kLaneBytes, 3 * kLaneBytes);
    storeLanes(pRight, pTo + 2 * kLaneBytes, 3 * kLaneBytes);
  }
#endif

  U8 fPatterns[3][3];
};

/// A block of macro-pixels to pixels of three bytes: kConvert makes ThreeBytes of a Pair.
template <auto kConvert>
struct ThreeBytesBlock {
  static constexpr Index kMacroPixels = kPerPair;
  static constexpr Index kBytesOut = 6;  ///< of a macro-pixel

  template <int kStep>
  HWY_INLINE void convert(const Byte* pFrom, Byte* pTo) const {
    fWriter.write(kConvert(loadPair<kStep>(pFrom)), pTo);
  }

  PixelWriter fWriter;
};

// ---- Rows

/// A row in blocks. The last block ends with the last macro-pixel: it may do some of the block
/// before again, to the same bytes. Rows of less than a block are left to the plain loop.
template <typename Block, int kStep>
void convertRowAtStep(const Byte* pSource, Byte* pDestination, Index pCount, RowKernel* pPlain) {
  if (pCount < Block::kMacroPixels) return pPlain(pSource, kStep, pDestination, pCount);
  const Block block;
  const Index last = pCount - Block::kMacroPixels;
  for (Index i = 0; i < last; i += Block::kMacroPixels) {
    block.template convert<kStep>(pSource + 4 * kStep * i, pDestination + Block::kBytesOut * i);
  }
  block.template convert<kStep>(pSource + 4 * kStep * last, pDestination + Block::kBytesOut * last);
}

/// The same for the steps of the four resolutions; the plain loop does others.
template <typename Block>
void convertRow(const Byte* pSource, Index pStep, Byte* pDestination, Index pCount,
                RowKernel* pPlain) {
  switch (pStep) {
    case 1:
      return convertRowAtStep<Block, 1>(pSource, pDestination, pCount, pPlain);
    case 2:
      return convertRowAtStep<Block, 2>(pSource, pDestination, pCount, pPlain);
    case 4:
      return convertRowAtStep<Block, 4>(pSource, pDestination, pCount, pPlain);
    case 8:
      return convertRowAtStep<Block, 8>(pSource, pDestination, pCount, pPlain);
    default:
      return pPlain(pSource, pStep, pDestination, pCount);
  }
}

}  // namespace HWY_NAMESPACE
}  // namespace kernels
}  // namespace OX
HWY_AFTER_NAMESPACE();

#endif  // OX_VECTOR_PIXELS_INL_H
