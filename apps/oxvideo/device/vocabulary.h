/// What a person asks for in words: sizes, rates, ranges, names. Every function throws OXUsageError
/// that says what would be right.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "media/framesize.h"

namespace OX::cli {

/// "640x480": one of the four sizes that a camera takes.
FrameSize parseSize(const std::string& pText);
/// Frames a second: above 0, up to 1000.
double parseFps(const std::string& pText);
/// "10:20": first and last, each from 0, first not behind last.
std::pair<int, int> parseRange(const std::string& pText);

/// "kVGA", "VGA" or 2.
int parseResolution(const std::string& pText);
/// "kRGB", "RGB" or 11: one of the ten that there are.
int parseColorSpace(const std::string& pText);
/// "resolution", "frame-rate", "buffers", "select", "colorspace", "kCameraResolutionID" or any
/// number.
int parseParameter(const std::string& pText);

/// "kVGA", or the number where there is no name.
std::string resolutionName(int pResolution);
std::string colorSpaceName(int pColorSpace);
/// "MT9M114", or the number.
std::string cameraModelName(int pModel);

const std::vector<std::string>& allResolutions();
const std::vector<std::string>& allColorSpaces();

}  // namespace OX::cli
