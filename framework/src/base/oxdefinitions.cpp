// The tables of sizes and names. Every look-up walks a table of at most ten rows, so that an
// identifier out of range needs no case of its own.
#include <oxframework/oxdefinitions.h>

#include <strings.h>

#include <array>
#include <cstring>

namespace OX {
namespace {

struct Size {
  int width;
  int height;
};
// By identifier: kQQVGA is 0.
constexpr std::array<Size, 4> kSizes{{{160, 120}, {320, 240}, {640, 480}, {1280, 960}}};

struct Name {
  int number;
  const char* text;
};
constexpr std::array<Name, 4> kResolutionNames{
    {{kQQVGA, "kQQVGA"}, {kQVGA, "kQVGA"}, {kVGA, "kVGA"}, {k4VGA, "k4VGA"}}};
constexpr std::array<Name, 10> kColorSpaceNames{{{kYuv, "kYuv"},
                                                 {kHsy, "kHsy"},
                                                 {kYUV422, "kYUV422"},
                                                 {kYUV, "kYUV"},
                                                 {kRGB, "kRGB"},
                                                 {kHSY, "kHSY"},
                                                 {kBGR, "kBGR"},
                                                 {kYYCbCr, "kYYCbCr"},
                                                 {kH2RGB, "kH2RGB"},
                                                 {kHSMixed, "kHSMixed"}}};

template <typename Names>
const char* nameOf(const Names& pNames, int pNumber) {
  for (const Name& name : pNames)
    if (name.number == pNumber) return name.text;
  return nullptr;
}

// The exact spelling first, since two pairs of names differ only in case.
template <typename Names>
int numberOf(const Names& pNames, const char* pText) {
  if (!pText) return -1;
  for (const auto compare : {&std::strcmp, &strcasecmp})
    for (const Name& name : pNames)
      // Also without the k, which people leave out.
      if (compare(name.text, pText) == 0 || compare(name.text + 1, pText) == 0) return name.number;
  return -1;
}

}  // namespace

void setSizeFromResolution(int pResolution, int& pWidth, int& pHeight) {
  const bool known = pResolution >= 0 && pResolution < static_cast<int>(kSizes.size());
  const Size size = known ? kSizes[static_cast<std::size_t>(pResolution)] : Size{-1, -1};
  pWidth = size.width;
  pHeight = size.height;
}

int getResolutionFromSize(int pWidth, int pHeight) {
  for (std::size_t i = 0; i < kSizes.size(); ++i)
    if (kSizes[i].width == pWidth && kSizes[i].height == pHeight) return static_cast<int>(i);
  return -1;
}

int getLayersFromColorSpace(int pColorSpace) {
  switch (pColorSpace) {
    case kYuv:
    case kHsy:
      return 1;
    case kYUV422:
    case kYYCbCr:
      return 2;
    default:
      // Unknown ones count as the largest, so that a buffer made for one is never too small.
      return 3;
  }
}

const char* getResolutionName(int pResolution) { return nameOf(kResolutionNames, pResolution); }
const char* getColorSpaceName(int pColorSpace) { return nameOf(kColorSpaceNames, pColorSpace); }
int getResolutionFromName(const char* pName) { return numberOf(kResolutionNames, pName); }
int getColorSpaceFromName(const char* pName) { return numberOf(kColorSpaceNames, pName); }

}  // namespace OX
