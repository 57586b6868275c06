// A reply comes from another process: every size is checked before a pixel is touched.
#include "device/imagereply.h"

#include <fmt/format.h>

#include <oxframework/oxdefinitions.h>
#include <oxframework/oxerror.h>
#include "terminal/exitstatus.h"

namespace OX::cli {

namespace {

constexpr int kElements = 12;
constexpr int kPixels = 6;
constexpr int kMaxSide = 1280;  // neither side of an image is longer

[[noreturn]] void refuse(const std::string& pWhy) {
  throw OXFailure("the broker sent an invalid image: " + pWhy);
}

int intAt(const OXValue& pReply, int pIndex, const char* pWhat) {
  if (!pReply[pIndex].isInt())
    refuse(
        fmt::format("its {} has type {}", pWhat, OXValue::TypeToString(pReply[pIndex].getType())));
  return pReply[pIndex].toInt();
}

/// Everything but the pixels.
CameraImage parseHeader(const OXValue& pReply) {
  if (!pReply.isArray() || pReply.getSize() != kElements)
    refuse(fmt::format("{} of size {}, not an array of {}", OXValue::TypeToString(pReply.getType()),
                       pReply.getSize(), kElements));
  CameraImage image;
  image.width = intAt(pReply, 0, "width");
  image.height = intAt(pReply, 1, "height");
  image.layers = intAt(pReply, 2, "number of layers");
  image.colorSpace = intAt(pReply, 3, "colour space");
  if (image.width < 1 || image.height < 1 || image.width > kMaxSide || image.height > kMaxSide)
    refuse(fmt::format("its size is {}x{}", image.width, image.height));
  if (image.layers != getLayersFromColorSpace(image.colorSpace))
    refuse(fmt::format("{} layers in colour space {}", image.layers, image.colorSpace));
  // 64 bits travel as two ints; the low half is unsigned, whatever its sign says.
  const auto high = static_cast<std::uint32_t>(intAt(pReply, 4, "time stamp"));
  const auto low = static_cast<std::uint32_t>(intAt(pReply, 5, "time stamp"));
  image.timestampUs = static_cast<std::int64_t>(std::uint64_t{high} << 32 | low);
  image.camera = intAt(pReply, 7, "camera");
  return image;
}

}  // namespace

std::optional<CameraImage> parseImageReply(const OXValue& pReply) {
  if (!pReply.isValid()) return std::nullopt;
  CameraImage image = parseHeader(pReply);
  image.owner = pReply[kPixels];
  if (!image.owner.isBinary()) refuse("it has no pixels");
  if (static_cast<std::size_t>(image.owner.getSize()) != image.sizeBytes())
    refuse(fmt::format("{} bytes of pixels for {}x{}x{}", image.owner.getSize(), image.width,
                       image.height, image.layers));
  image.pixels = static_cast<const unsigned char*>(image.owner.GetBinary());
  return image;
}

std::vector<std::optional<CameraImage>> parseImagesReply(const OXValue& pReply) {
  if (!pReply.isValid()) return {};
  if (!pReply.isArray() || pReply.getSize() < 1) refuse("the reply is not an array");
  const int count = pReply.getSize() - 1;
  const OXValue& owner = pReply[count];
  if (!owner.isBinary()) refuse("the reply has no pixels at its end");
  const auto* pixels = static_cast<const unsigned char*>(owner.GetBinary());
  auto left = static_cast<std::size_t>(owner.getSize());

  std::vector<std::optional<CameraImage>> images;
  for (int i = 0; i < count; ++i) {
    // In the place of a camera without a frame; it has no pixels at the end either.
    if (pReply[i].isArray() && pReply[i].getSize() == 0) {
      images.emplace_back();
      continue;
    }
    CameraImage image = parseHeader(pReply[i]);
    if (image.sizeBytes() > left) refuse("fewer pixels than the sizes require");
    image.owner = owner;
    image.pixels = pixels;
    pixels += image.sizeBytes();
    left -= image.sizeBytes();
    images.emplace_back(std::move(image));
  }
  // Surplus bytes mean that sizes and pixels don't belong together.
  if (left != 0) refuse(fmt::format("{} bytes of pixels too many", left));
  return images;
}

}  // namespace OX::cli
