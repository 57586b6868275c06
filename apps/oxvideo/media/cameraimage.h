/// An image in one of the ten colour spaces, as cameras send it and recordings hold it.
#pragma once

#include <cstddef>
#include <cstdint>

#include <oxframework/oxvalue.h>

namespace OX::cli {

/// width * height * layers bytes, rows top down without gaps.
struct CameraImage {
  int width = 0;
  int height = 0;
  int layers = 0;
  int colorSpace = 0;
  std::int64_t timestampUs = 0;  ///< since 1970, by the broker's clock
  int camera = 0;
  OXValue owner;                          ///< keeps pixels alive
  const unsigned char* pixels = nullptr;  ///< null: the image is damaged

  std::size_t sizeBytes() const {
    return static_cast<std::size_t>(width) * static_cast<std::size_t>(height) *
           static_cast<std::size_t>(layers);
  }
};

}  // namespace OX::cli
