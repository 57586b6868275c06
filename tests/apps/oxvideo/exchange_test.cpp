// import and export: which pixels and time stamps survive, and what is refused.
#include <gmock/gmock.h>

#include <cmath>
#include <filesystem>
#include <functional>

#include "media/ffmpeg.h"
#include "media/mediareader.h"
#include "media/picture.h"
#include "recorded.h"
#include "recordings/importer.h"
#include "recordings/inputrecording.h"
#include "video_file.h"

namespace OX::test {
namespace {

using cli::FrameSize;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class Exchange : public ::testing::Test {
 protected:
  ScratchFolder fFolder;
  const std::string fPath = fFolder.file("a.oxv");

  std::string run(const std::vector<std::string>& pArguments) {
    return oxvideo(fFolder, pArguments);
  }
};

/// Milliseconds of each frame of a video, from its first.
std::vector<long> timesOf(const std::string& pVideo) {
  cli::OXMediaReader reader(pVideo, {640, 480});
  std::vector<long> times;
  while (reader.next()) times.push_back(std::lround(reader.time() * 1000));
  return times;
}

TEST_F(Exchange, ffv1KeepsEveryByte) {
  using Bytes = std::vector<unsigned char>;
  constexpr std::size_t kWidth = 6;
  // The byte of the raw frame that a plane holds at a place.
  using ByteOffset = std::function<std::size_t(int pPlane, std::size_t pX, std::size_t pY)>;
  struct Case {
    int colorSpace;
    AVPixelFormat format;
    int planes;
    std::size_t chromaWidth;
    ByteOffset offset;
  };
  const std::vector<Case> cases{
      {kYUV422, AV_PIX_FMT_YUV422P, 3, 3,
       [](int plane, std::size_t x, std::size_t y) {
         return plane == 0 ? (y * kWidth + x) * 2 : y * kWidth * 2 + x * 4 + (plane == 1 ? 1 : 3);
       }},
      {kYYCbCr, AV_PIX_FMT_YUV422P, 3, 3,
       [](int plane, std::size_t x, std::size_t y) {
         return plane == 0 ? y * kWidth * 2 + x / 2 * 4 + x % 2
                           : y * kWidth * 2 + x * 4 + (plane == 1 ? 2 : 3);
       }},
      {kYUV, AV_PIX_FMT_YUV444P, 3, 6,
       [](int plane, std::size_t x, std::size_t y) {
         return (y * kWidth + x) * 3 + static_cast<std::size_t>(plane);
       }},
      {kYuv, AV_PIX_FMT_GRAY8, 1, 0,
       [](int, std::size_t x, std::size_t y) { return y * kWidth + x; }},
      // One plane of four bytes a pixel: blue, green, red and one that says nothing.
      {kRGB, AV_PIX_FMT_BGR0, 1, 0,
       [](int, std::size_t x, std::size_t y) { return (y * kWidth + x / 4) * 3 + 2 - x % 4; }},
      {kBGR, AV_PIX_FMT_BGR0, 1, 0,
       [](int, std::size_t x, std::size_t y) { return (y * kWidth + x / 4) * 3 + x % 4; }}};
  for (const Case& row : cases) {
    SCOPED_TRACE(row.colorSpace);
    record(fPath, {{int(kWidth), 4, row.colorSpace, 8}}, steady(3, 40'000));
    const std::string video = fFolder.file("a.mkv");
    ASSERT_THAT(run({"export", fPath, video}), StartsWith("0 "));
    cli::OXMediaReader reader(video, {640, 480});
    for (unsigned number = 0; number < 3; ++number) {
      const AVFrame* frame = reader.next();
      ASSERT_NE(frame, nullptr);
      ASSERT_EQ(frame->format, row.format);
      const Bytes raw =
          noise(kWidth * 4 * std::size_t(getLayersFromColorSpace(row.colorSpace)), number);
      const bool packed = row.format == AV_PIX_FMT_BGR0;
      for (int plane = 0; plane < row.planes; ++plane)
        for (std::size_t y = 0; y < 4; ++y)
          for (std::size_t x = 0; x < (plane    ? row.chromaWidth
                                       : packed ? kWidth * 4
                                                : kWidth);
               ++x) {
            if (packed && x % 4 == 3) continue;
            ASSERT_EQ(frame->data[plane][y * std::size_t(frame->linesize[plane]) + x],
                      raw[row.offset(plane, x, y)])
                << "frame " << number << ", plane " << plane << " at " << x << ", " << y;
          }
    }
    EXPECT_EQ(reader.next(), nullptr);
  }
}

TEST_F(Exchange, keepsTimeStampsToTheMillisecond) {
  const std::int64_t first = 1'700'000'000'123'456;
  record(fPath, {{32, 16, kYUV422, 8}},
         {first, first + 33'000, first + 71'000, first + 2'000'000, first + 2'000'100,
          first + 2'040'000});
  for (const char* name : {"a.mkv", "a.mp4", "a.mov"}) {
    const std::string video = fFolder.file(name);
    const bool fine = std::string(name) != "a.mkv";
    EXPECT_THAT(run({"export", fPath, video}), StartsWith("0 ")) << name;
    // Two frames a tenth of a millisecond apart can't both keep their time in units of one.
    EXPECT_THAT(timesOf(video), ::testing::ElementsAre(0, 33, 71, 2000, fine ? 2000 : 2001, 2040))
        << name;
  }
}

TEST_F(Exchange, looksAlikeInH264) {
  const auto wanted =
      cli::importVideo({"test", fPath, FrameSize{320, 240}, 0, 10}, [](int, int) {});
  ASSERT_EQ(wanted.frames, 10);
  const std::string video = fFolder.file("a.mkv");
  ASSERT_THAT(run({"export", "--codec", "h264", fPath, video}), StartsWith("0 "));
  const std::string back = fFolder.file("b.oxv");
  ASSERT_THAT(run({"import", video, back}), StartsWith("0 "));
  cli::OXInputRecording before(fPath), after(back);
  ASSERT_EQ(after.images(0), 10);
  for (int i = 0; i < 10; ++i) {
    const auto one = cli::toPicture(before.image(i, 0)), two = cli::toPicture(after.image(i, 0));
    double sum = 0;
    for (std::size_t at = 0; at < one.rgb.size(); ++at) sum += std::abs(one.rgb[at] - two.rgb[at]);
    EXPECT_LT(sum / double(one.rgb.size()), 6) << "mean difference of image " << i;
  }
}

TEST_F(Exchange, exportsPicturesWithTheirStamps) {
  record(fPath, {{16, 8, kRGB, 8}}, {5, 1'700'000'000'000'001, -3});
  const std::string folder = fFolder.file("pictures");
  EXPECT_THAT(run({"export", fPath, folder}), StartsWith("0 "));
  for (const char* name :
       {"image-000000-5.png", "image-000001-1700000000000001.png", "image-000002--3.png"}) {
    cli::OXMediaReader reader(folder + "/" + name, {640, 480});
    const AVFrame* frame = reader.next();
    ASSERT_NE(frame, nullptr) << name;
    EXPECT_EQ(frame->width, 16) << name;
  }
}

TEST_F(Exchange, leavesDamagedImagesOut) {
  record(fPath, {{16, 4, kYUV422, 8}}, steady(5, 40'000));
  flip(fPath, 128 + 2 * 192 + 100);
  const std::string video = fFolder.file("a.mkv");
  EXPECT_THAT(run({"export", fPath, video}),
              AllOf(StartsWith("3 "), HasSubstr("damaged images left out: 1")));
  EXPECT_THAT(timesOf(video), ::testing::ElementsAre(0, 40, 120, 160));
}

TEST_F(Exchange, refusesWhatCannotBe) {
  record(fPath, {{15, 4, kYUV422, 8}, {16, 4, kRGB, 8}}, steady(2, 40'000));
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases{
      {{"export", fPath, fFolder.file("a.mkv")}, "can't have an odd width"},
      {{"export", "--stream", "2", fPath, fFolder.file("a.mkv")}, "has no stream 2"},
      {{"export", "--stream", "1", fPath, fFolder.file("a.avi")}, "can't keep time stamps"},
      {{"export", "--stream", "1", fPath, fFolder.file("a.xyz")}, "unknown type of video file"},
      {{"export", "--stream", "1", "--codec", "ffv1", fPath, fFolder.file("a.mp4")},
       "can't hold ffv1"},
      {{"export", "--stream", "1", fPath, fFolder.file("none/a.mkv")}, "No such file"},
      {{"export", "--stream", "1", fPath, fPath}, "the output is the same file as the input"},
      {{"import", "test", fFolder.file("b.oxv")}, "never ends"},
      {{"import", "test", fFolder.file("b.oxv"), "--fps", "10"}, "never ends"},
      {{"import", fFolder.file("none.mp4"), fFolder.file("b.oxv")}, "No such file"},
      {{"import", fPath, fFolder.file("b.oxv")}, "can't read"}};
  for (const auto& [arguments, reason] : cases) {
    const std::string said = run(arguments);
    EXPECT_THAT(said, HasSubstr(reason));
    EXPECT_NE(said[0], '0') << said;
  }
  EXPECT_FALSE(std::filesystem::exists(fFolder.file("a.mkv"))) << "nothing half made stays";
}

TEST_F(Exchange, importsEveryFrameAtItsTimeOrAtABeat) {
  VideoFile clip;
  clip.width = 330;
  clip.height = 250;
  clip.frames = 20;
  clip.fps = 10;
  const std::string video = fFolder.file("clip.mkv");
  ASSERT_TRUE(writeVideo(video, clip));
  struct Case {
    std::vector<std::string> options;
    int images, width;
    long lastMs;
  };
  for (const Case& row : {Case{{}, 20, 320, 1900}, Case{{"--fps", "5"}, 10, 320, 1800},
                          Case{{"--size", "160x120", "--fps", "20"}, 40, 160, 1950},
                          Case{{"--frames", "7"}, 7, 320, 600}}) {
    std::vector<std::string> arguments{"import", video, fPath};
    arguments.insert(arguments.end(), row.options.begin(), row.options.end());
    ASSERT_THAT(run(arguments), StartsWith("0 "));
    cli::OXInputRecording recording(fPath);
    const auto stream = recording.video().getStream(0);
    EXPECT_EQ(stream.fColorSpace, kYUV422);
    EXPECT_EQ(stream.fWidth, row.width);
    ASSERT_EQ(stream.fNumberOfImages, row.images);
    const auto first = recording.video().getTimeStamp(0, 0).value_or(0);
    const auto last = recording.video().getTimeStamp(row.images - 1, 0).value_or(0);
    EXPECT_EQ(std::lround(double(last - first) / 1000), row.lastMs);
    EXPECT_GT(first, 1'600'000'000'000'000) << "the stamps are times of day";
    const auto picture = cli::toPicture(recording.image(0, 0));
    EXPECT_EQ(quadrantFaults(picture.rgb, picture.width, picture.height, kQuadrants, 12), "");
  }
}

TEST(FittingSize, isTheLargestThatTheVideoFills) {
  EXPECT_EQ(cli::fittingSize({1920, 1080}), (FrameSize{1280, 960}));
  EXPECT_EQ(cli::fittingSize({1280, 959}), (FrameSize{640, 480}));
  EXPECT_EQ(cli::fittingSize({640, 480}), (FrameSize{640, 480}));
  EXPECT_EQ(cli::fittingSize({10000, 130}), (FrameSize{160, 120}));
  EXPECT_EQ(cli::fittingSize({8, 8}), (FrameSize{160, 120}));
}

}  // namespace
}  // namespace OX::test
