// The linear lens: known answers, both ways, on the device and on the bare arithmetic.
#include <bit>
#include <cmath>
#include <limits>
#include <random>

#include "lens.h"
#include "support/device_fixture.h"

namespace OX::test {
namespace {

using Floats = std::vector<float>;

TEST(Lens, HasTheCalibratedApertures) {
  EXPECT_EQ(std::bit_cast<std::uint32_t>(0.83384442f), 0x3F5576D4u);
  EXPECT_EQ(lens::kVgaLens.horizontal, 0.83384442f);
  EXPECT_EQ(lens::kVgaLens.vertical, 0.64195555f);
  EXPECT_EQ(lens::kHdLens.horizontal, 1.0623667f);
  EXPECT_EQ(lens::kHdLens.vertical, 0.83035553f);
  // The corner of the VGA camera is half its apertures away, to the left and above.
  EXPECT_EQ(lens::horizontalAngle(0.f, lens::kVgaLens.horizontal), 0.41692221f);
  EXPECT_EQ(lens::verticalAngle(0.f, lens::kVgaLens.vertical), -0.32097778f);
}

TEST_F(SimulatorTest, ConvertingToAnglesAndBackRestoresAPosition) {
  std::mt19937 random(7);
  std::uniform_real_distribution<float> anywhere(-2.f, 3.f);  // outside 0 to 1 it extrapolates
  for (int i = 0; i < 1000; ++i) {
    const Floats position{anywhere(random), anywhere(random)};
    const Floats angles = fDevice->getAngularPositionFromImagePosition(i % 2, position);
    const Floats back = fDevice->getImagePositionFromAngularPosition(i % 2, angles);
    for (std::size_t k : {0u, 1u}) ASSERT_NEAR(back[k], position[k], 1e-6f) << position[k];
    EXPECT_EQ(angles[0] > 0, position[0] < 0.5f) << "left is positive";
    EXPECT_EQ(angles[1] > 0, position[1] > 0.5f) << "down is positive";
  }
}

TEST_F(SimulatorTest, SizesMustLieBetweenZeroAndOne) {
  const float kAbove = std::nextafter(1.f, 2.f);
  const float kNan = std::numeric_limits<float>::quiet_NaN();
  const float kInfinity = std::numeric_limits<float>::infinity();
  const std::string refused =
      "OXError: getAngularSizeFromImageSize(1,...) : invalid parameter size";
  for (const float bad : {kAbove, -kAbove, std::nextafter(0.f, -1.f), kNan, kInfinity}) {
    EXPECT_EQ(outcome([&] {
                return fDevice->getAngularSizeFromImageSize(1, {bad, 0.5f});
              }),
              refused);
    EXPECT_EQ(outcome([&] {
                return fDevice->getAngularSizeFromImageSize(1, {0.5f, bad});
              }),
              refused);
  }
  EXPECT_EQ(fDevice->getAngularSizeFromImageSize(1, {1.f, 0.f}), (Floats{1.0623667f, 0.f}))
      << "both ends are included";
}

TEST_F(SimulatorTest, InformationIsPositionAndSizeInFractionsOrPixels) {
  const Floats info{0.2f, -0.1f, 0.3f, 0.4f};
  Floats expected = fDevice->getImagePositionFromAngularPosition(0, {0.2f, -0.1f});
  const Floats size = fDevice->getImageSizeFromAngularSize(0, {0.3f, 0.4f});
  expected.insert(expected.end(), size.begin(), size.end());
  EXPECT_EQ(fDevice->getImageInfoFromAngularInfo(0, info), expected);
  for (const auto& [resolution, width, height] :
       std::vector<std::tuple<int, float, float>>{{kQQVGA, 160.f, 120.f},
                                                  {kQVGA, 320.f, 240.f},
                                                  {kVGA, 640.f, 480.f},
                                                  {k4VGA, 1280.f, 960.f}})
    EXPECT_EQ(fDevice->getImageInfoFromAngularInfoWithResolution(0, info, resolution),
              (Floats{expected[0] * width, expected[1] * height, expected[2] * width,
                      expected[3] * height}));
}

// The short forms use the active camera, even if that does not exist.
TEST_F(SimulatorTest, ShortFormsFollowTheActiveCamera) {
  EXPECT_EQ(fDevice->getAngPosFromImgPos({0.f, 1.f}),
            fDevice->getAngularPositionFromImagePosition(0, {0.f, 1.f}));
  fDevice->setParam(kCameraSelectID, 2);
  EXPECT_EQ(outcome([&] { return fDevice->getAngPosFromImgPos({0.f}); }),
            "OXError: getAngularPositionFromImagePosition(2,...) : invalid Camera index")
      << "the camera is checked before the list";
  EXPECT_EQ(outcome([&] { return fDevice->getImgInfoFromAngInfoWithRes({}, 9); }),
            "OXError: getImageInfoFromAngularInfoWithResolution(2) : invalid Camera index");
}

}  // namespace
}  // namespace OX::test
