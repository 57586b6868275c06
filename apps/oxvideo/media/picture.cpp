// Where the bytes allow it, a picture has the colours that the device delivers in kRGB. The hue
// formats have lost brightness or saturation and are shown with full values instead.
#include "media/picture.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include <oxframework/oxdefinitions.h>
#include "pixels/colour/kernels.h"
#include "terminal/exitstatus.h"

namespace OX::cli {

namespace {

struct Rgb {
  unsigned char red, green, blue;
};

unsigned char clampedByte(int pValue) {
  return static_cast<unsigned char>(std::clamp(pValue, 0, 255));
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

/// Luma runs from 16 to 235; the brightness is chosen so that the colour has that luma.
Rgb fromHsy(int pHue, int pSaturation, int pY) {
  const Color color = saturated(pHue, pSaturation / 255.0);
  const double luma = 0.299 * color.red + 0.587 * color.green + 0.114 * color.blue;
  return scaled(color, std::max(0.0, (pY - 16) * 298 / 256.0) / luma);
}

using ToRgb = Rgb (*)(const unsigned char* pPixel);

/// For colour spaces whose pixels can be converted one by one; null for the others.
ToRgb pixelConverter(int pColorSpace) {
  using Bytes = const unsigned char*;
  switch (pColorSpace) {
    case kYuv:
      return [](Bytes p) { return Rgb{p[0], p[0], p[0]}; };
    case kHsy:
      return [](Bytes p) { return scaled(saturated(p[0], 1), 255); };
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

/// Rearranges the image to kYUV422 macro-pixels, Y0 U Y1 V, the input of the device's kernels. Each
/// holds two pixels; for kYUV, whose pixels have their own chroma, the same pixel twice.
std::vector<unsigned char> macroPixels(const CameraImage& pImage) {
  const unsigned char* source = pImage.pixels;
  if (pImage.colorSpace == kYUV422) return {source, source + pImage.sizeBytes() / 4 * 4};
  std::vector<unsigned char> result;
  if (pImage.colorSpace == kYYCbCr) {
    const std::size_t count = pImage.sizeBytes() / 4;
    result.reserve(count * 4);
    for (std::size_t i = 0; i < count; ++i, source += 4)
      result.insert(result.end(), {source[0], source[2], source[1], source[3]});
  } else {
    const std::size_t count = pImage.sizeBytes() / 3;
    result.reserve(count * 4);
    for (std::size_t i = 0; i < count; ++i, source += 3)
      result.insert(result.end(), {source[0], source[1], source[0], source[2]});
  }
  return result;
}

/// Converts with the device's kernel, so that a picture has the bytes that a kRGB subscriber gets.
/// The image is passed as one long row: the kernel rounds an odd width up to whole macro-pixels.
void convertYuv(const CameraImage& pImage, std::vector<unsigned char>& pRgb) {
  const std::vector<unsigned char> source = macroPixels(pImage);
  const int pixels = static_cast<int>(source.size() / 2);
  if (pImage.colorSpace != kYUV) {
    kernels::yuv422ToRGB(source.data(), pixels, pRgb.data(), pixels, 1);
    return;
  }
  std::vector<unsigned char> pairs(source.size() / 4 * 6);
  kernels::yuv422ToRGB(source.data(), pixels, pairs.data(), pixels, 1);
  for (std::size_t i = 0; i < pRgb.size(); i += 3) std::copy_n(&pairs[2 * i], 3, &pRgb[i]);
}

}  // namespace

Picture toPicture(const CameraImage& pImage) {
  const std::size_t pixels =
      static_cast<std::size_t>(pImage.width) * static_cast<std::size_t>(pImage.height);
  Picture picture{pImage.width, pImage.height, std::vector<unsigned char>(pixels * 3)};
  if (pImage.colorSpace == kYUV422 || pImage.colorSpace == kYYCbCr || pImage.colorSpace == kYUV) {
    convertYuv(pImage, picture.rgb);
  } else if (const ToRgb toRgb = pixelConverter(pImage.colorSpace)) {
    unsigned char* target = picture.rgb.data();
    for (std::size_t i = 0; i < pixels; ++i) {
      const Rgb rgb = toRgb(pImage.pixels + i * static_cast<std::size_t>(pImage.layers));
      *target++ = rgb.red;
      *target++ = rgb.green;
      *target++ = rgb.blue;
    }
  } else {
    throw OXFailure(fmt::format("can't make a picture of colour space {}", pImage.colorSpace));
  }
  return picture;
}

}  // namespace OX::cli
