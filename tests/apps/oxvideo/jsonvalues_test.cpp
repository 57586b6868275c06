// Words of the command line as arguments of a call, and results as JSON.
#include "device/jsonvalues.h"

#include <gtest/gtest.h>

#include <limits>

#include "terminal/exitstatus.h"

namespace OX::test {
namespace {

using namespace cli;

TEST(Values, ArgumentsAreJsonAndOtherWordsAreStrings) {
  const struct {
    const char* word;
    OXValue expected;
    const char* why;
  } rows[] = {
      {"true", true, "a JSON bool"},
      {"-3", -3, "an integer"},
      {"2147483647", 2147483647, "the largest one"},
      {"-2147483648", std::numeric_limits<int>::min(), "the smallest one"},
      {"0.5", 0.5f, "a float"},
      {"1e3", 1000.0f, "an exponent makes a float"},
      {"null", OXValue(), "null is the invalid value"},
      {"\"3\"", "3", "a quoted number is a string"},
      {"kVGA", "kVGA", "a plain word"},
      {"", "", "an empty word is no JSON"},
      {"0x10", "0x10", "JSON knows no such number"},
      {"[1, [2.5, \"a\"]]", OXValue::array(1, OXValue::array(2.5f, "a")), "arrays nest"},
      {"[1, 2", "[1, 2", "what is no JSON is a word"},
      {"[]", OXValue(OXValue::Array()), "an empty array"},
  };
  for (const auto& row : rows) EXPECT_TRUE(parseArgument(row.word) == row.expected) << row.why;
}

TEST(Values, ArgumentsThatTheWireCannotCarryAreRefused) {
  for (const std::string& word :
       {std::string("2147483648"), std::string("-2147483649"), std::string("18446744073709551615"),
        std::string("{\"a\": 1}"), std::string("[[{}]]"),
        std::string(40, '[') + std::string(40, ']')})
    EXPECT_THROW(parseArgument(word), OXUsageError) << word;
}

TEST(Values, ResultsAreOneLineOfJson) {
  OXValue binary;
  binary.SetBinary("abc", 3);
  const struct {
    OXValue value;
    const char* expected;
    const char* why;
  } rows[] = {
      {OXValue(), "null", "invalid"},
      {OXValue::array(true, 1, "a\nb"), "[true,1,\"a\\nb\"]", "line ends stay inside"},
      {0.1f, "0.1", "no digits that a float hasn't"},
      {1.0623667f, "1.0623667", "and all that it has"},
      {std::numeric_limits<float>::quiet_NaN(), "\"nan\"", "JSON has no number for it"},
      {OXValue::array(binary), "[{\"binary\":3}]", "a binary by its size"},
      {"\xff", "\"\xef\xbf\xbd\"", "what is no UTF-8"},
  };
  for (const auto& row : rows) EXPECT_EQ(toJson(row.value), row.expected) << row.why;
}

TEST(Values, BinariesAreFoundInOrderAtAnyDepth) {
  OXValue first, second;
  first.SetBinary("1", 1);
  second.SetBinary("22", 2);
  const auto found = binariesIn(OXValue::array(3, OXValue::array(first, "x"), second));
  ASSERT_EQ(found.size(), 2u);
  EXPECT_TRUE(found[0] == first);
  EXPECT_TRUE(found[1] == second);
}

}  // namespace
}  // namespace OX::test
