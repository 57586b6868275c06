// Videos made for the test, every pixel known: colours, orientation, shape and time.
#include "media/framesource.h"

#include <gtest/gtest.h>

#include <fstream>

extern "C" {
#include <libavutil/display.h>
}

#include "media/picture.h"
#include "scratch_folder.h"
#include "terminal/exitstatus.h"
#include "video_file.h"

namespace OX::test {
namespace {

using namespace cli;

constexpr FrameSize kTarget{320, 240};

class FrameSource : public ::testing::Test {
 protected:
  std::string write(const char* pName, const VideoFile& pVideo) {
    const std::string path = fFolder.file(pName);
    EXPECT_TRUE(writeVideo(path, pVideo)) << path;
    return path;
  }

  /// What the first frame looks like.
  std::vector<unsigned char> firstFrame(const std::string& pPath, Fit pFit = Fit::kPad) {
    OXFrameSource source(pPath, kTarget, false);
    EXPECT_TRUE(source.advanceTo(0));
    std::vector<unsigned char> rgb;
    source.render(kTarget, pFit, rgb);
    EXPECT_EQ(rgb.size(), 320u * 240 * 3);
    return rgb;
  }

  /// The red of the middle at a moment, or -1 after the end.
  static int redAt(OXFrameSource& pSource, double pSeconds) {
    if (!pSource.advanceTo(pSeconds)) return -1;
    std::vector<unsigned char> rgb;
    pSource.render(kTarget, Fit::kPad, rgb);
    return rgb[(120 * 320 + 160) * 3];
  }

  /// Frame i of ten is red 20 * i, a tenth of a second long.
  std::string writeSteps(VideoFile pVideo = {}) {
    pVideo.frames = 10;
    pVideo.color = [](int pFrame, double, double) { return Rgb{20 * pFrame, 0, 0}; };
    return write("steps.mkv", pVideo);
  }

  ScratchFolder fFolder;
};

TEST_F(FrameSource, ColoursAreRightInEveryFormat) {
  const struct {
    AVPixelFormat format;
    AVColorSpace matrix;
    AVColorRange range;
    int width, height;
    const char* why;
  } rows[] = {
      {AV_PIX_FMT_BGR0, AVCOL_SPC_RGB, AVCOL_RANGE_UNSPECIFIED, 320, 240, "RGB"},
      {AV_PIX_FMT_YUV420P, AVCOL_SPC_SMPTE170M, AVCOL_RANGE_MPEG, 320, 240, "BT.601"},
      {AV_PIX_FMT_YUV420P, AVCOL_SPC_BT709, AVCOL_RANGE_MPEG, 320, 240, "BT.709"},
      {AV_PIX_FMT_YUV422P, AVCOL_SPC_BT709, AVCOL_RANGE_JPEG, 320, 240, "BT.709, full range"},
      {AV_PIX_FMT_YUV444P, AVCOL_SPC_BT470BG, AVCOL_RANGE_JPEG, 320, 240, "BT.601, full range"},
      {AV_PIX_FMT_YUV420P, AVCOL_SPC_UNSPECIFIED, AVCOL_RANGE_UNSPECIFIED, 320, 240,
       "a small video that doesn't say: BT.601"},
      {AV_PIX_FMT_YUV420P, AVCOL_SPC_UNSPECIFIED, AVCOL_RANGE_UNSPECIFIED, 960, 720,
       "a large one: BT.709"},
      {AV_PIX_FMT_YUV420P, AVCOL_SPC_SMPTE170M, AVCOL_RANGE_MPEG, 358, 269, "odd sides"},
  };
  for (const auto& row : rows) {
    VideoFile video;
    video.format = row.format;
    video.matrix = row.matrix;
    video.range = row.range;
    video.width = row.width;
    video.height = row.height;
    video.frames = 1;
    EXPECT_EQ(quadrantFaults(firstFrame(write("a.mkv", video)), 320, 240, kQuadrants, 4), "")
        << row.why;
  }
}

TEST_F(FrameSource, EveryOrientationIsShownUpright) {
  for (int turns = 0; turns < 4; ++turns)
    for (const bool mirrored : {false, true}) {
      std::int32_t matrix[9];
      av_display_rotation_set(matrix, 90.0 * turns);
      av_display_matrix_flip(matrix, mirrored, 0);
      // Where the matrix itself sends the middle of each stored quadrant.
      Rgb expected[4];
      for (int i = 0; i < 4; ++i) {
        const int x = i % 2 ? 1 : -1, y = i / 2 ? 1 : -1;
        const bool right = x * (matrix[0] / 65536) + y * (matrix[3] / 65536) > 0;
        const bool below = x * (matrix[1] / 65536) + y * (matrix[4] / 65536) > 0;
        expected[(below ? 2 : 0) + (right ? 1 : 0)] = kQuadrants[i];
      }
      VideoFile video;
      video.frames = 1;
      video.displayMatrix.assign(matrix, matrix + 9);
      EXPECT_EQ(quadrantFaults(firstFrame(write("a.mov", video)), 320, 240, expected, 4), "")
          << turns << " turns" << (mirrored ? ", mirrored" : "");
    }
}

TEST_F(FrameSource, AnotherShapeGetsBarsOrIsStretched) {
  VideoFile video;
  video.width = 640;
  video.height = 240;  // to 320x120, 60 rows of bar above and below
  video.frames = 1;
  const std::string path = write("wide.mkv", video);
  const auto padded = firstFrame(path);
  EXPECT_EQ(padded[59 * 320 * 3], 0);
  EXPECT_NEAR(padded[60 * 320 * 3], 200, 4);
  EXPECT_NEAR(padded[179 * 320 * 3 + 2], 200, 4);
  EXPECT_EQ(padded[180 * 320 * 3 + 2], 0);
  EXPECT_EQ(quadrantFaults(firstFrame(path, Fit::kStretch), 320, 240, kQuadrants, 4), "");

  video.pixelAspect = {2, 3};  // the same as 427x240 of square pixels
  const auto narrow = firstFrame(write("aspect.mkv", video));
  EXPECT_EQ(narrow[29 * 320 * 3], 0);
  EXPECT_NEAR(narrow[31 * 320 * 3], 200, 4);
}

TEST_F(FrameSource, TheFrameShownGoesByTime) {
  const std::string path = writeSteps();
  OXFrameSource once(path, kTarget, false);
  EXPECT_FALSE(once.isEndless());
  EXPECT_NEAR(once.duration(), 1.0, 0.01);
  EXPECT_EQ(redAt(once, 0.05), 0);
  EXPECT_EQ(redAt(once, 0.15), 20);
  EXPECT_EQ(redAt(once, 0.75), 140) << "frames that are not requested are skipped";
  EXPECT_EQ(redAt(once, 0.2), 140) << "time doesn't go back";
  EXPECT_EQ(redAt(once, 0.95), 180) << "the last one, for its time";
  EXPECT_EQ(redAt(once, 1.05), -1);

  OXFrameSource loop(path, kTarget, true);
  EXPECT_TRUE(loop.isEndless());
  EXPECT_EQ(redAt(loop, 0.95), 180);
  EXPECT_EQ(redAt(loop, 1.05), 0);
  EXPECT_EQ(redAt(loop, 5.35), 60);
}

TEST_F(FrameSource, ADamagedFrameCostsNoOther) {
  VideoFile video;
  video.codec = "png";
  video.format = AV_PIX_FMT_RGB24;
  // The decoder's threads report the failure of a late frame after the end of the file.
  for (video.damagedFrame = 1; video.damagedFrame < 9; ++video.damagedFrame) {
    SCOPED_TRACE(video.damagedFrame);
    OXFrameSource source(writeSteps(video), kTarget, false);
    for (int i = 0; i < 10; ++i) {
      const int shown = i == video.damagedFrame ? i - 1 : i;
      EXPECT_EQ(redAt(source, 0.1 * i + 0.05), 20 * shown);
    }
    EXPECT_EQ(redAt(source, 1.05), -1);
    EXPECT_EQ(source.damagedFrames(), 1);
  }
}

TEST_F(FrameSource, PicturesAndTheTestPictureNeverEnd) {
  Picture picture{2, 2, {200, 30, 30, 30, 180, 40, 40, 60, 200, 220, 210, 40}};
  const std::string path = fFolder.file("a:b.png");
  std::ofstream(path, std::ios::binary) << encodePng(picture);
  OXFrameSource still(path, kTarget, false);
  EXPECT_TRUE(still.isEndless());
  EXPECT_TRUE(still.advanceTo(1e6));

  OXFrameSource test("test", kTarget, false);
  EXPECT_TRUE(test.isEndless());
  std::vector<unsigned char> first, later;
  ASSERT_TRUE(test.advanceTo(0));
  test.render(kTarget, Fit::kPad, first);
  ASSERT_TRUE(test.advanceTo(0.5));
  test.render(kTarget, Fit::kPad, later);
  EXPECT_NE(first, later) << "it moves";
}

TEST_F(FrameSource, WhatCanNotBeReadIsRefused) {
  EXPECT_THROW(OXFrameSource(fFolder.file("missing.mkv"), kTarget, false), OXFailure);
  EXPECT_THROW(OXFrameSource(fFolder.file("."), kTarget, false), OXFailure) << "a folder";
  const std::string noise = fFolder.file("noise.mkv");
  std::ofstream(noise) << std::string(5000, 'x');
  EXPECT_THROW(OXFrameSource(noise, kTarget, false), OXFailure);

  const std::string cut = writeSteps();
  std::filesystem::resize_file(cut, std::filesystem::file_size(cut) / 2);
  OXFrameSource source(cut, kTarget, false);
  EXPECT_EQ(redAt(source, 0.05), 0) << "what is there is shown";
  EXPECT_EQ(redAt(source, 5), -1) << "and it ends";
}

}  // namespace
}  // namespace OX::test
