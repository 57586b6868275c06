/// The linear model of the lens: the image's width spans the horizontal aperture, its height the
/// vertical one.
///
/// Image positions are fractions of width and height from the top left corner; angles are radians
/// from the camera's axis, the horizontal one positive to the left (counterclockwise seen from
/// above), the vertical one positive to the bottom. Single precision throughout, evaluated in the
/// order written. Nothing is checked: positions outside 0 to 1 are extrapolated.
#pragma once

#include <bit>
#include <cstdint>

namespace OX::lens {

struct Aperture {
  float horizontal;  ///< radians
  float vertical;    ///< radians
};

/// Calibrated values, as single-precision bits so that they are the same with every compiler:
/// 0.83384442 and 0.64195555 for the VGA lens, 1.0623667 and 0.83035553 for the HD one.
inline constexpr Aperture kVgaLens{std::bit_cast<float>(std::uint32_t{0x3F5576D4}),
                                   std::bit_cast<float>(std::uint32_t{0x3F245733})};
inline constexpr Aperture kHdLens{std::bit_cast<float>(std::uint32_t{0x3F87FBA2}),
                                  std::bit_cast<float>(std::uint32_t{0x3F54922E})};

inline float horizontalAngle(float pX, float pAperture) { return -(pX - 0.5f) * pAperture; }
inline float verticalAngle(float pY, float pAperture) { return (pY - 0.5f) * pAperture; }
inline float horizontalPosition(float pAngle, float pAperture) {
  return (-pAngle) / pAperture + 0.5f;
}
inline float verticalPosition(float pAngle, float pAperture) { return 0.5f + pAngle / pAperture; }

}  // namespace OX::lens
