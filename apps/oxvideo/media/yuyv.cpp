#include "media/yuyv.h"

#include <cstddef>

namespace OX::cli {

namespace {

unsigned char luma(const unsigned char* pRgb) {
  return static_cast<unsigned char>(((66 * pRgb[0] + 129 * pRgb[1] + 25 * pRgb[2] + 128) >> 8) +
                                    16);
}

}  // namespace

void packYuyv(const std::vector<unsigned char>& pRgb, std::vector<unsigned char>& pTarget) {
  const std::size_t pairs = pRgb.size() / 6;
  pTarget.resize(pairs * 4);
  for (std::size_t i = 0; i < pairs; ++i) {
    const unsigned char* rgb = &pRgb[6 * i];
    unsigned char* target = &pTarget[4 * i];
    // Sums of both pixels: one more bit to shift away.
    const int red = rgb[0] + rgb[3], green = rgb[1] + rgb[4], blue = rgb[2] + rgb[5];
    target[0] = luma(rgb);
    target[1] =
        static_cast<unsigned char>(((-38 * red - 74 * green + 112 * blue + 256) >> 9) + 128);
    target[2] = luma(rgb + 3);
    target[3] = static_cast<unsigned char>(((112 * red - 94 * green - 18 * blue + 256) >> 9) + 128);
  }
}

}  // namespace OX::cli
