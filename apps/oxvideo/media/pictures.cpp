// A number's place is matched as any number of at least its digits: sequences may start anywhere
// and have gaps.
#include "media/pictures.h"

#include <fmt/format.h>
#include <fnmatch.h>
#include <strings.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <filesystem>
#include <regex>

#include "terminal/exitstatus.h"
#include "terminal/text.h"

namespace OX::cli {

namespace {

constexpr std::array kEndings{".png",  ".jpg", ".jpeg", ".bmp", ".tif", ".tiff",
                              ".webp", ".ppm", ".pgm",  ".pnm", ".tga"};

const std::regex& numberPlace() {
  static const std::regex place("%(0?)([1-9]?)d");
  return place;
}

bool hasNumberPlace(const std::string& pText) { return std::regex_search(pText, numberPlace()); }

bool hasWildcard(const std::string& pText) {
  return pText.find_first_of("*?[") != std::string::npos;
}

bool isPicture(const std::string& pName) {
  const std::string ending = std::filesystem::path(pName).extension().string();
  return std::ranges::any_of(
      kEndings, [&](const char* pEnding) { return ::strcasecmp(ending.c_str(), pEnding) == 0; });
}

/// The expression for names like "frame%04d.png".
std::regex numberedNames(const std::string& pName) {
  std::smatch place;
  std::regex_search(pName, place, numberPlace());
  const auto quoted = [](const std::string& pText) {
    return std::regex_replace(pText, std::regex(R"([.[\]{}()*+?^$|\\])"), R"(\$&)");
  };
  const std::string digits = place[2].length() > 0 ? place[2].str() : "1";
  return std::regex(quoted(place.prefix()) + "[0-9]{" + digits + ",}" + quoted(place.suffix()));
}

template <typename Test>
std::vector<std::string> filesOf(const std::filesystem::path& pFolder, Test pTest) {
  std::vector<std::string> files;
  std::error_code error;
  std::filesystem::directory_iterator entry(pFolder.empty() ? "." : pFolder, error);
  for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
    const std::string name = entry->path().filename().string();
    std::error_code ignored;
    if (pTest(name) && entry->is_regular_file(ignored)) files.push_back((pFolder / name).string());
  }
  if (error)
    throw OXFailure(
        fmt::format("can't read the folder {}: {}", printable(pFolder.string()), error.message()));
  std::ranges::sort(files, [](const std::string& pLeft, const std::string& pRight) {
    return ::strverscmp(pLeft.c_str(), pRight.c_str()) < 0;
  });
  return files;
}

}  // namespace

bool isPicturePattern(const std::string& pSource) {
  return hasWildcard(pSource) || hasNumberPlace(pSource);
}

std::vector<std::string> listPictures(const std::string& pSource) {
  std::error_code ignored;
  if (std::filesystem::is_directory(pSource, ignored)) {
    std::vector<std::string> pictures = filesOf(pSource, isPicture);
    if (pictures.empty())
      throw OXFailure(fmt::format("the folder {} has no pictures ({})", printable(pSource),
                                  fmt::join(kEndings, " ")));
    return pictures;
  }
  const std::filesystem::path path(pSource);
  const std::string pattern = path.filename().string();
  std::vector<std::string> pictures;
  if (hasNumberPlace(pattern)) {
    const std::regex names = numberedNames(pattern);
    pictures = filesOf(path.parent_path(),
                       [&](const std::string& pName) { return std::regex_match(pName, names); });
  } else {
    pictures = filesOf(path.parent_path(), [&](const std::string& pName) {
      return ::fnmatch(pattern.c_str(), pName.c_str(), FNM_PERIOD) == 0;
    });
  }
  if (pictures.empty()) throw OXFailure(fmt::format("no file matches {}", printable(pSource)));
  return pictures;
}

}  // namespace OX::cli
