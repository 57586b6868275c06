#include "media/picture.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include <oxframework/oxdefinitions.h>
#include "terminal/exitstatus.h"

namespace OX::cli {

namespace {

struct Rgb {
  unsigned char red, green, blue;
};

unsigned char clampedByte(int pValue) {
  return static_cast<unsigned char>(std::clamp(pValue, 0, 255));
}

/// The integer formula of the device's own kRGB.
Rgb fromYuv(int pY, int pU, int pV) {
  const int y = 298 * (pY - 16), u = pU - 128, v = pV - 128;
  return {clampedByte((y + 409 * v) >> 8), clampedByte((y - 100 * u - 208 * v) >> 8),
          clampedByte((y + 516 * u) >> 8)};
}

struct Color {
  double red, green, blue;  // 0 to 1
};

/// The hue circle has 255 steps: 0 is red, 85 green, 170 blue.
Color saturated(int pHue, double pSaturation) {
  const double sixth = pHue % 255 / 42.5;
  const auto channel = [&](double pOffset) {
    const double place = std::fmod(sixth + pOffset, 6.0);
    const double full = std::clamp(std::abs(place - 3.0) - 1.0, 0.0, 1.0);
    return 1.0 - pSaturation * (1.0 - full);
  };
  return {channel(0), channel(4), channel(2)};
}

Rgb scaled(const Color& pColor, double pFactor) {
  const auto byte = [&](double pPart) {
    return clampedByte(static_cast<int>(std::lround(pPart * pFactor)));
  };
  return {byte(pColor.red), byte(pColor.green), byte(pColor.blue)};
}

/// The luma byte runs from 16 to 235; the brightness is chosen so that the colour has that luma.
Rgb fromHsy(int pHue, int pSaturation, int pY) {
  const Color color = saturated(pHue, pSaturation / 255.0);
  const double luma = 0.299 * color.red + 0.587 * color.green + 0.114 * color.blue;
  return scaled(color, std::max(0.0, (pY - 16) * 298 / 256.0) / luma);
}

using ToRgb = Rgb (*)(const unsigned char* pPixel);

/// Colour spaces in which each pixel stands for itself; null for the others.
ToRgb pixelConverter(int pColorSpace) {
  using Bytes = const unsigned char*;
  switch (pColorSpace) {
    case kYuv:
      return [](Bytes p) { return Rgb{p[0], p[0], p[0]}; };
    case kHsy:
      return [](Bytes p) { return scaled(saturated(p[0], 1), 255); };
    case kYUV:
      return [](Bytes p) { return fromYuv(p[0], p[1], p[2]); };
    case kRGB:
      return [](Bytes p) { return Rgb{p[0], p[1], p[2]}; };
    case kHSY:
      return [](Bytes p) { return fromHsy(p[0], p[1], p[2]); };
    case kBGR:
    case kH2RGB:
      return [](Bytes p) { return Rgb{p[2], p[1], p[0]}; };
    case kHSMixed:
      return [](Bytes p) { return scaled(saturated(p[0], p[1] / 255.0), 255); };
    default:
      return nullptr;
  }
}

/// Where the four bytes of two pixels are: the lumas, U and V.
struct PairLayout {
  int firstY, secondY, u, v;
};

void convertPairs(const CameraImage& pImage, const PairLayout& pLayout, unsigned char* pTarget) {
  const std::size_t pairs = pImage.sizeBytes() / 4;
  for (std::size_t i = 0; i < pairs; ++i) {
    const unsigned char* pair = pImage.pixels + 4 * i;
    for (const int y : {pLayout.firstY, pLayout.secondY}) {
      const Rgb rgb = fromYuv(pair[y], pair[pLayout.u], pair[pLayout.v]);
      *pTarget++ = rgb.red;
      *pTarget++ = rgb.green;
      *pTarget++ = rgb.blue;
    }
  }
}

}  // namespace

Picture toPicture(const CameraImage& pImage) {
  const std::size_t pixels =
      static_cast<std::size_t>(pImage.width) * static_cast<std::size_t>(pImage.height);
  Picture picture{pImage.width, pImage.height, std::vector<unsigned char>(pixels * 3)};
  if (pImage.colorSpace == kYUV422) {
    convertPairs(pImage, {0, 2, 1, 3}, picture.rgb.data());
  } else if (pImage.colorSpace == kYYCbCr) {
    convertPairs(pImage, {0, 1, 2, 3}, picture.rgb.data());
  } else if (const ToRgb toRgb = pixelConverter(pImage.colorSpace)) {
    unsigned char* target = picture.rgb.data();
    for (std::size_t i = 0; i < pixels; ++i) {
      const Rgb rgb = toRgb(pImage.pixels + i * static_cast<std::size_t>(pImage.layers));
      *target++ = rgb.red;
      *target++ = rgb.green;
      *target++ = rgb.blue;
    }
  } else {
    throw OXFailure(fmt::format("no picture can be made of colour space {}", pImage.colorSpace));
  }
  return picture;
}

}  // namespace OX::cli
