// The resampler: known answers for the plain loops, then every instruction set against them.
#include "pixels/resample/resampling.h"

#include <gmock/gmock.h>

#include <algorithm>

#include "exhaustive.h"
#include "guarded_buffer.h"
#include "pixels/simd/levels.h"

namespace OX::test {
namespace {

using namespace resampling;
using Bytes = std::vector<unsigned char>;

/// Uses one level for its lifetime.
struct Level {
  explicit Level(const std::string& pName) { EXPECT_TRUE(kernels::useLevel(pName)) << pName; }
  ~Level() { kernels::useLevel(""); }
};

/// A change of size: 1 keeps it, 2, 4, 8 go down, -2, -4, -8 up.
void resample(int pChange, int pWidth, int pHeight, const unsigned char* pSource,
              unsigned char* pTarget) {
  if (pChange == 1) {
    rgbToYuv422(pSource, pWidth, pHeight, pTarget);
  } else if (pChange > 0) {
    ASSERT_TRUE(subSample(pChange, pWidth, pHeight, pSource, pTarget));
  } else {
    ASSERT_TRUE(overSample(-pChange, pWidth, pHeight, pSource, pTarget));
  }
}

const int kChanges[] = {1, 2, 4, 8, -2, -4, -8};

TEST(Resampling, EqualsTheFormulasWorkedByHand) {
  struct Case {
    const char* why;
    Bytes rgb, yuv422;
  };
  const Case cases[] = {
      {"black", {0, 0, 0, 0, 0, 0}, {16, 128, 16, 128}},
      {"white", {255, 255, 255, 255, 255, 255}, {235, 128, 235, 128}},
      {"red", {255, 0, 0, 255, 0, 0}, {82, 90, 82, 240}},
      {"green and blue: U (54 + 240) / 2, V (34 + 110) / 2",
       {0, 255, 0, 0, 0, 255},
       {144, 147, 41, 72}},
      {"means are truncated: U (127 + 128) / 2", {1, 1, 0, 0, 0, 0}, {17, 128, 16, 128}},
      {"means are truncated: U (90 + 128) / 2, V (240 + 128) / 2",
       {255, 0, 0, 0, 0, 0},
       {82, 109, 16, 184}},
      {"means are truncated: V (128 + 111) / 2", {0, 0, 0, 0, 0, 248}, {16, 182, 40, 119}},
  };
  for (const std::string& level : kernels::levels()) {
    Level use(level);
    for (const Case& test : cases) {
      Bytes result(4);
      rgbToYuv422(test.rgb.data(), 2, 1, result.data());
      EXPECT_EQ(result, test.yuv422) << level << ": " << test.why;
    }
  }
}

/// Grey pixels, so that each luma tells which pixel it came from: 16 + n for value greyOf(n).
unsigned char greyOf(int pIndex) { return static_cast<unsigned char>((pIndex * 256 + 110) / 220); }

Bytes greyFrame(int pPixels) {
  Bytes frame;
  for (int i = 0; i < pPixels; ++i) frame.insert(frame.end(), 3, greyOf(i % 219));
  return frame;
}

/// The lumas of a frame, less 16.
std::vector<int> lumas(const Bytes& pYuv422) {
  std::vector<int> result;
  for (std::size_t i = 0; i < pYuv422.size(); i += 2) result.push_back(pYuv422[i] - 16);
  return result;
}

TEST(Resampling, TakesThePixelsOfTheRatio) {
  Level use("plain");
  const Bytes frame = greyFrame(16 * 16);
  const auto lumaAt = [&](int i) {
    const int value = frame[3 * i];
    return (220 * value + 128) >> 8;
  };
  struct Case {
    const char* why;
    int change, width, height;
    std::vector<int> pixels;
  };
  const Case cases[] = {
      {"every second pixel of every second row", 2, 8, 4, {0, 2, 4, 6, 16, 18, 20, 22}},
      {"right pixels 8 further on, the last ones from the row below",
       4,
       16,
       8,
       {0, 8, 8, 16, 64, 72, 72, 80}},
      {"right pixel 32 further on, four rows below", 8, 8, 8, {0, 32}},
      {"right pixels 32 further on", 8, 16, 16, {0, 32, 128, 160}},
      {"an odd row is cut by the next one", 2, 6, 4, {0, 2, 4, 12, 14, 16, 18}},
      {"blocks of two by two", -2, 2, 2, {0, 0, 1, 1, 0, 0, 1, 1, 2, 2, 3, 3, 2, 2, 3, 3}},
  };
  for (const Case& test : cases) {
    Bytes result(2 * test.pixels.size() + 16);
    resample(test.change, test.width, test.height, frame.data(), result.data());
    result.resize(2 * test.pixels.size());
    std::vector<int> expected;
    for (int pixel : test.pixels) expected.push_back(lumaAt(pixel));
    EXPECT_EQ(lumas(result), expected) << test.why;
  }
}

TEST(Resampling, RefusesOtherRatiosAndEmptySizes) {
  // Null pointers: any access would crash.
  for (int ratio : {-2, 0, 1, 3, 5, 16}) {
    EXPECT_FALSE(subSample(ratio, 16, 16, nullptr, nullptr)) << ratio;
    EXPECT_FALSE(overSample(ratio, 16, 16, nullptr, nullptr)) << ratio;
  }
  for (auto [width, height] : {std::pair{0, 4}, {4, 0}, {-4, 4}, {4, -4}}) {
    EXPECT_TRUE(subSample(2, width, height, nullptr, nullptr));
    EXPECT_TRUE(overSample(2, width, height, nullptr, nullptr));
    rgbToYuv422(nullptr, width, height, nullptr);
  }
  EXPECT_TRUE(subSample(8, 64, 7, nullptr, nullptr)) << "no row is left";
}

class ResamplingAtLevel : public testing::TestWithParam<std::string> {
 protected:
  void run(const std::string& pLevel, int pChange, int pWidth, int pHeight,
           const unsigned char* pSource, unsigned char* pTarget) {
    Level use(pLevel);
    resample(pChange, pWidth, pHeight, pSource, pTarget);
  }
};

/// All 2^24 colours on the left, each with another colour on the right.
TEST_P(ResamplingAtLevel, EqualsThePlainLoopForEveryColour) {
  constexpr int kPairs = 256 * 256;
  Bytes source(std::size_t{6} * kPairs), actual(std::size_t{4} * kPairs), expected(actual);
  for (int red = 0; red < 256; red += kExhaustiveStep) {
    for (int i = 0; i < kPairs; ++i) {
      const Bytes colours = {static_cast<unsigned char>(red), static_cast<unsigned char>(i),
                             static_cast<unsigned char>(i / 256)};
      for (int k = 0; k < 3; ++k) {
        source[6 * i + k] = colours[k];
        source[6 * i + 3 + k] = static_cast<unsigned char>(colours[k] * 167 + 13 * i + k);
      }
    }
    run(GetParam(), 1, 2, kPairs, source.data(), actual.data());
    run("plain", 1, 2, kPairs, source.data(), expected.data());
    ASSERT_EQ(difference(actual.data(), expected.data(), actual.size()), "") << "red " << red;
  }
}

/// Source pixels up to the last one that is taken.
int sourcePixels(int pChange, int pWidth, int pHeight) {
  if (pChange < 0) return pWidth * pHeight;
  if (pChange == 1) return (pWidth * pHeight + 1) / 2 * 2;
  const int rows = pHeight / pChange;
  const int pairs = (pWidth / pChange + 1) / 2;
  if (rows == 0 || pairs == 0) return 0;
  return (rows - 1) * pChange * pWidth + 2 * pChange * (pairs - 1) + pChange / 2 * pChange + 1;
}

int targetBytes(int pChange, int pWidth, int pHeight) {
  if (pChange < 0) return 2 * pChange * pChange * pWidth * pHeight;
  if (pChange == 1) return (pWidth * pHeight + 1) / 2 * 4;
  const int rows = pHeight / pChange;
  const int pairs = (pWidth / pChange + 1) / 2;
  return rows == 0 ? 0 : (rows - 1) * pWidth / pChange * 2 + 4 * pairs;
}

TEST_P(ResamplingAtLevel, StaysInsideTheFrameAtEveryWidthAndRatio) {
  for (int change : kChanges) {
    const int unit = std::max(change, 1);
    for (int columns = 1; columns <= 150; ++columns) {
      const int width = columns * unit + columns % unit;
      const int height = unit * (1 + columns % 3);
      const std::size_t bytesIn = 3 * sourcePixels(change, width, height);
      const std::size_t bytesOut = targetBytes(change, width, height);
      const Bytes content = randomBytes(bytesIn, columns);
      for (auto side : {GuardedBuffer::kAtStart, GuardedBuffer::kAtEnd}) {
        GuardedBuffer source(bytesIn, side), actual(bytesOut, side);
        source.fill(content);
        actual.fill(0xEE);
        Bytes expected(bytesOut, 0xEE);
        run(GetParam(), change, width, height, source.data(), actual.data());
        run("plain", change, width, height, source.data(), expected.data());
        ASSERT_EQ(difference(actual.data(), expected.data(), bytesOut), "")
            << "change " << change << ", " << width << " x " << height;
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(All, ResamplingAtLevel, testing::ValuesIn(kernels::levels()),
                         [](const auto& pInfo) { return pInfo.param; });

}  // namespace
}  // namespace OX::test
