// info, verify and repair: what they find, rescue and return for each kind of damage.
#include <gmock/gmock.h>

#include <filesystem>
#include <nlohmann/json.hpp>

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

  store(good.substr(0, 128 + 2 * kFrame));
  EXPECT_THAT(run({"verify", fPath}),
              AllOf(StartsWith("0 "), HasSubstr("did not close this file")));

  store("no recording");
  for (const char* verb : {"info", "verify"})
    EXPECT_THAT(run({verb, fPath}), AllOf(StartsWith("1 "), HasSubstr("not an .oxv file")));
  EXPECT_THAT(run({"repair", fPath, fOther}), StartsWith("1 "));
  EXPECT_FALSE(std::filesystem::exists(fOther));
  EXPECT_THAT(run({"info", fFolder.file("none")}), StartsWith("1 "));
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
              AllOf(StartsWith("3 "), HasSubstr("2 images kept, lost: 2, damaged places: 1")));
  EXPECT_EQ(framesOf(fOther), " 0:0:10 0:3:40");
  EXPECT_TRUE(cli::OXInputRecording(fOther).video().hasIndex());
  EXPECT_THAT(run({"repair", fPath, fPath}), StartsWith("2 "));
}

TEST_F(Inspection, repairKeepsStreamsApart) {
  record(fPath, {kSmall, kSmall}, {10, 20, 30, 40, 50, 60, 70});
  flip(fPath, 256 + 2 * kFrame + 90);  // the first frame of the second turn
  EXPECT_THAT(run({"repair", fPath, fOther}), HasSubstr("5 images kept, lost: 2"));
  EXPECT_EQ(framesOf(fOther), " 0:0:10 0:4:50 0:6:70 1:1:20 1:5:60")
      << "a turn with a hole goes as a whole, one that only began stays";
}

}  // namespace
}  // namespace OX::test
