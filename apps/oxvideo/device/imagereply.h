/// Images as the device sends them.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include <oxframework/oxvalue.h>

namespace OX::cli {

/// One image: width * height * layers bytes, rows top down without gaps.
struct ImageReply {
  int width = 0;
  int height = 0;
  int layers = 0;
  int colorSpace = 0;
  std::int64_t timestampUs = 0;  ///< since 1970, by the broker's clock
  int camera = 0;
  OXValue owner;                          ///< keeps pixels alive
  const unsigned char* pixels = nullptr;  ///< never null in a parsed reply

  std::size_t sizeBytes() const {
    return static_cast<std::size_t>(width) * static_cast<std::size_t>(height) *
           static_cast<std::size_t>(layers);
  }
};

/// The reply of getImageRemote and getDirectRawImageRemote. Nothing for an invalid value: the
/// camera had no frame. Throws OXFailure when what came is no image: every size is checked.
std::optional<ImageReply> parseImageReply(const OXValue& pReply);

/// The reply of getImagesRemote: the images in the order of the cameras, nothing in place of one
/// that the camera didn't have. Empty for an invalid value. Throws OXFailure as above.
std::vector<std::optional<ImageReply>> parseImagesReply(const OXValue& pReply);

}  // namespace OX::cli
