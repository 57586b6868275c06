// Names and numbers are both accepted; every refusal lists what is allowed.
#include "device/vocabulary.h"

#include <fmt/format.h>

#include <charconv>
#include <optional>

#include <oxframework/oxdefinitions.h>
#include "terminal/exitstatus.h"
#include "terminal/suggestion.h"
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

/// The names that are the word but for case, with or without their k.
std::vector<std::string> matches(const std::string& pText, const std::vector<std::string>& pAll) {
  std::vector<std::string> result;
  const std::string word = lowerCase(pText);
  for (const std::string& name : pAll) {
    const std::string known = lowerCase(name);
    if (word == known || word == known.substr(1)) result.push_back(name);
  }
  return result;
}

/// All names begin with a k, which people leave out.
std::string withPrefix(const std::string& pText) {
  return pText.starts_with('k') || pText.starts_with('K') ? pText : "k" + pText;
}

/// pWord is the text as the candidates are written.
[[noreturn]] void refuse(const std::string& pText, const char* pWhat, const std::string& pAllowed,
                         const std::string& pWord, const std::vector<std::string>& pCandidates) {
  throw OXUsageError(fmt::format("\"{}\" is not a {}: use one of {}{}", printable(pText), pWhat,
                                 pAllowed, didYouMean(pWord, pCandidates)));
}

/// Nothing if the text is neither a name nor a number of the vocabulary. Throws OXUsageError for
/// one that is two names but for case.
std::optional<int> parseName(const std::string& pText, const char* pWhat,
                             int (*pFromName)(const char*), NameOf pNameOf,
                             const std::vector<std::string>& pAll) {
  // Names first: the ten colour spaces are not numbered in sequence, and the vocabulary of the
  // framework is the only list of both.
  const int named = pFromName(pText.c_str());
  if (named >= 0) {
    // The framework takes the first of two that differ in case only: it can't ask back.
    const std::string name = pNameOf(named);
    const std::vector<std::string> similar = matches(pText, pAll);
    if (pText == name || pText == name.substr(1) || similar.size() == 1) return named;
    throw OXUsageError(fmt::format("\"{}\" may be {}: write the {} with its capitals",
                                   printable(pText), alternatives(similar), pWhat));
  }
  const auto number = parseNumber<int>(pText);
  if (number && *number >= 0 && pNameOf(*number)) return *number;
  return std::nullopt;
}

/// "640x480", the "x" in either case. Nothing for another text, or a size that no camera has.
std::optional<int> resolutionOfSize(const std::string& pText) {
  const auto size = parsePair(lowerCase(pText), 'x');
  if (!size) return std::nullopt;
  const int resolution = getResolutionFromSize(size->first, size->second);
  return resolution >= 0 ? std::optional(resolution) : std::nullopt;
}

constexpr const char* kSizes = "160x120, 320x240, 640x480, 1280x960";

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
  FrameSize size;
  setSizeFromResolution(parseResolution(pText), size.width, size.height);
  return size;
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
  // Four sizes and no others: the device has buffers and scaling for these.
  if (const auto resolution = resolutionOfSize(pText)) return *resolution;
  if (const auto resolution = parseName(pText, "resolution", getResolutionFromName,
                                        getResolutionName, allResolutions()))
    return *resolution;
  refuse(pText, "resolution", fmt::format("{}, or {}", join(allResolutions()), kSizes),
         withPrefix(pText), allResolutions());
}

int parseColorSpace(const std::string& pText) {
  if (const auto colorSpace = parseName(pText, "colour space", getColorSpaceFromName,
                                        getColorSpaceName, allColorSpaces()))
    return *colorSpace;
  refuse(pText, "colour space", join(allColorSpaces()), withPrefix(pText), allColorSpaces());
}

int parseParameter(const std::string& pText) {
  std::vector<std::string> texts, words;
  for (const ParameterName& parameter : kParameters) {
    if (pText == parameter.word || pText == parameter.constant) return parameter.number;
    texts.emplace_back(fmt::format("{} ({})", parameter.word, parameter.number));
    words.emplace_back(parameter.word);
  }
  if (const auto number = parseNumber<int>(pText)) return *number;
  refuse(pText, "camera parameter", join(texts) + ", or any number", pText, words);
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
