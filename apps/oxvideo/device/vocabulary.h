/// Parses command-line values: sizes, rates, ranges, names of the device's constants, and formats
/// the names. Every parser throws OXUsageError that lists what is allowed.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "media/framesize.h"

namespace OX::cli {

/// What parseResolution() accepts, as a size.
FrameSize parseSize(const std::string& pText);
/// Frames per second: above 0, up to 1000.
double parseFps(const std::string& pText);
/// "10:20": first and last, counted from 0, first <= last.
std::pair<int, int> parseRange(const std::string& pText);

/// "640x480", "kVGA", "VGA" or 2, in any case.
int parseResolution(const std::string& pText);
/// "kRGB", "RGB" or 11: one of the ten colour spaces. In any case, unless only case tells two of
/// them apart: kYuv and kYUV, kHsy and kHSY.
int parseColorSpace(const std::string& pText);
/// "resolution", "frame-rate", "buffers", "select", "colorspace", "kCameraResolutionID" or any
/// number.
int parseParameter(const std::string& pText);

/// "kVGA", or the digits of a number without a name.
std::string resolutionName(int pResolution);
std::string colorSpaceName(int pColorSpace);
/// "MT9M114", or the number.
std::string cameraModelName(int pModel);

const std::vector<std::string>& allResolutions();
const std::vector<std::string>& allColorSpaces();

}  // namespace OX::cli
