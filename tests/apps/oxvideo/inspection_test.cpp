// info, verify and repair: what they find, rescue and return for each kind of damage.
#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <random>

#include "recorded.h"
#include "recordings/inputrecording.h"
#include "recordings/recordingreport.h"

namespace OX::test {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

const streamHeader kSmall{16, 4, kYUV422, 8};
constexpr std::streamoff kFrame = 64 + 128;  // header and pixels

class Inspection : public ::testing::Test {
 protected:
  ScratchFolder fFolder;
  const std::string fPath = fFolder.file("a.oxv");
  const std::string fOther = fFolder.file("b.oxv");

  std::string run(const std::vector<std::string>& pArguments) {
    return oxvideo(fFolder, pArguments);
  }
};

TEST_F(Inspection, reportsRatesAndGaps) {
  struct Case {
    const char* why;
    std::vector<std::int64_t> stamps;
    std::string expected;  ///< usual interval, images not rising, gaps as "after:missing"
  };
  constexpr auto kLowest = std::numeric_limits<std::int64_t>::min();
  constexpr auto kHighest = std::numeric_limits<std::int64_t>::max();
  const std::vector<Case> cases{
      {"no image", {}, "0 0"},
      {"one image", {5}, "0 0"},
      {"a steady rate", {0, 100, 200, 300}, "100 0"},
      {"half an interval late is no gap", {0, 100, 200, 350, 450}, "100 0"},
      {"one missing", {0, 100, 200, 400, 500}, "100 0 2:1"},
      {"many missing, twice", {0, 100, 1100, 1200, 1500, 1600, 1700}, "100 0 1:9 3:2"},
      {"back in time", {0, 100, 200, 50, 150, 250}, "100 1"},
      {"standing still", {7, 7, 7}, "0 2"},
      {"the ends of time", {kLowest, kHighest, kLowest}, "0 2"},
      {"an interval as long as time", {0, kHighest}, std::to_string(kHighest) + " 0"},
      {"a gap as long as time", {0, 1, 2, kHighest}, "1 0 2:" + std::to_string(kHighest - 3)}};
  for (const Case& row : cases) {
    record(fPath, {kSmall}, row.stamps);
    const auto report = cli::makeReport(cli::OXInputRecording(fPath)).streams.at(0);
    std::string got =
        std::to_string(report.usualIntervalUs) + " " + std::to_string(report.notRising);
    for (const auto& gap : report.gaps)
      got += " " + std::to_string(gap.afterImage) + ":" + std::to_string(gap.missing);
    EXPECT_EQ(got, row.expected) << row.why;
  }
}

TEST_F(Inspection, infoSpeaksToPeopleAndToPrograms) {
  record(fPath, {kSmall, {8, 8, kRGB, 8}}, steady(9, 50'000));
  EXPECT_EQ(run({"info", fPath}),
            "0 " + fPath + ": 2496 bytes, closed with an index\n" +
                "stream 0: 16 x 4 kYUV422, 5 images, 0.400 s, 10.00 fps, usually 100.000 ms apart, "
                "camera 1\n"
                "stream 1: 8 x 8 kRGB, 4 images, 0.300 s, 10.00 fps, usually 100.000 ms apart, "
                "camera 1\n");
  const auto json = nlohmann::json::parse(run({"info", "--json", fPath}).substr(2));
  EXPECT_EQ(json["streams"][1]["images"], 4);
  EXPECT_EQ(json["streams"][1]["first_us"], 1'700'000'000'050'000);
  EXPECT_EQ(json["indexed"], true);
  EXPECT_EQ(json["damage"].size(), 0u);
  EXPECT_EQ(json["streams"][0]["other_sizes"].size(), 0u);
}

TEST_F(Inspection, answersForEachKindOfFile) {
  record(fPath, {kSmall}, steady(4, 1000));
  const std::string good = textOfFile(fPath);
  const auto store = [&](const std::string& pBytes) {
    std::ofstream(fPath, std::ios::binary) << pBytes;
  };
  EXPECT_THAT(run({"verify", fPath}), StartsWith("0 "));

  flip(fPath, 128 + kFrame + 70);
  EXPECT_THAT(run({"info", fPath}), StartsWith("0 ")) << "info reads no pixels";
  EXPECT_THAT(run({"verify", fPath}),
              AllOf(StartsWith("1 "), HasSubstr("at byte 384: the frame's pixels are damaged"),
                    HasSubstr("4 images, faults: 1")));

  store(good.substr(0, 128 + 2 * kFrame + 30));
  EXPECT_THAT(run({"info", fPath}), AllOf(StartsWith("3 "), HasSubstr("2 images"),
                                          HasSubstr("damage at byte 512, 30 bytes")));
  EXPECT_THAT(run({"verify", fPath}), StartsWith("1 "));

  OXVideo recorder;
  ASSERT_TRUE(recorder.recordVideo(fOther, 0, {kSmall}));
  const std::string by = "still being recorded by process " + std::to_string(::getpid());
  EXPECT_THAT(run({"info", fOther}), AllOf(StartsWith("0 "), HasSubstr(by)));
  EXPECT_THAT(run({"verify", fOther}), AllOf(StartsWith("0 "), HasSubstr(by)));
  recorder.closeVideo();
  std::filesystem::remove(fOther);

  store(good.substr(0, 128 + 2 * kFrame));
  EXPECT_THAT(run({"verify", fPath}),
              AllOf(StartsWith("0 "), HasSubstr("did not close this file")));

  store("no recording");
  for (const char* verb : {"info", "verify"})
    EXPECT_THAT(run({verb, fPath}), AllOf(StartsWith("1 "), HasSubstr("not an .oxv file")));
  EXPECT_THAT(run({"repair", fPath, fOther}), StartsWith("1 "));
  EXPECT_FALSE(std::filesystem::exists(fOther));
}

TEST_F(Inspection, saysWhyAFileCannotBeRead) {
  const std::string film = fFolder.file("film.mp4");
  std::ofstream(film) << "a video, as far as anyone knows";
  std::ofstream(fPath) << "";
  struct Case {
    std::string path;
    std::string why;
  };
  for (const Case& row :
       {Case{fFolder.file("none.oxv"), "none.oxv does not exist"},
        {fFolder.file(""), "is a folder"},
        {"/dev/null", "not a regular file"},
        {fPath, "the file is empty"},
        {film, "a video must be imported first: oxvideo import " + film + " film.oxv"}})
    for (const std::vector<std::string>& verb :
         {std::vector<std::string>{"info"}, {"verify"}, {"repair"}, {"export"}}) {
      std::vector<std::string> arguments{verb[0], row.path};
      if (verb[0] == "repair") arguments.push_back(fOther);
      if (verb[0] == "export") arguments.push_back(fFolder.file("out.mkv"));
      EXPECT_THAT(run(arguments), AllOf(StartsWith("1 "), HasSubstr(row.why))) << verb[0];
    }
}

/// The frames of a file as "stream:seed:stamp", seeds by what they hold.
std::string framesOf(const std::string& pPath) {
  cli::OXInputRecording recording(pPath);
  std::string text;
  for (int stream = 0; stream < recording.streams(); ++stream)
    for (int i = 0; i < recording.images(stream); ++i) {
      const auto* bytes = recording.bytes(i, stream);
      if (!bytes) return recording.error();
      const auto angles = recording.video().getFrameAngles();
      const auto seed = static_cast<unsigned>(angles.at(3));
      const auto place = recording.video().getFrameInfo(i, stream);
      const bool same = *bytes == noise(bytes->size(), seed) && angles.at(0) == 0.25f && place &&
                        place->fCameraId == 1;
      text += " " + std::to_string(stream) + ":" + std::to_string(seed) + (same ? "" : "?") + ":" +
              std::to_string(place ? place->fTimeStamp : -1);
    }
  return text;
}

TEST_F(Inspection, repairKeepsWhatStands) {
  record(fPath, {kSmall}, {10, 20, 30, 40}, false);
  flip(fPath, 128 + kFrame + 3);       // the header of the second frame
  flip(fPath, 128 + 2 * kFrame + 90);  // a pixel of the third
  EXPECT_THAT(run({"repair", fPath, fOther}),
              AllOf(StartsWith("3 "), HasSubstr(fOther + ": 2 images of 16x4\n"),
                    HasSubstr("2 images kept, lost: 2, damaged places: 1")));
  EXPECT_EQ(framesOf(fOther), " 0:0:10 0:3:40");
  EXPECT_TRUE(cli::OXInputRecording(fOther).video().hasIndex());
  EXPECT_THAT(run({"repair", fPath, fPath}), StartsWith("2 "));
  EXPECT_THAT(run({"repair", fPath, fFolder.file("b.mkv")}),
              AllOf(StartsWith("2 "), HasSubstr("written as .oxv")));
  EXPECT_THAT(run({"repair", fPath, fOther}), AllOf(StartsWith("1 "), HasSubstr("--overwrite")));
  EXPECT_THAT(run({"repair", "--overwrite", fPath, fOther}), StartsWith("3 "));
}

TEST_F(Inspection, repairKeepsStreamsApart) {
  record(fPath, {kSmall, kSmall}, {10, 20, 30, 40, 50, 60, 70});
  flip(fPath, 256 + 2 * kFrame + 90);  // the first frame of the second turn
  EXPECT_THAT(run({"repair", fPath, fOther}), HasSubstr("5 images kept, lost: 2"));
  EXPECT_EQ(framesOf(fOther), " 0:0:10 0:4:50 0:6:70 1:1:20 1:5:60")
      << "a turn with a hole goes as a whole, one that only began stays";
}

constexpr int kBytesOfQvga = 320 * 240 * 2, kBytesOfVga = 640 * 480 * 2;

TEST_F(Inspection, imagesOfAnotherSizeAreSeenAndParted) {
  // A camera that was raised while it was recorded, and a frame that no camera makes.
  recordSizes(fPath, {{320, 240, kYUV422, 8}},
              {kBytesOfQvga, kBytesOfQvga, kBytesOfVga, kBytesOfVga, kBytesOfVga, 999});
  EXPECT_THAT(run({"info", fPath}),
              AllOf(StartsWith("3 "),
                    HasSubstr("images of another size, 640x480: 3, the first is image 2\n"),
                    HasSubstr("images of another size, 999 bytes: 1, the first is image 5\n")));
  const auto info = nlohmann::json::parse(run({"info", "--json", fPath}).substr(2));
  EXPECT_EQ(info["streams"][0]["other_sizes"].dump(),
            R"([{"bytes":614400,"first_image":2,"height":480,"images":3,"width":640},)"
            R"({"bytes":999,"first_image":5,"height":null,"images":1,"width":null}])");
  EXPECT_THAT(run({"verify", fPath}),
              AllOf(StartsWith("1 "), HasSubstr("6 images, faults: 4\n"),
                    HasSubstr("images of 640x480 in stream 0, whose images are 320x240: 3")));
  const auto verified = nlohmann::json::parse(run({"verify", "--json", fPath}).substr(2));
  EXPECT_EQ(verified["faults"], 4);

  EXPECT_THAT(run({"repair", fPath, "-"}), AllOf(StartsWith("2 "), HasSubstr("2 sizes")));
  const auto repaired = nlohmann::json::parse(run({"repair", "--json", fPath, fOther}).substr(2));
  const std::string second = fFolder.file("b-2.oxv");
  EXPECT_EQ(repaired["kept"], 5);
  EXPECT_EQ(repaired["lost"], 1);
  EXPECT_EQ(repaired["files"][1]["file"], second);
  EXPECT_EQ(repaired["files"][1]["sizes"][0], "640x480");
  EXPECT_EQ(framesOf(fOther), " 0:0:0 0:1:1000");
  EXPECT_EQ(framesOf(second), " 0:2:2000 0:3:3000 0:4:4000");
  EXPECT_THAT(run({"verify", fOther}), StartsWith("0 "));
  EXPECT_THAT(run({"verify", second}), StartsWith("0 "));
  // The second file is the input: refused before anything is written.
  std::filesystem::rename(fPath, second);
  const std::string first = textOfFile(fOther), input = textOfFile(second);
  EXPECT_THAT(run({"repair", "--overwrite", second, fOther}), StartsWith("2 "));
  EXPECT_EQ(textOfFile(fOther), first);
  EXPECT_EQ(textOfFile(second), input);
}

// Whatever a file contains: what repair writes passes verify, holds only frames that were recorded,
// each once and in their order, and no frame that could be read is missing where nothing was cut.
TEST_F(Inspection, whatRepairWritesPassesVerify) {
  const unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const auto upTo = [&](unsigned pLast) { return random() % (pLast + 1); };
  const int kQqvga = 160 * 120 * 2;
  for (int round = 0; round < 60; ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    const std::size_t streams = 1 + upTo(2);
    const std::vector<streamHeader> headers(streams,
                                            upTo(1) ? kSmall : streamHeader{160, 120, kYUV422, 8});
    std::vector<int> bytes;
    for (unsigned left = 1 + upTo(20); left > 0; --left)
      bytes.push_back(std::vector<int>{128, kQqvga, kBytesOfQvga, 77}[upTo(3)]);
    std::filesystem::remove(fPath);
    recordSizes(fPath, headers, bytes, upTo(1) == 0);
    std::string file = textOfFile(fPath);
    const unsigned flips = upTo(3);
    for (unsigned i = 0; i < flips; ++i) file[upTo(static_cast<unsigned>(file.size() - 1))] ^= 0x10;
    const bool isCut = upTo(3) == 0;
    if (isCut) file.resize(1 + upTo(static_cast<unsigned>(file.size() - 1)));
    std::ofstream(fPath, std::ios::binary) << file;

    const std::string said = run({"repair", "--json", "--overwrite", fPath, fOther});
    if (said[0] == '1') continue;  // both headers are lost
    const auto json = nlohmann::json::parse(said.substr(2));
    std::size_t kept = 0;
    for (const auto& written : json["files"]) {
      const std::string path = written["file"];
      EXPECT_THAT(run({"verify", path}), StartsWith("0 ")) << path;
      cli::OXInputRecording recording(path);
      EXPECT_TRUE(recording.video().hasIndex());
      for (int stream = 0; stream < recording.streams(); ++stream) {
        float last = -1;
        for (int i = 0; i < recording.images(stream); ++i, ++kept) {
          const auto* pixels = recording.bytes(i, stream);
          ASSERT_NE(pixels, nullptr) << recording.error();
          const float number = recording.video().getFrameAngles().at(3);
          EXPECT_GT(number, last);
          last = number;
          const auto index = static_cast<std::size_t>(number);
          EXPECT_EQ(index % streams, std::size_t(stream));
          ASSERT_LT(index, bytes.size());
          EXPECT_EQ(*pixels, noise(static_cast<std::size_t>(bytes[index]), unsigned(index)));
        }
      }
    }
    EXPECT_EQ(json["kept"], kept);
    EXPECT_EQ(said[0], json["lost"] == 0 ? '0' : '3');
    if (flips > 0 || isCut) continue;
    // Undamaged: a frame is lost only where its turn has one of no size. A stream of 16x4 is of no
    // camera, and has no other sizes.
    std::size_t whole = 0;
    const int first = static_cast<int>(headers[0].width * headers[0].height * 2);
    for (std::size_t turn = 0; turn < bytes.size(); turn += streams) {
      const std::size_t end = std::min(turn + streams, bytes.size());
      const bool hasSizes =
          std::all_of(bytes.begin() + std::ptrdiff_t(turn), bytes.begin() + std::ptrdiff_t(end),
                      [&](int pBytes) {
                        return pBytes == first || (first == kQqvga && pBytes == kBytesOfQvga);
                      });
      if (hasSizes) whole += end - turn;
    }
    // Sixteen combinations of sizes are the most that get a file.
    if (json["files"].size() < 16) {
      EXPECT_EQ(kept, whole);
    }
    EXPECT_EQ(kept + std::size_t(json["lost"]), bytes.size());
  }
}

}  // namespace
}  // namespace OX::test
