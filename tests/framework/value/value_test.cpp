// Kinds and conversions of OXValue, its arrays and binaries, and the form of an image on the wire.
#include <oxframework/oxvalue.h>

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include <oxframework/oximage.h>
#include "support/outcome.h"

namespace OX::test {
namespace {

OXValue binaryOf(const std::string& pBytes) {
  OXValue value;
  value.SetBinary(pBytes.data(), static_cast<int>(pBytes.size()));
  return value;
}

const std::vector<OXValue> kOneOfEachKind{
    OXValue(), true, 7, 2.5f, "text", OXValue::array(1, 2.5f), binaryOf("bytes")};

TEST(OXValue, ReadsAsItsKindAndByTheDefinedConversions) {
  struct Row {
    const char* what;
    std::string expected[7];  // invalid, bool, int, float, string, array, binary
  };
  const auto wrong = [](const std::string& pKinds) { return "OXError: Value is " + pKinds; };
  const std::vector<Row> rows{
      {"toBool",
       {wrong("invalid instead of bool"), "true", "true", wrong("float instead of bool"),
        wrong("string instead of bool"), wrong("array instead of bool"),
        wrong("binary instead of bool")}},
      {"toInt",
       {wrong("invalid instead of int"), "1", "7", wrong("float instead of int"),
        wrong("string instead of int"), wrong("array instead of int"),
        wrong("binary instead of int")}},
      {"toFloat",
       {wrong("invalid instead of float"), wrong("bool instead of float"), "7f", "2.5f",
        wrong("string instead of float"), wrong("array instead of float"),
        wrong("binary instead of float")}},
      {"toString",
       {wrong("invalid instead of string"), wrong("bool instead of string"),
        wrong("int instead of string"), wrong("float instead of string"), "\"text\"",
        wrong("array instead of string"), wrong("binary instead of string")}},
      {"toFloatVector",
       {wrong("invalid instead of array"), wrong("bool instead of array"),
        wrong("int instead of array"), wrong("float instead of array"),
        wrong("string instead of array"), "[1f, 2.5f]", wrong("binary instead of array")}},
      {"toIntVector",
       {wrong("invalid instead of array"), wrong("bool instead of array"),
        wrong("int instead of array"), wrong("float instead of array"),
        wrong("string instead of array"), wrong("float instead of int"),
        wrong("binary instead of array")}},
      {"getSize", {"0", "0", "0", "0", "4", "2", "5"}},
  };
  const auto read = [](const std::string& pWhat, const OXValue& pValue) -> OXValue {
    if (pWhat == "toBool") return pValue.toBool();
    if (pWhat == "toInt") return pValue.toInt();
    if (pWhat == "toFloat") return pValue.toFloat();
    if (pWhat == "toString") return pValue.toString();
    if (pWhat == "toFloatVector") return pValue.toFloatVector();
    if (pWhat == "toIntVector") return pValue.toIntVector();
    return pValue.getSize();
  };
  for (const Row& row : rows)
    for (std::size_t kind = 0; kind < kOneOfEachKind.size(); ++kind)
      EXPECT_EQ(outcome([&] { return read(row.what, kOneOfEachKind[kind]); }), row.expected[kind])
          << row.what << " of " << show(kOneOfEachKind[kind]);
}

TEST(OXValue, ReferencesNeedTheExactKind) {
  OXValue number(7);
  static_cast<int&>(number) = 8;
  EXPECT_EQ(show(number), "8");
  OXValue flag(true);
  EXPECT_THROW(static_cast<int&>(flag) = 1, OXError);
  EXPECT_THROW(static_cast<std::string&>(flag) = "x", OXError);
  EXPECT_EQ(show(flag), "true");
}

TEST(OXValue, ArraysGrowAndCheckTheirIndex) {
  OXValue value(3);
  EXPECT_EQ(outcome([&] { return value[0]; }), "OXError: Value is int instead of array");
  EXPECT_THROW(value.arrayPush(1), OXError);
  EXPECT_THROW(value.arraySetSize(-1), OXError);
  EXPECT_EQ(show(value), "3");

  value.arraySetSize(2);
  value[1] = OXValue("kept");
  value.arraySetSize(3);
  EXPECT_EQ(show(value), "[invalid, \"kept\", invalid]");
  EXPECT_EQ(outcome([&] { return value[3]; }),
            "OXError: Index 3 is outside an array of 3 elements");
  EXPECT_EQ(outcome([&] { return value[-1]; }),
            "OXError: Index -1 is outside an array of 3 elements");
  value.arrayReserve(2);
  EXPECT_EQ(show(value), "[invalid, invalid]");

  OXValue pushed;
  pushed.arrayPush(1);
  pushed.arrayPush("two");
  EXPECT_EQ(show(pushed), "[1, \"two\"]");
}

TEST(OXValue, AFailedConversionLeavesTheVectorUnchanged) {
  std::vector<float> numbers{9};
  EXPECT_THROW(OXValue::array(1, "x").ToFloatArray(numbers, true), OXError);
  EXPECT_EQ(numbers, std::vector<float>({9}));
  OXValue::array(1, 2.5f).ToFloatArray(numbers, true);
  EXPECT_EQ(numbers, std::vector<float>({9, 1, 2.5f}));
  OXValue::array(4).ToFloatArray(numbers, false);
  EXPECT_EQ(numbers, std::vector<float>({4}));
}

TEST(OXValue, CopiesShareABinaryAndOutliveEachOther) {
  std::string source = "pixels";
  OXValue copy;
  {
    const OXValue original = binaryOf(source);
    source = "changed";
    copy = original;
    EXPECT_EQ(copy.GetBinary(), original.GetBinary());
    EXPECT_EQ(OXValue::array(original, 1)[0].GetBinary(), original.GetBinary());
  }
  ASSERT_EQ(copy.getSize(), 6);
  EXPECT_EQ(std::memcmp(copy.GetBinary(), "pixels", 6), 0);
  EXPECT_EQ(copy, binaryOf("pixels"));
  EXPECT_NE(copy, binaryOf("pixelz"));
  EXPECT_NE(copy, OXValue("pixels"));
  EXPECT_THROW(copy.SetBinary(nullptr, 1), OXError);
  EXPECT_THROW(copy.SetBinary("x", -1), OXError);
  EXPECT_EQ(copy, binaryOf("pixels"));
}

TEST(OXValue, AnImageIsAnArrayOfTwelveElements) {
  OXImage image(2, 1, 9, false, -1.5f, 2, 3, 4);
  image.fTimeStamp = 0x1'8000'0002;
  image.fCameraId = 1;
  std::memcpy(image.fData, "YUYV", 4);
  const OXValue value = image.toOXValue();
  EXPECT_EQ(show(value), "[2, 1, 2, 9, 1, -2147483646, <4 bytes>, 1, -1.5f, 2f, 3f, 4f]");
  std::memcpy(image.fData, "late", 4);
  EXPECT_EQ(value[6], binaryOf("YUYV")) << "the pixels are a copy";
  image.setResolution(3);
  EXPECT_EQ(image.toOXValue()[6].getSize(), 4) << "never more than there is room for";
  image.setResolution(17);
  EXPECT_EQ(show(image.toOXValue()),
            "[-1, -1, 2, 9, 1, -2147483646, <0 bytes>, 1, -1.5f, 2f, 3f, 4f]");
}

}  // namespace
}  // namespace OX::test
