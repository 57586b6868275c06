/// Frames that a receiver can check: uniform greys, another one for each of a few frames in a row.
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

/// How many frames in a row differ.
constexpr std::uint64_t kGreys = 8;

/// Away from black and white, where the camera's format has less room than RGB.
inline int greyOf(std::uint64_t pFrame) { return 40 + 20 * static_cast<int>(pFrame % kGreys); }

/// Whether a kRGB image is that frame, as far as some pixels of it show: looking at all of them
/// would take longer than the transfer. Conversion rounds.
inline bool isFrame(const void* pPixels, std::size_t pBytes, std::uint64_t pFrame) {
  const auto* pixels = static_cast<const unsigned char*>(pPixels);
  const int grey = greyOf(pFrame);
  const std::size_t step = std::max<std::size_t>(1, (pBytes - 1) / 8);
  for (std::size_t i = 0; i < pBytes; i += step)
    if (std::abs(pixels[i] - grey) > 3) return false;
  return pBytes > 0;
}

/// One frame of each grey, as putImage() takes them.
inline std::vector<OXValue> makeFrames(int pResolution) {
  std::vector<OXValue> frames(kGreys);
  const int bytes = sizeOf(pResolution).bytes();
  for (std::uint64_t i = 0; i < kGreys; ++i)
    frames[i].SetBinary(
        std::vector<char>(static_cast<std::size_t>(bytes), static_cast<char>(greyOf(i))).data(),
        bytes);
  return frames;
}

}  // namespace OX::benchmarks
