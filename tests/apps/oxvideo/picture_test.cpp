// Colours worked out by hand, one table row each.
#include "media/picture.h"

#include <gtest/gtest.h>
#include <png.h>

#include <numeric>

#include <oxframework/oxdefinitions.h>
#include "terminal/exitstatus.h"

namespace OX::test {
namespace {

using namespace cli;

/// The first pixel of a picture made of two pixels' bytes.
std::vector<int> shown(int pColorSpace, const std::vector<unsigned char>& pBytes) {
  CameraImage image;
  image.width = 2;
  image.height = 1;
  image.layers = getLayersFromColorSpace(pColorSpace);
  image.colorSpace = pColorSpace;
  image.pixels = pBytes.data();
  EXPECT_EQ(image.sizeBytes(), pBytes.size());
  const Picture picture = toPicture(image);
  EXPECT_EQ(picture.rgb.size(), 6u);
  return {picture.rgb[0], picture.rgb[1], picture.rgb[2]};
}

TEST(Picture, EachColourSpaceAgainstKnownPixels) {
  using Bytes = std::vector<unsigned char>;
  using Rgb = std::vector<int>;
  const struct {
    int colorSpace;
    Bytes bytes;
    Rgb expected;
    const char* why;
  } rows[] = {
      {kYuv, {100, 0}, {100, 100, 100}, "luma as grey"},
      {kHsy, {0, 0}, {255, 0, 0}, "hue 0 is red"},
      {kHsy, {85, 0}, {0, 255, 0}, "a third of the circle is green"},
      {kHsy, {170, 0}, {0, 0, 255}, "two thirds are blue"},
      {kHsy, {255, 0}, {255, 0, 0}, "the circle has 255 steps"},
      {kYUV422, {81, 90, 16, 240}, {254, 0, 0}, "red: (298*65 + 409*112) >> 8, clamped below"},
      {kYUV422, {235, 128, 16, 128}, {254, 254, 254}, "white as the device delivers it"},
      {kYUV, {81, 90, 240, 0, 0, 0}, {254, 0, 0}, "the same, packed"},
      {kYYCbCr, {81, 16, 90, 240}, {254, 0, 0}, "the same, lumas first"},
      {kRGB, {1, 2, 3, 4, 5, 6}, {1, 2, 3}, "as it is"},
      {kBGR, {1, 2, 3, 4, 5, 6}, {3, 2, 1}, "exchanged"},
      {kHSY, {0, 255, 81, 0, 0, 0}, {253, 0, 0}, "red as bright as luma 81: 75.66 / 0.299"},
      {kHSY, {85, 0, 128, 0, 0, 0}, {130, 130, 130}, "no saturation: the hue doesn't matter"},
      {kHSY, {85, 255, 0, 0, 0, 0}, {0, 0, 0}, "below black is black"},
      {kHSY, {170, 255, 235, 0, 0, 0}, {0, 0, 255}, "blue can't be that bright: clamped"},
      {kH2RGB, {0, 0, 255, 0, 0, 0}, {255, 0, 0}, "hue 0 comes as 0, 0, 255 and is red"},
      {kHSMixed, {85, 255, 85, 0, 0, 0}, {0, 255, 0}, "hue at full brightness"},
      {kHSMixed, {85, 0, 85, 0, 0, 0}, {255, 255, 255}, "unsaturated is white"},
  };
  for (const auto& row : rows) EXPECT_EQ(shown(row.colorSpace, row.bytes), row.expected) << row.why;
  EXPECT_THROW(shown(3, {0, 0, 0, 0, 0, 0}), OXFailure) << "there is no colour space 3";
}

TEST(Picture, PngKeepsEveryPixel) {
  Picture picture{7, 5, std::vector<unsigned char>(7 * 5 * 3)};
  std::iota(picture.rgb.begin(), picture.rgb.end(), static_cast<unsigned char>(200));
  const std::string file = encodePng(picture);

  png_image read = {};
  read.version = PNG_IMAGE_VERSION;
  ASSERT_TRUE(png_image_begin_read_from_memory(&read, file.data(), file.size()));
  read.format = PNG_FORMAT_RGB;
  ASSERT_EQ(read.width, 7u);
  ASSERT_EQ(read.height, 5u);
  std::vector<unsigned char> pixels(picture.rgb.size());
  ASSERT_TRUE(png_image_finish_read(&read, nullptr, pixels.data(), 0, nullptr));
  EXPECT_EQ(pixels, picture.rgb);
}

}  // namespace
}  // namespace OX::test
