// What the command line accepts as names and numbers, and text that is safe for a terminal.
#include "device/vocabulary.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <oxframework/oxdefinitions.h>
#include "device/expectedinput.h"
#include "terminal/exitstatus.h"
#include "terminal/text.h"

namespace OX::test {
namespace {

using namespace cli;

/// The result of the call as text, or "refused: " and the message.
template <typename Call>
std::string outcome(Call pCall) {
  try {
    return ::testing::PrintToString(pCall());
  } catch (const OXUsageError& error) {
    return std::string("refused: ") + error.what();
  }
}

TEST(Vocabulary, SizesRatesAndRanges) {
  for (const char* text : {"1280x960", "1280X960", "k4VGA", "4vga", "3"})
    EXPECT_EQ(parseSize(text), (FrameSize{1280, 960})) << text;
  for (const char* wrong : {"640", "640x", "x480", "640x240", "480x640", "640x480x3", " 640x480",
                            "-640x-480", "99999999999x1", ""})
    EXPECT_THROW(parseSize(wrong), OXUsageError) << wrong;

  EXPECT_EQ(parseFps("12.5"), 12.5);
  for (const char* wrong : {"0", "-1", "1001", "nan", "inf", "30fps", ""})
    EXPECT_THROW(parseFps(wrong), OXUsageError) << wrong;

  EXPECT_EQ(parseRange("3:3"), std::pair(3, 3));
  for (const char* wrong : {"4:3", "-1:3", "3", ":", "1:2:3", "a:b"})
    EXPECT_THROW(parseRange(wrong), OXUsageError) << wrong;
}

TEST(Vocabulary, NamesAndNumbersOfTheVocabulary) {
  EXPECT_EQ(parseResolution("kVGA"), kVGA);
  EXPECT_EQ(parseResolution("4VGA"), k4VGA);
  EXPECT_EQ(parseResolution("kqqVGA"), kQQVGA);
  EXPECT_EQ(parseResolution("640x480"), kVGA);
  EXPECT_EQ(parseResolution("0"), kQQVGA);
  EXPECT_EQ(parseColorSpace("rgb"), kRGB);
  EXPECT_EQ(outcome([] { return parseColorSpace("yuv"); }),
            "refused: \"yuv\" may be kYuv or kYUV: write the colour space with its capitals");
  EXPECT_EQ(parseColorSpace("kYuv"), kYuv);
  EXPECT_EQ(parseColorSpace("kYUV"), kYUV) << "only case tells the two apart";
  EXPECT_EQ(parseColorSpace("16"), kHSMixed);
  EXPECT_EQ(parseParameter("resolution"), kCameraResolutionID);
  EXPECT_EQ(parseParameter("kCameraSelectID"), kCameraSelectID);
  EXPECT_EQ(parseParameter("99"), 99) << "a camera may know more parameters than we do";

  EXPECT_EQ(outcome([] { return parseColorSpace("kCMYK"); }),
            "refused: \"kCMYK\" is not a colour space: use one of kYuv, kHsy, kYUV422, kYUV, kRGB, "
            "kHSY, kBGR, kYYCbCr, kH2RGB, kHSMixed");
  EXPECT_EQ(outcome([] { return parseColorSpace("3"); }).substr(0, 8), "refused:")
      << "a number without a colour space";
  EXPECT_EQ(outcome([] { return parseResolution("5"); }),
            "refused: \"5\" is not a resolution: use one of kQQVGA, kQVGA, kVGA, k4VGA, or "
            "160x120, 320x240, 640x480, 1280x960");
  const struct {
    const char* word;
    const char* end;
  } typos[] = {
      {"kVAG", "1280x960; did you mean kVGA?"},
      {"QVGAA", "1280x960; did you mean kQVGA?"},
      {"kXGA", "1280x960; did you mean kVGA?"},
      {"enormous", "1280x960"},
      {"", "1280x960"},
  };
  for (const auto& typo : typos)
    EXPECT_THAT(outcome([&] { return parseResolution(typo.word); }), ::testing::EndsWith(typo.end));
  EXPECT_EQ(outcome([] { return parseParameter("zoom"); }).substr(0, 8), "refused:");
}

TEST(ExpectedInput, OnlyWhatCanBeFedIsTakenOver) {
  const ExpectedInput expected = parseExpectedInput(OXValue::array(OXValue::array(320, 240), 15));
  EXPECT_EQ(expected, (ExpectedInput{{320, 240}, 15.0}));
  for (const OXValue& wrong :
       {OXValue(), OXValue(3), OXValue(OXValue::Array()), OXValue::array(OXValue::array(320, 240)),
        OXValue::array(OXValue::array(320), 15), OXValue::array(OXValue::array(321, 240), 15),
        OXValue::array(OXValue::array(-1, -1), 15), OXValue::array(OXValue::array(320, 240), 0),
        OXValue::array(OXValue::array("320", 240), 15)})
    EXPECT_THROW(parseExpectedInput(wrong), OXFailure);
}

TEST(Text, WhatOthersSayCannotDriveTheTerminal) {
  const struct {
    const char* text;
    const char* expected;
    const char* why;
  } rows[] = {
      {"plain \xc3\xa9\n\tx", "plain \xc3\xa9\n\tx", "UTF-8, line ends and tabs stay"},
      {"\x1b[2J", "\\x1b[2J", "escape sequences"},
      {"max \x01", "max \\x01", "a number sent as a character"},
      {"\xff"
       "0",
       "\\xff0", "a byte that starts nothing"},
      {"\xc3", "\\xc3", "a sequence cut short"},
      {"\xc2\x9b"
       "2J",
       "\\xc2\\x9b2J", "control characters of two bytes"},
      {"\xe0\x80\x80", "\\xe0\\x80\\x80", "overlong"},
      {"\xed\xa0\x80", "\\xed\\xa0\\x80", "half a surrogate pair"},
  };
  for (const auto& row : rows) EXPECT_EQ(printable(row.text), row.expected) << row.why;
}

TEST(Text, TablesAlignByWhatIsSeen) {
  OXTable table({"A", "LONG", "C"});
  table.addRow({"\xc3\xa9", "x", "end", "surplus"});
  table.addRow({"22"});
  EXPECT_EQ(table.text(OXTextStyle(false)), "A   LONG  C\n\xc3\xa9   x     end\n22        \n");
}

}  // namespace
}  // namespace OX::test
