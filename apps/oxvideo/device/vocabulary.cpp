// Names and numbers are both accepted; every refusal lists what is allowed.
#include "device/vocabulary.h"

#include <fmt/format.h>

#include <charconv>
#include <optional>

#include <oxframework/oxdefinitions.h>
#include "terminal/exitstatus.h"
#include "terminal/text.h"

namespace OX::cli {

namespace {

// from_chars, unlike stoi, accepts no blanks, no plus sign and no locale's comma; the whole word
// must be the number.
template <typename Number>
std::optional<Number> parseNumber(std::string_view pText) {
  Number number = {};
  const auto [end, error] = std::from_chars(pText.data(), pText.data() + pText.size(), number);
  if (error != std::errc() || end != pText.data() + pText.size()) return std::nullopt;
  return number;
}

/// The numbers before and after a separator.
std::optional<std::pair<int, int>> parsePair(const std::string& pText, char pSign) {
  const std::size_t sign = pText.find(pSign);
  if (sign == std::string::npos) return std::nullopt;
  const auto first = parseNumber<int>(std::string_view(pText).substr(0, sign));
  const auto second = parseNumber<int>(std::string_view(pText).substr(sign + 1));
  if (!first || !second) return std::nullopt;
  return std::pair(*first, *second);
}

using NameOf = const char* (*)(int);

std::vector<std::string> namesUpTo(int pLast, NameOf pNameOf) {
  std::vector<std::string> names;
  for (int number = 0; number <= pLast; ++number)
    if (const char* name = pNameOf(number)) names.emplace_back(name);
  return names;
}

int parseName(const std::string& pText, const char* pWhat, int (*pFromName)(const char*),
              NameOf pNameOf, const std::vector<std::string>& pAll) {
  // Names first: the ten colour spaces are not numbered in sequence, and the vocabulary of the
  // framework is the only list of both.
  const int named = pFromName(pText.c_str());
  if (named >= 0) return named;
  const auto number = parseNumber<int>(pText);
  if (number && *number >= 0 && pNameOf(*number)) return *number;
  throw OXUsageError(
      fmt::format("\"{}\" is not a {}: use one of {}", printable(pText), pWhat, join(pAll)));
}

std::string nameOrNumber(const char* pName, int pNumber) {
  return pName ? pName : std::to_string(pNumber);
}

struct ParameterName {
  const char* word;
  const char* constant;
  int number;
};
constexpr ParameterName kParameters[] = {
    {"resolution", "kCameraResolutionID", kCameraResolutionID},
    {"frame-rate", "kCameraFrameRateID", kCameraFrameRateID},
    {"buffers", "kCameraBufferSizeID", kCameraBufferSizeID},
    {"select", "kCameraSelectID", kCameraSelectID},
    {"colorspace", "kCameraColorSpaceID", kCameraColorSpaceID},
};

}  // namespace

FrameSize parseSize(const std::string& pText) {
  const auto size = parsePair(pText, 'x');
  // Four sizes and no others: the device has buffers and scaling for these.
  if (size && getResolutionFromSize(size->first, size->second) >= 0)
    return {size->first, size->second};
  throw OXUsageError(
      fmt::format("\"{}\" is not a camera size: use one of 160x120, 320x240, 640x480, 1280x960",
                  printable(pText)));
}

double parseFps(const std::string& pText) {
  const auto fps = parseNumber<double>(pText);
  // Far above any camera: what is larger was meant as something else, such as microseconds.
  if (fps && *fps > 0 && *fps <= 1000) return *fps;
  throw OXUsageError(fmt::format(
      "\"{}\" is not a frame rate: use a number above 0, up to 1000 (frames per second)",
      printable(pText)));
}

std::pair<int, int> parseRange(const std::string& pText) {
  const auto range = parsePair(pText, ':');
  if (range && range->first >= 0 && range->first <= range->second) return *range;
  throw OXUsageError(fmt::format(
      "\"{}\" is not a range: use FIRST:LAST, counted from 0, as in 10:20", printable(pText)));
}

int parseResolution(const std::string& pText) {
  return parseName(pText, "resolution", getResolutionFromName, getResolutionName, allResolutions());
}

int parseColorSpace(const std::string& pText) {
  return parseName(pText, "colour space", getColorSpaceFromName, getColorSpaceName,
                   allColorSpaces());
}

int parseParameter(const std::string& pText) {
  std::vector<std::string> words;
  for (const ParameterName& parameter : kParameters) {
    if (pText == parameter.word || pText == parameter.constant) return parameter.number;
    words.emplace_back(fmt::format("{} ({})", parameter.word, parameter.number));
  }
  if (const auto number = parseNumber<int>(pText)) return *number;
  throw OXUsageError(fmt::format("\"{}\" is not a camera parameter: use one of {}, or any number",
                                 printable(pText), join(words)));
}

std::string resolutionName(int pResolution) {
  return nameOrNumber(getResolutionName(pResolution), pResolution);
}

std::string colorSpaceName(int pColorSpace) {
  return nameOrNumber(getColorSpaceName(pColorSpace), pColorSpace);
}

std::string cameraModelName(int pModel) {
  const char* name = pModel == kOV7670 ? "OV7670" : pModel == kMT9M114 ? "MT9M114" : nullptr;
  return nameOrNumber(name, pModel);
}

const std::vector<std::string>& allResolutions() {
  static const std::vector<std::string> names = namesUpTo(k4VGA, getResolutionName);
  return names;
}

const std::vector<std::string>& allColorSpaces() {
  static const std::vector<std::string> names = namesUpTo(kHSMixed, getColorSpaceName);
  return names;
}

}  // namespace OX::cli
