/// Converts images of any colour space to RGB pictures for people, and pictures to PNG.
#pragma once

#include <string>
#include <vector>

#include "media/cameraimage.h"

namespace OX::cli {

/// Red, green, blue; rows top down without gaps.
struct Picture {
  int width = 0;
  int height = 0;
  std::vector<unsigned char> rgb;
};

/// How each colour space is shown:
///
/// | colour space          | shown as                                                             |
/// |-----------------------|----------------------------------------------------------------------|
/// | kYuv                  | grey                                                                 |
/// | kYUV422, kYUV, kYYCbCr| the colours that the device delivers in kRGB                         |
/// | kRGB, kBGR            | as they are                                                          |
/// | kHSY                  | the colour of that hue and saturation, as bright as the luma says    |
/// | kHsy                  | the hue at full saturation and brightness                            |
/// | kHSMixed              | the hue at its saturation and full brightness                        |
/// | kH2RGB                | its bytes as blue, green, red: so hue 0 is red, as in the ones above |
///
/// Throws OXFailure for an unknown colour space.
Picture toPicture(const CameraImage& pImage);

/// A PNG file with 8 bits per channel. Throws OXFailure when encoding fails.
std::string encodePng(const Picture& pPicture);

}  // namespace OX::cli
