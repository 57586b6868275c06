// The reference: every colour space as a plain loop over macro-pixels, with no tricks. The vector
// forms are tested against this file bit for bit and leave it the rows that fill no vector. The
// coefficients and their oddities are the formats' definition.
#include <algorithm>
#include <cstddef>

#include "rows.h"

namespace OX::kernels {
namespace {

using Byte = unsigned char;

Byte clampToByte(int pValue) { return static_cast<Byte>(std::clamp(pValue, 0, 255)); }

/// Calls pConvert(source macro-pixel, destination) for each macro-pixel of the rows, which are
/// pAdvance source bytes apart.
template <int kBytesOut, typename Convert>
void forEachMacroPixel(const Rows& pRows, std::ptrdiff_t pAdvance, Convert pConvert) {
  const Rows rows = pRows;  // a local copy: for the compiler, no written byte can change it
  for (std::ptrdiff_t y = 0; y < rows.count; ++y) {
    const Byte* const in = rows.source + rows.sourceStride * y;
    Byte* const out = rows.destination + rows.destinationStride * y;
    for (std::ptrdiff_t i = 0; i < rows.macroPixels; ++i) {
      pConvert(in + i * pAdvance, out + kBytesOut * i);
    }
  }
}

template <int kBytesOut, typename Convert>
void forEachMacroPixel(const Rows& pRows, Convert pConvert) {
  forEachMacroPixel<kBytesOut>(pRows, 4 * pRows.step, pConvert);
}

void rowsToYuv(const Rows& pRows) {
  forEachMacroPixel<2>(pRows, [step = pRows.step](const Byte* in, Byte* out) {
    out[0] = in[0];
    out[1] = in[2 * step];
  });
}

void rowsToYUV422(const Rows& pRows) {
  // The second luma is the Y0 of a later macro-pixel, also at step 0, where it is the first Y0
  // again.
  const std::ptrdiff_t secondLuma = 4 * (pRows.step / 2);
  forEachMacroPixel<4>(pRows, [secondLuma](const Byte* in, Byte* out) {
    out[0] = in[0];
    out[1] = in[1];
    out[2] = in[secondLuma];
    out[3] = in[3];
  });
}

void rowsToYUV(const Rows& pRows) {
  forEachMacroPixel<6>(pRows, [](const Byte* in, Byte* out) {
    out[0] = in[0];
    out[1] = out[4] = in[1];
    out[2] = out[5] = in[3];
    out[3] = in[2];
  });
}

void rowsToYYCbCr(const Rows& pRows) {
  forEachMacroPixel<4>(pRows, [](const Byte* in, Byte* out) {
    out[0] = in[0];
    out[1] = in[2];
    out[2] = in[1];
    out[3] = in[3];
  });
}

/// Red and blue go to bytes kRed and kBlue of each pixel, green to byte 1.
template <int kRed, int kBlue>
void macroPixelToRGB(const Byte* pIn, Byte* pOut) {
  const int u = pIn[1] - 128;
  const int v = pIn[3] - 128;
  const int red = 409 * v;
  const int green = -100 * u - 208 * v;
  const int blue = 516 * u;
  for (int k = 0; k < 2; ++k) {
    const int luma = 298 * (pIn[2 * k] - 16);
    pOut[3 * k + kRed] = clampToByte((luma + red) >> 8);
    pOut[3 * k + 1] = clampToByte((luma + green) >> 8);
    pOut[3 * k + kBlue] = clampToByte((luma + blue) >> 8);
  }
}

void rowsToRGB(const Rows& pRows) { forEachMacroPixel<6>(pRows, macroPixelToRGB<0, 2>); }

void rowsToBGR(const Rows& pRows) { forEachMacroPixel<6>(pRows, macroPixelToRGB<2, 0>); }

/// What the hue family takes from one pair of U and V.
struct Hue {
  int hue;         ///< -127..127, stored modulo 256: 0 red, 85 green, -85 blue
  int numerator;   ///< of the saturation
  int chromaTerm;  ///< the saturation's denominator is 298 * Y plus this

  Byte saturation(int pLuma) const { return clampToByte(numerator / (298 * pLuma + chromaTerm)); }
};

/// The differences are those of the channels times 256, with the bias of U and V folded in. Green's
/// two coefficients are swapped compared with macroPixelToRGB: on purpose, do not align.
Hue hueOf(int pU, int pV) {
  const int redGreen = 208 * pU + 509 * pV - 91776;
  const int greenBlue = -724 * pU - 100 * pV + 105472;
  const int redBlue = -516 * pU + 409 * pV + 13696;
  // Each plus 1, so that no denominator that is used is 0.
  const int red = 409 * pV - 57119;
  const int green = -208 * pU - 100 * pV + 34657;
  const int blue = 516 * pU - 70815;

  // All divisions truncate towards zero. The -1 of the second case stays, and so does the order.
  if (redGreen > 0 && greenBlue > 0) {
    return {85 * greenBlue / (2 * redBlue), 255 * redBlue, red};
  }
  if (redGreen > 0 && redBlue > 0) {
    return {85 * greenBlue / (2 * redGreen) - 1, 255 * redGreen, red};
  }
  if (redGreen > 0) return {85 * redGreen / (-2 * greenBlue) - 85, -255 * greenBlue, blue};
  if (greenBlue < 0) return {85 * redGreen / (-2 * redBlue) - 85, -255 * redBlue, blue};
  if (redBlue > 0) return {-85 * redBlue / (2 * greenBlue) + 85, 255 * greenBlue, green};
  if (redGreen < 0) return {85 * redBlue / (2 * redGreen) + 85, -255 * redGreen, green};
  return {0, 0, green};  // grey
}

void rowsToHSY(const Rows& pRows) {
  forEachMacroPixel<6>(pRows, [](const Byte* in, Byte* out) {
    const Hue hue = hueOf(in[1], in[3]);
    for (int k = 0; k < 2; ++k) {
      out[3 * k] = static_cast<Byte>(hue.hue);
      out[3 * k + 1] = hue.saturation(in[2 * k]);
      out[3 * k + 2] = in[2 * k];
    }
  });
}

void rowsToHSMixed(const Rows& pRows) {
  forEachMacroPixel<6>(pRows, [](const Byte* in, Byte* out) {
    const Hue hue = hueOf(in[1], in[3]);
    for (int k = 0; k < 2; ++k) {
      out[3 * k] = static_cast<Byte>(hue.hue);
      out[3 * k + 1] = hue.saturation(in[2 * k]);
      out[3 * k + 2] = static_cast<Byte>(hue.hue);
    }
  });
}

void rowsToHsy(const Rows& pRows) {
  forEachMacroPixel<2>(pRows, 2 * pRows.step, [](const Byte* in, Byte* out) {
    out[0] = out[1] = static_cast<Byte>(hueOf(in[1], in[3]).hue);
  });
}

/// The hue scale as colours: six ramps of slope 6, stored as blue, green, red.
void hueToColour(int pHue, Byte* pOut) {
  int blue = 0;
  int green = 0;
  int red = 0;
  if (pHue <= 42) {
    green = 6 * pHue;
    red = 255;
  } else if (pHue <= 84) {
    green = 255;
    red = 1 - 6 * pHue;
  } else if (pHue <= 126) {
    blue = 6 * pHue + 2;
    green = 255;
  } else if (pHue <= 168) {
    blue = 255;
    green = -6 * pHue - 7;
  } else if (pHue <= 210) {
    blue = 255;
    red = 6 * pHue + 10;
  } else if (pHue <= 253) {
    blue = -6 * pHue - 15;
    red = 255;
  } else {
    red = 255;
  }
  pOut[0] = static_cast<Byte>(blue);
  pOut[1] = static_cast<Byte>(green);
  pOut[2] = static_cast<Byte>(red);
}

void rowsToH2RGB(const Rows& pRows) {
  forEachMacroPixel<6>(pRows, [](const Byte* in, Byte* out) {
    const int hue = static_cast<Byte>(hueOf(in[1], in[3]).hue);
    hueToColour(hue, out);
    hueToColour(hue, out + 3);
  });
}

}  // namespace

const RowKernels& plainRows() {
  static constexpr RowKernels kRows = {
      .toYuv = rowsToYuv,
      .toYUV422 = rowsToYUV422,
      .toYUV = rowsToYUV,
      .toRGB = rowsToRGB,
      .toHSY = rowsToHSY,
      .toBGR = rowsToBGR,
      .toYYCbCr = rowsToYYCbCr,
      .toH2RGB = rowsToH2RGB,
      .toHSMixed = rowsToHSMixed,
      .toHsy = rowsToHsy,
  };
  return kRows;
}

}  // namespace OX::kernels
