#include "reply.h"

#include <boost/make_shared.hpp>
#include <cstdint>
#include <cstring>
#include <utility>

#include "memory/segment.h"

namespace OX {
namespace {

OXValue toValue(const OXImage& pImage, OXValue pPixels) {
  const auto stamp = static_cast<std::uint64_t>(pImage.fTimeStamp);
  return OXValue::array(pImage.fWidth, pImage.fHeight, pImage.fNbLayers, pImage.fColorSpace,
                        static_cast<int>(static_cast<std::uint32_t>(stamp >> 32)),
                        static_cast<int>(static_cast<std::uint32_t>(stamp)), std::move(pPixels),
                        static_cast<int>(pImage.fCameraId), pImage.fLeftAngle, pImage.fTopAngle,
                        pImage.fRightAngle, pImage.fBottomAngle);
}

}  // namespace

OXValue lentReply(Frame&& pFrame) {
  const auto owner = boost::make_shared<const Frame>(std::move(pFrame));
  const OXImage& image = owner->image();
  OXValue pixels;
  pixels.AdoptBinary(owner, image.fData, static_cast<int>(image.getSizeBytes()));
  return toValue(image, std::move(pixels));
}

OXValue copiedReply(const Frame& pFrame) { return pFrame.image().toOXValue(); }

OXValue joinedReply(std::span<const Frame> pFrames) {
  std::size_t size = 0;
  for (const Frame& frame : pFrames) size += frame ? frame.image().getSizeBytes() : 0;
  // Not filled with zeros first.
  const boost::shared_ptr<unsigned char[]> pixels(new unsigned char[size]);
  unsigned char* end = pixels.get();
  OXValue::Array result;
  for (const Frame& frame : pFrames) {
    if (!frame) {
      result.emplace_back();
      continue;
    }
    const OXImage& image = frame.image();
    std::memcpy(end, image.fData, image.getSizeBytes());
    end += image.getSizeBytes();
    result.push_back(toValue(image, OXValue::Array()));
  }
  OXValue joined;
  joined.AdoptBinary(pixels, pixels.get(), static_cast<int>(size));
  result.push_back(std::move(joined));
  return {std::move(result)};
}

OXValue sharedReply(const Frame& pFrame, const Segment& pSegment, const Slots::Slot& pSlot) {
  const OXImage& image = pFrame.image();
  return toValue(image,
                 OXValue::array(pSlot.index, static_cast<int>(pSegment.offsetOf(pSlot.index)),
                                static_cast<int>(image.getSizeBytes()), pSlot.generation));
}

}  // namespace OX
