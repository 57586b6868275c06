// import and export: which pixels and time stamps survive, and what is refused.
#include <gmock/gmock.h>

#include <array>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <nlohmann/json.hpp>

#include "media/ffmpeg.h"
#include "media/mediareader.h"
#include "media/picture.h"
#include "recorded.h"
#include "recordings/datetime.h"
#include "recordings/importer.h"
#include "recordings/inputrecording.h"
#include "terminal/exitstatus.h"
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
    ASSERT_THAT(run({"export", "--overwrite", fPath, video}), StartsWith("0 "));
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
  cli::OXOutput output(1);
  const auto wanted =
      cli::importVideo({"test", fPath, FrameSize{320, 240}, 0, 10}, output, [](int, int) {});
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
  const std::string folder = fFolder.file("new/pictures/");
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
  EXPECT_THAT(
      run({"export", fPath, video}),
      AllOf(StartsWith("3 "), HasSubstr("images left out, damaged or of an unknown size: 1")));
  EXPECT_THAT(timesOf(video), ::testing::ElementsAre(0, 40, 120, 160));
}

TEST_F(Exchange, refusesWhatCannotBe) {
  record(fPath, {{15, 4, kYUV422, 8}, {16, 4, kRGB, 8}}, steady(2, 40'000));
  const std::string video = fFolder.file("a.mkv"), recording = fFolder.file("b.oxv");
  struct Case {
    std::string status;
    std::vector<std::string> arguments;
    std::string reason;
  };
  const std::vector<Case> cases{
      {"1", {"export", fPath, video}, "can't have an odd width"},
      {"2", {"export", "--stream", "2", fPath, video}, "stream 2: it has 2, numbered 0 to 1"},
      {"2", {"export", "--stream", "1", fPath, fFolder.file("a.avi")}, "can't keep time stamps"},
      {"2", {"export", "--stream", "1", fPath, fFolder.file("a.png")}, "can't keep time stamps"},
      {"2", {"export", "--stream", "1", fPath, fFolder.file("a.xyz")}, "unknown type of video"},
      {"2",
       {"export", "--stream", "1", "--codec", "ffv1", fPath, fFolder.file("a.mp4")},
       "can't hold ffv1"},
      {"2",
       {"export", "--stream", "1", "--codec", "ffv1", fPath, fFolder.file("pictures")},
       "a folder for pictures"},
      {"1", {"export", "--stream", "1", fPath, fFolder.file("none/a.mkv")}, "none does not exist"},
      {"2", {"export", "--stream", "1", fPath, fPath}, "the output is the same file as the input"},
      {"2", {"export", "--stream", "1", "--json", fPath, "-"}, "both use standard output"},
      {"2", {"import", "test", recording}, "never ends"},
      {"2", {"import", "lavfi:testsrc2", recording}, "never ends"},
      {"2", {"import", "test", recording, "--fps", "10"}, "never ends"},
      {"2", {"import", "test", video, "--frames", "1"}, "written as .oxv"},
      {"2", {"import", "test", recording, "--frames", "1", "--stream", "1"}, "has one, number 0"},
      {"2", {"import", "test", recording, "--frames", "1", "--camera", "128"}, "128"},
      {"2", {"import", "test", recording, "--frames", "1", "--start", "noon"}, "with a zone"},
      {"1", {"import", fFolder.file("none.mp4"), recording}, "No such file"},
      {"1", {"import", fPath, recording}, "is a recording already"}};
  for (const Case& row : cases)
    EXPECT_THAT(run(row.arguments), AllOf(StartsWith(row.status + " "), HasSubstr(row.reason)));
  for (const auto& entry : std::filesystem::directory_iterator(fFolder.file("")))
    EXPECT_THAT(entry.path().filename().string(), ::testing::AnyOf("a.oxv", "said"))
        << "nothing half made stays";
}

/// A picture of one colour, which no scaling changes.
std::vector<unsigned char> evenly(int pBytes) {
  std::vector<unsigned char> pixels(static_cast<std::size_t>(pBytes));
  for (std::size_t i = 0; i < pixels.size(); ++i)
    pixels[i] = std::array<unsigned char, 4>{100, 90, 100, 160}[i % 4];
  return pixels;
}

TEST_F(Exchange, scalesImagesOfAnotherSizeAndSaysSo) {
  OXVideo recorder;
  ASSERT_TRUE(recorder.recordVideo(fPath, 0, {{320, 240, kYUV422, 8}}));
  std::int64_t stamp = 0;
  for (const int bytes : {320 * 240 * 2, 640 * 480 * 2, 160 * 120 * 2, 4444, 320 * 240 * 2})
    ASSERT_TRUE(recorder.write(evenly(bytes).data(), bytes, stamp += 40'000, 0, 0, 0, 0, 0));
  recorder.closeVideo();
  const std::string video = fFolder.file("a.mkv"), pictures = fFolder.file("pictures");
  for (const std::string& output : {video, pictures})
    EXPECT_THAT(run({"export", fPath, output}),
                AllOf(StartsWith("3 "), HasSubstr(output + ": 4 images of 320x240\n"),
                      HasSubstr("images of another size, scaled to 320x240: 2\n"),
                      HasSubstr("images left out, damaged or of an unknown size: 1\n")));
  cli::OXMediaReader reader(video, {640, 480});
  for (int number = 0; number < 4; ++number) {
    const AVFrame* frame = reader.next();
    ASSERT_NE(frame, nullptr);
    ASSERT_EQ(frame->width, 320);
    ASSERT_EQ(frame->height, 240);
    const int expected[] = {100, 90, 160};
    for (int plane = 0; plane < 3; ++plane)
      for (int y = 0; y < 240; ++y)
        for (int x = 0; x < (plane ? 160 : 320); ++x)
          ASSERT_EQ(frame->data[plane][y * frame->linesize[plane] + x], expected[plane])
              << number << ": plane " << plane << " at " << x << ", " << y;
  }
  EXPECT_EQ(reader.next(), nullptr);
  EXPECT_THAT(timesOf(video), ::testing::ElementsAre(0, 40, 80, 160));
  // The picture of a scaled image equals that of one which had the size.
  const std::string whole = textOfFile(pictures + "/image-000000-40000.png");
  EXPECT_EQ(textOfFile(pictures + "/image-000001-80000.png"), whole);
  EXPECT_EQ(textOfFile(pictures + "/image-000002-120000.png"), whole);
  EXPECT_EQ(
      nlohmann::json::parse(run({"export", "--overwrite", "--json", fPath, pictures}).substr(2)),
      (nlohmann::json{{"file", pictures},
                      {"width", 320},
                      {"height", 240},
                      {"images", 4},
                      {"left_out", 1},
                      {"scaled", 2},
                      {"moved", 0},
                      {"other_files", 0}}));
}

TEST_F(Exchange, nothingReadableIsNoExport) {
  record(fPath, {{16, 4, kYUV422, 8}}, {10});
  flip(fPath, 128 + 100);
  EXPECT_THAT(run({"export", fPath, fFolder.file("a.mkv")}),
              AllOf(StartsWith("1 "), HasSubstr("none of the 1 images"), HasSubstr("damaged")));
  EXPECT_FALSE(std::filesystem::exists(fFolder.file("a.mkv")));
}

TEST_F(Exchange, standardOutputGetsTheSameBytes) {
  const std::string sink = fFolder.file("sink"), said = fFolder.file("said");
  const auto pipe = [&](const std::vector<std::string>& pArguments) {
    const int out = ::open(sink.c_str(), O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0600);
    const int err = ::open(said.c_str(), O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0600);
    cli::OXOutput output(out), errors(err);
    const int status = cli::runProgram(pArguments, output, errors);
    ::close(out);
    ::close(err);
    EXPECT_EQ(status, 0) << textOfFile(said);
    EXPECT_NE(textOfFile(said), "") << "the result is said elsewhere";
  };
  pipe({"import", "test", "-", "--frames", "3", "--size", "160x120"});
  std::filesystem::copy_file(sink, fPath);
  EXPECT_THAT(run({"verify", fPath}), HasSubstr("3 images, all intact"));
  pipe({"repair", fPath, "-"});
  std::filesystem::copy_file(sink, fFolder.file("b.oxv"));
  EXPECT_THAT(run({"verify", fFolder.file("b.oxv")}), HasSubstr("3 images, all intact"));
  pipe({"export", fPath, "-"});
  EXPECT_EQ(timesOf(sink).size(), 3u);
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
    std::vector<std::string> arguments{"import", "--overwrite", video, fPath};
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

/// Copies the packets of two videos into one file. False when that fails.
bool joinStreams(const std::string& pFirst, const std::string& pSecond, const std::string& pTo) {
  AVFormatContext* target = nullptr;
  if (avformat_alloc_output_context2(&target, nullptr, nullptr, pTo.c_str()) < 0) return false;
  bool isGood = true;
  std::vector<AVFormatContext*> sources;
  for (const std::string& path : {pFirst, pSecond}) {
    AVFormatContext* source = nullptr;
    isGood = isGood && avformat_open_input(&source, path.c_str(), nullptr, nullptr) == 0 &&
             avformat_find_stream_info(source, nullptr) >= 0;
    if (!isGood) break;
    sources.push_back(source);
    AVStream* stream = avformat_new_stream(target, nullptr);
    isGood = avcodec_parameters_copy(stream->codecpar, source->streams[0]->codecpar) >= 0;
    stream->time_base = source->streams[0]->time_base;
    stream->avg_frame_rate = source->streams[0]->avg_frame_rate;
  }
  isGood = isGood && avio_open(&target->pb, pTo.c_str(), AVIO_FLAG_WRITE) >= 0 &&
           avformat_write_header(target, nullptr) >= 0;
  cli::PacketOwner packet(av_packet_alloc());
  for (std::size_t i = 0; isGood && i < sources.size(); ++i)
    while (isGood && av_read_frame(sources[i], packet.get()) >= 0) {
      packet->stream_index = static_cast<int>(i);
      av_packet_rescale_ts(packet.get(), sources[i]->streams[0]->time_base,
                           target->streams[i]->time_base);
      isGood = av_interleaved_write_frame(target, packet.get()) >= 0;
    }
  isGood = isGood && av_write_trailer(target) == 0;
  avio_closep(&target->pb);
  avformat_free_context(target);
  for (AVFormatContext* source : sources) avformat_close_input(&source);
  return isGood;
}

TEST_F(Exchange, importsTheStreamCameraAndStartThatAreStated) {
  VideoFile left, right;
  left.frames = 2;
  right.frames = 4;
  const std::string one = fFolder.file("l.mkv"), two = fFolder.file("r.mkv");
  const std::string both = fFolder.file("both.mkv");
  ASSERT_TRUE(writeVideo(one, left) && writeVideo(two, right) && joinStreams(one, two, both));
  const auto import = [&](const std::string& pStream, const std::string& pFps) {
    return run({"import", both, fPath, "--overwrite", "--camera", "3", "--start",
                "2024-05-01T14:00:00.25+02:00", "--stream", pStream, "--fps", pFps});
  };
  for (const char* fps : {"10", "20"})
    for (const auto& [stream, seconds] : {std::pair{"0", 2}, {"1", 4}}) {
      ASSERT_THAT(import(stream, fps), StartsWith("0 "));
      cli::OXInputRecording recording(fPath);
      EXPECT_EQ(recording.images(0), seconds * std::atoi(fps) / 10) << stream;
      const auto first = recording.video().getFrameInfo(0, 0);
      ASSERT_TRUE(first);
      EXPECT_EQ(first->fCameraId, 3);
      EXPECT_EQ(first->fTimeStamp, 1'714'564'800'250'000);
    }
  EXPECT_THAT(import("2", "10"),
              AllOf(StartsWith("2 "), HasSubstr("stream 2: it has 2, numbered 0 to 1")));
}

TEST(DateTime, isAMomentOnlyWithAZone) {
  struct Case {
    std::string text;
    std::int64_t expected;  ///< -1: refused
  };
  for (const Case& row : {Case{"1970-01-01T00:00:00Z", 0},
                          {"2024-05-01T12:00:00Z", 1'714'564'800'000'000},
                          {"2024-05-01 12:00:00Z", 1'714'564'800'000'000},
                          {"2024-05-01T09:30:00-02:30", 1'714'564'800'000'000},
                          {"2024-02-29T00:00:00.000001Z", 1'709'164'800'000'001},
                          {"1969-12-31T23:59:59.5Z", -500'000},
                          {"2023-02-29T00:00:00Z", -1},
                          {"2024-05-01T24:00:00Z", -1},
                          {"2024-05-01T12:00:00", -1},
                          {"2024-05-01", -1},
                          {"2024-05-01T12:00:00.1234567Z", -1},
                          {"2024-05-01T12:00:00Z ", -1},
                          {"", -1}}) {
    std::int64_t got = -1;
    try {
      got = cli::parseDateTime(row.text);
    } catch (const cli::OXUsageError&) {
      EXPECT_EQ(row.expected, -1) << row.text;
    }
    EXPECT_EQ(got, row.expected) << row.text;
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
