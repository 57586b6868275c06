/// Pixels as the cameras give them, kYUV422: Y0 U Y1 V for two pixels.
#pragma once

#include <vector>

namespace OX::cli {

/// pRgb: red, green, blue, an even number of pixels. The reverse of the colours that the device
/// gives in kRGB: BT.601, luma 16 to 235; two pixels share the mean of their chroma.
void packYuyv(const std::vector<unsigned char>& pRgb, std::vector<unsigned char>& pTarget);

}  // namespace OX::cli
