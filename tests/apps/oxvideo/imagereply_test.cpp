// Replies come from another process: every malformed one is refused before its pixels are read.
#include "device/imagereply.h"

#include <gtest/gtest.h>

#include <oxframework/oxdefinitions.h>
#include "terminal/exitstatus.h"

namespace OX::test {
namespace {

using namespace cli;

OXValue binary(int pSize, char pFill = 'x') {
  const std::string bytes(static_cast<std::size_t>(pSize), pFill);
  OXValue value;
  value.SetBinary(bytes.data(), pSize);
  return value;
}

OXValue reply(int pWidth, int pHeight, int pLayers, int pColorSpace, OXValue pPixels) {
  return OXValue::array(pWidth, pHeight, pLayers, pColorSpace, 1, -2, std::move(pPixels), 1, 0.0f,
                        0.0f, 0.0f, 0.0f);
}

OXValue with(OXValue pReply, int pIndex, OXValue pElement) {
  pReply[pIndex] = std::move(pElement);
  return pReply;
}

const OXValue kNoPixels = OXValue(OXValue::Array());

TEST(CameraImage, GoodOnesAreTakenApart) {
  const auto image = parseImageReply(reply(4, 2, 3, kRGB, binary(24, 'p')));
  ASSERT_TRUE(image);
  EXPECT_EQ(image->width, 4);
  EXPECT_EQ(image->height, 2);
  EXPECT_EQ(image->camera, 1);
  EXPECT_EQ(image->timestampUs, 0x1fffffffe) << "the low half has no sign";
  EXPECT_EQ(image->pixels[23], 'p');
  EXPECT_FALSE(parseImageReply(OXValue())) << "invalid: no frame, not an error";
}

TEST(CameraImage, WrongOnesAreRefused) {
  const OXValue good = reply(4, 2, 3, kRGB, binary(24));
  const struct {
    OXValue value;
    const char* why;
  } rows[] = {
      {OXValue(true), "no array"},
      {OXValue(OXValue::Array()), "nothing in it"},
      {OXValue::array(4, 2, 3, 11), "too short"},
      {reply(4, 2, 3, kRGB, binary(23)), "a byte is missing"},
      {reply(4, 2, 3, kRGB, binary(25)), "a byte too many"},
      {reply(4, 2, 3, kRGB, OXValue("pixels")), "pixels are no binary"},
      {reply(4, 2, 1, kRGB, binary(8)), "layers of another colour space"},
      {reply(0, 2, 3, kRGB, binary(0)), "no width"},
      {reply(-4, -2, 3, kRGB, binary(24)), "negative sides with a positive product"},
      {reply(1281, 1, 3, kRGB, binary(1281 * 3)), "wider than any camera"},
      {reply(65536, 65536, 1, kYuv, binary(0)), "a product that wraps to 0"},
      {with(good, 0, "4"), "width as text"},
      {with(good, 4, 0.5f), "half a time stamp"},
      {with(good, 7, OXValue()), "no camera"},
  };
  for (const auto& row : rows) EXPECT_THROW(parseImageReply(row.value), OXFailure) << row.why;
}

TEST(ImagesReply, PixelsOfSeveralAreCutBySize) {
  const OXValue first = reply(2, 1, 2, kYUV422, kNoPixels),
                second = reply(1, 3, 1, kYuv, kNoPixels);
  OXValue join;
  join.SetBinary("aaaabbb", 7);
  const auto images = parseImagesReply(OXValue::array(first, kNoPixels, second, join));
  ASSERT_EQ(images.size(), 3u);
  ASSERT_TRUE(images[0] && images[2]);
  EXPECT_FALSE(images[1]) << "an empty array: no frame from that camera";
  EXPECT_EQ(std::string(images[0]->pixels, images[0]->pixels + 4), "aaaa");
  EXPECT_EQ(std::string(images[2]->pixels, images[2]->pixels + 3), "bbb");
  EXPECT_TRUE(parseImagesReply(OXValue()).empty());

  for (const OXValue& wrong :
       {OXValue(OXValue::Array()), OXValue::array(first), OXValue::array(first, binary(3)),
        OXValue::array(first, binary(5)), OXValue::array(first, second, binary(6)),
        OXValue::array(OXValue(3), binary(0))})
    EXPECT_THROW(parseImagesReply(wrong), OXFailure);
}

}  // namespace
}  // namespace OX::test
