// The colour-space kernels. Known answers keep the plain loops honest; every instruction set that
// the processor has must then produce the same bytes, and touch no others.
#include "pixels/colour/kernels.h"

#include <gmock/gmock.h>

#include <algorithm>

#include "exhaustive.h"
#include "guarded_buffer.h"
#include "pixels/simd/levels.h"

namespace OX::test {
namespace {

using namespace kernels;
using testing::ElementsAreArray;
using Bytes = std::vector<unsigned char>;
using Kernel = void (*)(const unsigned char*, int, unsigned char*, int, int);

struct Format {
  const char* name;
  Kernel kernel;
  int bytesPerMacroPixel;
};

const Format kYuvFormat{"kYuv", yuv422ToYuv, 2};
const Format kHsyFormat{"kHsy", yuv422ToHsy, 2};
const Format kYUV422Format{"kYUV422", yuv422ToYUV422, 4};
const Format kYYCbCrFormat{"kYYCbCr", yuv422ToYYCbCr, 4};
/// Formats that follow the common rule for which source pixels they take.
const Format kUsualFormats[] = {
    {"kYUV", yuv422ToYUV, 6}, {"kRGB", yuv422ToRGB, 6},     {"kBGR", yuv422ToBGR, 6},
    {"kHSY", yuv422ToHSY, 6}, {"kH2RGB", yuv422ToH2RGB, 6}, {"kHSMixed", yuv422ToHSMixed, 6},
};

std::vector<Format> allFormats() {
  std::vector<Format> formats(std::begin(kUsualFormats), std::end(kUsualFormats));
  formats.insert(formats.end(), {kYuvFormat, kHsyFormat, kYUV422Format, kYYCbCrFormat});
  return formats;
}

/// One macro-pixel, converted by itself.
Bytes convertOne(const Format& pFormat, const unsigned char* pMacroPixel) {
  // kYUV422 copies words of 8 bytes, at least one.
  Bytes source(8), result(8);
  std::copy_n(pMacroPixel, 4, source.begin());
  pFormat.kernel(source.data(), 2, result.data(), 2, 1);
  result.resize(pFormat.bytesPerMacroPixel);
  return result;
}

/// Uses one level for its lifetime.
struct Level {
  explicit Level(const std::string& pName) { EXPECT_TRUE(useLevel(pName)) << pName; }
  ~Level() { useLevel(""); }
};

TEST(Kernels, EqualTheFormulasWorkedByHand) {
  struct Case {
    const char* why;
    Format format;
    Bytes macroPixel, expected;
  };
  const Format yuv{"kYUV", yuv422ToYUV, 6}, rgb{"kRGB", yuv422ToRGB, 6},
      bgr{"kBGR", yuv422ToBGR, 6};
  const Format hsy{"kHSY", yuv422ToHSY, 6}, h2rgb{"kH2RGB", yuv422ToH2RGB, 6};
  const Format mixed{"kHSMixed", yuv422ToHSMixed, 6};
  const std::vector<Case> cases = {
      {"luma only", kYuvFormat, {1, 2, 3, 4}, {1, 3}},
      {"as it is", kYUV422Format, {1, 2, 3, 4}, {1, 2, 3, 4}},
      {"lumas first", kYYCbCrFormat, {1, 2, 3, 4}, {1, 3, 2, 4}},
      {"chroma repeated", yuv, {1, 2, 3, 4}, {1, 2, 4, 3, 2, 4}},
      {"black is 16, white is not rounded up", rgb, {16, 128, 235, 128}, {0, 0, 0, 254, 254, 254}},
      {"above white is clamped", rgb, {255, 128, 0, 128}, {255, 255, 255, 0, 0, 0}},
      // 298 * 84 = 25032; red + 409 * 112, green - 208 * 112 + 100 * 38, blue - 516 * 38
      {"a red: 276 clamped, 21, 21", rgb, {100, 90, 16, 240}, {255, 21, 21, 178, 0, 0}},
      {"the same, blue first", bgr, {100, 90, 16, 240}, {21, 21, 255, 0, 0, 178}},
      // 298 * 84 = 25032; green -100 * 72 + 208 * 28, blue 516 * 72, red -409 * 28
      {"a blue: U and V weigh differently in green",
       rgb,
       {100, 200, 100, 100},
       {53, 92, 242, 53, 92, 242}},
      {"grey has no hue", hsy, {77, 128, 200, 128}, {0, 0, 77, 0, 0, 200}},
      {"no hue is red", h2rgb, {77, 128, 200, 128}, {0, 0, 255, 0, 0, 255}},
      // A = 208, B = -724 and C = -516 at U 129, V 128: 85 * 208 / 1448 - 85 = -73
      // saturation 255 * 724 / (298 * Y - 4251): at Y 17 815, at Y 100 25549
      {"just off grey towards blue", hsy, {17, 129, 100, 128}, {183, 226, 17, 183, 7, 100}},
      {"hue in place of luma", mixed, {17, 129, 100, 128}, {183, 226, 183, 183, 7, 183}},
      {"hue only", kHsyFormat, {17, 129, 100, 128}, {183, 183}},
      {"hue 183 as a colour", h2rgb, {17, 129, 100, 128}, {255, 0, 84, 255, 0, 84}},
      // A = 509, B = -100: -8500 / 1018 - 1 = -9
      {"red towards blue has one less", kHsyFormat, {50, 128, 50, 129}, {247, 247}},
      // V 127: A = -509, B = 100, C = -409: 85 * -409 / -1018 + 85 = 119
      {"green towards blue", kHsyFormat, {50, 128, 50, 127}, {119, 119}},
      // U 127: A = -208, B = 724, C = 516: 85 - 85 * 516 / 1448 = 55
      {"green towards red", kHsyFormat, {50, 127, 50, 128}, {55, 55}},
      // U 127, V 129: A = 301, B = 624, C = 925: 85 * 624 / 1850 = 28
      {"red towards green", kHsyFormat, {50, 127, 50, 129}, {28, 28}},
      // at Y 0 the denominator is -4767 + 724: 255 * 724 / -4043 is below 0
      {"a denominator below 0 means no saturation",
       hsy,
       {0, 129, 16, 128},
       {183, 0, 0, 183, 255, 16}},
  };
  for (const std::string& level : levels()) {
    Level use(level);
    for (const Case& test : cases) {
      EXPECT_THAT(convertOne(test.format, test.macroPixel.data()), ElementsAreArray(test.expected))
          << level << ", " << test.format.name << ": " << test.why;
    }
  }
}

/// Source sizes to destination sizes at each step; 3 and 0 can't come from the four resolutions.
struct Shape {
  int step, width, height;
  int sourceWidth() const { return step == 0 ? width - 1 : step * width; }
  int macroPixels() const { return (width + 1) / 2; }
};

TEST(Kernels, TakeTheMacroPixelsOfTheStep) {
  Level use("plain");
  const Bytes source = randomBytes(100000);
  for (const Shape& shape : {Shape{0, 20, 3}, Shape{1, 20, 3}, Shape{1, 7, 3}, Shape{2, 20, 3},
                             Shape{3, 20, 3}, Shape{4, 20, 3}, Shape{8, 20, 3}, Shape{8, 1, 2}}) {
    const int step = shape.step;
    const auto rowAt = [&](int y) { return source.data() + 2 * y * step * step * shape.width; };
    for (const Format& format : kUsualFormats) {
      Bytes result(format.bytesPerMacroPixel * shape.macroPixels() * shape.height), expected;
      format.kernel(source.data(), shape.sourceWidth(), result.data(), shape.width, shape.height);
      for (int y = 0; y < shape.height; ++y) {
        for (int x = 0; x < shape.macroPixels(); ++x) {
          const Bytes one = convertOne(format, rowAt(y) + 4 * step * x);
          expected.insert(expected.end(), one.begin(), one.end());
        }
      }
      EXPECT_EQ(result, expected) << format.name << " at step " << step << ", " << shape.width;
    }
  }
}

TEST(Kernels, TakeTheDocumentedBytesForOddFormats) {
  Level use("plain");
  Bytes source(256);
  for (int i = 0; i < 256; ++i) source[i] = static_cast<unsigned char>(i);
  struct Case {
    const char* why;
    Format format;
    int sourceWidth, width, height;
    Bytes expected;
  };
  const std::vector<Case> cases = {
      {"lumas 2 pixels apart", kYuvFormat, 8, 4, 2, {0, 4, 8, 12, 32, 36, 40, 44}},
      {"lumas 3 pixels apart", kYuvFormat, 6, 2, 2, {0, 6, 36, 42}},
      {"the first luma all over", kYuvFormat, 2, 4, 1, {0, 0, 0, 0}},
      {"Y1 from 2 pixels on",
       kYUV422Format,
       8,
       4,
       2,
       {0, 1, 4, 3, 8, 9, 12, 11, 32, 33, 36, 35, 40, 41, 44, 43}},
      {"Y1 from 4 pixels on", kYUV422Format, 16, 4, 1, {0, 1, 8, 3, 16, 17, 24, 19}},
      {"half of 3 is 1", kYUV422Format, 6, 2, 1, {0, 1, 4, 3}},
      {"half of 0 is 0", kYUV422Format, 2, 4, 1, {0, 1, 0, 3, 0, 1, 0, 3}},
      {"whole words only",
       kYUV422Format,
       3,
       3,
       3,
       {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 0xEE, 0xEE}},
      {"a row of source for a row",
       kYYCbCrFormat,
       8,
       4,
       2,
       {0, 2, 1, 3, 8, 10, 9, 11, 32, 34, 33, 35, 40, 42, 41, 43}},
      {"its row advance rounds the source's width",
       kYYCbCrFormat,
       5,
       2,
       2,
       {0, 2, 1, 3, 16, 18, 17, 19}},
      {"half of an odd width is truncated", kYYCbCrFormat, 3, 3, 1, {0, 2, 1, 3, 0xEE, 0xEE}},
  };
  for (const Case& test : cases) {
    Bytes result(test.expected.size(), 0xEE);
    test.format.kernel(source.data(), test.sourceWidth, result.data(), test.width, test.height);
    EXPECT_EQ(result, test.expected) << test.format.name << ": " << test.why;
  }
}

TEST(Kernels, HueAloneStepsByHalvesAndKeepsTheLastRow) {
  Level use("plain");
  const Bytes source = randomBytes(1000);
  for (int step : {0, 1, 2}) {
    Bytes result(3 * 8, 0xEE), expected(3 * 8, 0xEE);
    kHsyFormat.kernel(source.data(), step == 0 ? 4 : 8 * step, result.data(), 8, 3);
    const unsigned char* lastRow = source.data() + 2 * step * step * 8;
    for (int x = 0; x < 4; ++x) {
      const unsigned char hue = convertOne(kHsyFormat, lastRow + 2 * step * x)[0];
      expected[2 * x] = expected[2 * x + 1] = hue;
    }
    EXPECT_EQ(result, expected) << "step " << step;
  }
}

TEST(Kernels, WriteNothingForEmptySizes) {
  for (const Format& format : allFormats()) {
    for (auto [width, height] : {std::pair{0, 2}, {2, 0}, {-2, 2}, {2, -2}}) {
      // Null pointers: any access would crash.
      format.kernel(nullptr, 2, nullptr, width, height);
    }
  }
}

class KernelsAtLevel : public testing::TestWithParam<std::string> {
 protected:
  /// Converts at the level under test and by the plain loops; empty if the bytes are the same.
  std::string compare(const Format& pFormat, const Bytes& pSource, int pWidth) {
    const std::size_t bytes = std::size_t(pFormat.bytesPerMacroPixel) * ((pWidth + 1) / 2);
    fActual.assign(bytes, 0xAA);
    fExpected.assign(bytes, 0x55);
    run(GetParam(), pFormat, pSource.data(), {1, pWidth, 1}, fActual.data());
    run("plain", pFormat, pSource.data(), {1, pWidth, 1}, fExpected.data());
    return difference(fActual.data(), fExpected.data(), bytes);
  }

  static void run(const std::string& pLevel, const Format& pFormat, const unsigned char* pSource,
                  const Shape& pShape, unsigned char* pDestination) {
    Level use(pLevel);
    pFormat.kernel(pSource, pShape.sourceWidth(), pDestination, pShape.width, pShape.height);
  }

  Bytes fActual, fExpected;
};

/// All 65,536 pairs of U and V with all 256 lumas on either side.
TEST_P(KernelsAtLevel, EqualsThePlainLoopForEveryMacroPixel) {
  Bytes source(std::size_t{4} * 256 * 256);
  for (int u = 0; u < 256; u += kExhaustiveStep) {
    for (std::size_t i = 0; i < source.size(); i += 4) {
      const int luma = static_cast<int>(i / 4 % 256);
      source[i] = static_cast<unsigned char>(luma);
      source[i + 1] = static_cast<unsigned char>(u);
      source[i + 2] = static_cast<unsigned char>(255 - luma);
      source[i + 3] = static_cast<unsigned char>(i / 4 / 256);
    }
    for (const Format& format : allFormats()) {
      ASSERT_EQ(compare(format, source, 2 * 256 * 256), "") << format.name << " at U " << u;
    }
  }
}

/// Source bytes up to the last one that the shape takes.
std::size_t sourceBytes(const Format& pFormat, const Shape& pShape) {
  const std::size_t step = pShape.step;
  std::size_t row = 2 * step * step * pShape.width;
  std::size_t last = 4 * step * (pShape.macroPixels() - 1) + 4;
  if (pFormat.kernel == yuv422ToYuv && step > 1) last += 2 * step + 1 - 4;
  if (pFormat.kernel == yuv422ToHsy) {
    row /= 2;
    last = 2 * step * (pShape.macroPixels() - 1) + 4;
  }
  if (pFormat.kernel == yuv422ToYYCbCr) row = 4 * step * (pShape.sourceWidth() / 2);
  if (pFormat.kernel == yuv422ToYUV422) {
    if (step == 1) return std::max(pShape.width * pShape.height / 4 * 8, 8);
    last += step < 2 ? 0 : 4 * (step / 2) + 1 - 4;
  }
  return row * (pShape.height - 1) + last;
}

TEST_P(KernelsAtLevel, StaysInsideTheFrameAtEveryWidthAndStep) {
  for (const Format& format : allFormats()) {
    for (int step : {0, 1, 2, 3, 4, 8}) {
      for (int width = 1; width <= 150; ++width) {
        const Shape shape{step, width, 1 + width % 3};
        const std::size_t bytesIn = sourceBytes(format, shape);
        // Room for one word, the least that kYUV422 copies.
        const std::size_t bytesOut = std::max<std::size_t>(
            std::size_t(format.bytesPerMacroPixel) * shape.macroPixels() * shape.height, 8);
        const Bytes content = randomBytes(bytesIn, width);
        for (auto side : {GuardedBuffer::kAtStart, GuardedBuffer::kAtEnd}) {
          GuardedBuffer source(bytesIn, side), actual(bytesOut, side);
          source.fill(content);
          actual.fill(0xEE);
          Bytes expected(bytesOut, 0xEE);
          run(GetParam(), format, source.data(), shape, actual.data());
          run("plain", format, source.data(), shape, expected.data());
          ASSERT_EQ(difference(actual.data(), expected.data(), bytesOut), "")
              << format.name << " at step " << step << ", " << width << " x " << shape.height;
        }
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(All, KernelsAtLevel, testing::ValuesIn(levels()),
                         [](const auto& pInfo) { return pInfo.param; });

TEST(Levels, StartWithThePlainLoopsAndRefuseUnknownNames) {
  ASSERT_FALSE(levels().empty());
  EXPECT_EQ(levels().front(), "plain");
  EXPECT_FALSE(usesPlainLoops());
  EXPECT_FALSE(useLevel("none such"));
  EXPECT_FALSE(usesPlainLoops());
}

TEST(TouchFrame, ReadsTheFrameAndNothingBeyond) {
  for (const std::size_t size : {std::size_t{0}, std::size_t{6}, kTouchScratchBytes,
                                 kTouchScratchBytes + 1, std::size_t{2} * 640 * 480}) {
    const Bytes content = randomBytes(size);
    GuardedBuffer source(size, GuardedBuffer::kAtEnd);
    GuardedBuffer scratch(kTouchScratchBytes, GuardedBuffer::kAtEnd);
    source.fill(content);
    touchFrame(source.data(), size, scratch.data());
    // The last piece is on top.
    const std::size_t last = size == 0 ? 0 : (size - 1) % kTouchScratchBytes + 1;
    EXPECT_EQ(difference(scratch.data(), content.data() + size - last, last), "") << size;
  }
}

}  // namespace
}  // namespace OX::test
