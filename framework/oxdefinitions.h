/// The vocabulary that images, cameras and clients share: resolutions, colour spaces,
/// camera models and parameter identifiers. All are plain ints on the wire. Every function here may
/// be called from any thread.
#pragma once

#include <cstddef>

#include "oxapi.h"

namespace OX {

/// Resolutions. setSizeFromResolution() has their width and height.
enum Resolution : int {
  kQQVGA = 0,  ///< 160 x 120
  kQVGA = 1,   ///< 320 x 240
  kVGA = 2,    ///< 640 x 480
  k4VGA = 3,   ///< 1280 x 960
};

/// Colour spaces. getLayersFromColorSpace() has their bytes per pixel.
/// The layouts, byte by byte, are in docs/colour-formats.md.
enum ColorSpace : int {
  kYuv = 0,       ///< luma only, 1 byte
  kHsy = 6,       ///< hue only, 1 byte
  kYUV422 = 9,    ///< Y0 U Y1 V for two pixels, 2 bytes a pixel: the cameras' own format
  kYUV = 10,      ///< 3 bytes
  kRGB = 11,      ///< 3 bytes
  kHSY = 12,      ///< hue, saturation, luma, 3 bytes
  kBGR = 13,      ///< 3 bytes
  kYYCbCr = 14,   ///< Y0 Y1 U V for two pixels, 2 bytes a pixel
  kH2RGB = 15,    ///< hue as a fully saturated colour, 3 bytes
  kHSMixed = 16,  ///< hue, saturation, hue, 3 bytes
};

/// Camera models.
enum CameraModel : int {
  kOV7670 = 1,   ///< a VGA camera
  kMT9M114 = 2,  ///< an HD camera
};

/// Parameter identifiers of getParam, setParam and the get/setCameraParameter family.
enum CameraParameter : int {
  kCameraResolutionID = 14,
  kCameraFrameRateID = 15,
  kCameraBufferSizeID = 16,
  kCameraSelectID = 18,
  kCameraColorSpaceID = 20,
};

/// The size in bytes of the largest image: 1280 x 960 pixels of three bytes.
constexpr std::size_t kMaxImageBytes = std::size_t{1280} * 960 * 3;

/// Writes width and height in pixels, -1 into both for an unknown resolution.
OX_API void setSizeFromResolution(int pResolution, int& pWidth, int& pHeight);

/// The resolution of exactly this size, or -1.
OX_API int getResolutionFromSize(int pWidth, int pHeight);

/// Bytes per pixel: 1 for kYuv and kHsy, 2 for kYUV422 and kYYCbCr, 3 for every other number.
OX_API int getLayersFromColorSpace(int pColorSpace);

/// The name of a number, "kVGA" for example; null for a number without a name. A constant.
OX_API const char* getResolutionName(int pResolution);
OX_API const char* getColorSpaceName(int pColorSpace);

/// The number of a name, with or without its "k" ("VGA"); -1 for an unknown or null one.
/// Case matters only between kYuv and kYUV, and between kHsy and kHSY.
OX_API int getResolutionFromName(const char* pName);
OX_API int getColorSpaceFromName(const char* pName);

}  // namespace OX
