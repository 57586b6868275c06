/// Frames that a receiver can check: each half is a uniform grey, and for some frames in a row no
/// two have the same pair.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include <oxframework/oxdefinitions.h>
#include <oxframework/oxvalue.h>

namespace OX::benchmarks {

struct FrameSize {
  int width = 0;
  int height = 0;
  int bytes() const { return width * height * 3; }
};

inline FrameSize sizeOf(int pResolution) {
  FrameSize size;
  setSizeFromResolution(pResolution, size.width, size.height);
  return size;
}

constexpr int kGreys = 5;
/// How many frames in a row differ.
constexpr int kFramesInRow = kGreys * kGreys;

/// Away from black and white, where the camera's format has less room than RGB.
inline int greyOf(int pIndex) { return 40 + 35 * pIndex; }

/// The index of the grey that a part of a kRGB image has; -1 if it is none, or more than one. Looks
/// at some pixels only: looking at all would take longer than the transfer. Conversion rounds.
inline int greyIndexOf(const unsigned char* pPixels, std::size_t pBytes) {
  if (pBytes == 0) return -1;
  const int index = std::clamp((pPixels[0] - greyOf(0) + 17) / 35, 0, kGreys - 1);
  const std::size_t step = std::max<std::size_t>(1, (pBytes - 1) / 4);
  for (std::size_t i = 0; i < pBytes; i += step)
    if (std::abs(pPixels[i] - greyOf(index)) > 3) return -1;
  return index;
}

/// Which of the frames in a row a kRGB image is, from 0; -1 if it is none, or parts of two.
inline int frameInRow(const void* pPixels, std::size_t pBytes) {
  const auto* const pixels = static_cast<const unsigned char*>(pPixels);
  const int upper = greyIndexOf(pixels, pBytes / 2);
  const int lower = greyIndexOf(pixels + pBytes / 2, pBytes - pBytes / 2);
  return upper < 0 || lower < 0 ? -1 : upper + kGreys * lower;
}

inline bool isFrame(const void* pPixels, std::size_t pBytes, std::uint64_t pFrame) {
  return frameInRow(pPixels, pBytes) == static_cast<int>(pFrame % kFramesInRow);
}

/// The frames in a row, as putImage() takes them.
inline std::vector<OXValue> makeFrames(int pResolution) {
  std::vector<OXValue> frames(kFramesInRow);
  const int bytes = sizeOf(pResolution).bytes();
  std::vector<char> pixels(static_cast<std::size_t>(bytes));
  const auto middle = pixels.begin() + bytes / 2;
  for (int i = 0; i < kFramesInRow; ++i) {
    std::fill(pixels.begin(), middle, static_cast<char>(greyOf(i % kGreys)));
    std::fill(middle, pixels.end(), static_cast<char>(greyOf(i / kGreys)));
    frames[static_cast<std::size_t>(i)].SetBinary(pixels.data(), bytes);
  }
  return frames;
}

}  // namespace OX::benchmarks
