// An error names the place where it arose: the line of each raise, not of a helper that raises
// share, and a path that starts at the top of the source tree wherever the build folder is.
#include <oxframework/oxerror.h>

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include <oxframework/oxbroker.h>
#include <oxframework/oxvalue.h>
#include <oxvalue/detail/oxfunctorconvert.h>

namespace OX::test {
namespace {

TEST(OXError, NamesTheFileAndTheLineWhereItArose) {
  const auto errorOf = [](const std::function<void()>& pOperation) {
    try {
      pOperation();
    } catch (const OXError& error) {
      return error;
    }
    return OXError("", "", "nothing was raised", "", 0);
  };
  const auto broker = OXBroker::create();
  const struct {
    std::string file;
    std::function<void()> first;
    std::function<void()> second;
    std::string why;
  } kTests[] = {
      {"framework/src/value/oxvalue.cpp", [] { OXValue().toInt(); }, [] { OXValue().toFloat(); },
       "through one helper"},
      {"framework/src/broker/oxbroker.cpp", [&] { broker->call("None", "f", OXValue()); },
       [&] { broker->notify("None", "f", OXValue()); }, "in one class"},
      {"liboxvalue/oxvalue/detail/oxfunctorconvert",
       [] { detail::converter<int>::convertFromOXValue(OXValue()); },
       [] { detail::converter<bool>::convertFromOXValue(OXValue()); }, "with a fixed file text"},
      {"tests/framework/base/error_test.cpp", [] { raiseError("M", "f", "1"); },
       [] {
         const OXError error("M", "f", "2");
         throw error;
       },
       "outside of the framework"},
  };
  for (const auto& test : kTests) {
    const OXError first = errorOf(test.first);
    const OXError second = errorOf(test.second);
    EXPECT_EQ(first.getFileName(), test.file) << test.why << ": " << first.what();
    EXPECT_EQ(second.getFileName(), test.file) << test.why << ": " << second.what();
    EXPECT_GT(first.getLine(), 0u) << test.why;
    EXPECT_NE(first.getLine(), second.getLine()) << test.why;
    EXPECT_NE(first.toString().find("\n\t" + test.file + ":" + std::to_string(first.getLine())),
              std::string::npos)
        << first.toString();
  }
}

}  // namespace
}  // namespace OX::test
