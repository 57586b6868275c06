// Binding of member functions: which kinds each parameter accepts, results, errors, descriptions.
#include <oxvalue/detail/oxfunctor.h>

#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

#include <oxframework/oximage.h>
#include "support/outcome.h"

namespace OX::test {
namespace {

class Camera {
 public:
  virtual ~Camera() = default;
  bool takeBool(bool pValue) { return pValue; }
  int takeInt(int pValue) { return pValue; }
  float takeFloat(float pValue) const { return pValue; }
  std::string takeString(std::string pValue) { return pValue; }
  OXValue takeValue(const OXValue& pValue) const { return pValue; }
  std::vector<float> takeList(const std::vector<float>& pValue) { return pValue; }
  virtual std::string name(const std::string&, int) { return "camera"; }
  OXValue five(int p1, int p2, int p3, int p4, int p5) {
    return OXValue::array(p1, p2, p3, p4, p5);
  }
  OXImage* image() { return &fImage; }
  void nothing(int pValue) { fLast = pValue; }
  void tooLong() { throw std::length_error("too long"); }
  void odd() { throw 42; }

  int fLast = 0;
  OXImage fImage{0, 0, 9, true, 0, 0, 0, 0};
};

class SpecialCamera : public Camera {
 public:
  std::string name(const std::string& pWho, int pNumber) override {
    return "special " + pWho + std::to_string(pNumber);
  }
};

template <typename Method>
OXValue callOn(Camera& pCamera, Method pMethod, const OXValue& pArguments) {
  OXValue result("untouched");
  createFunctor(&pCamera, pMethod)->call(pArguments, result);
  return result;
}

template <typename Method>
OXMethodInfo described(Method pMethod, int pDescribedParameters) {
  OXMethodInfo info;
  info.name = "method";
  for (int i = 0; i < pDescribedParameters; ++i)
    info.parameters.push_back({"given", "a text", "nonsense", 0});
  completeAndCheck(pMethod, info);
  return info;
}

TEST(Functor, ConvertsAsDocumentedAndAsSelectionExpects) {
  OXValue binary;
  binary.SetBinary("x", 1);
  const std::vector<OXValue> kinds{OXValue(), true, 1, 2.5f, "t", OXValue::array(1, 2), binary};
  const std::string no = "no";  // refused, with the message that is checked below
  struct Row {
    const char* wanted;
    std::vector<std::string> expected;  // invalid, bool, int, float, string, array, binary
  };
  const auto check = [&](auto pMethod, const Row& pRow) {
    const std::vector<OXMethodInfo> published{described(pMethod, 0)};
    for (std::size_t i = 0; i < kinds.size(); ++i) {
      Camera camera;
      const OXValue arguments = OXValue::array(kinds[i]);
      const std::string refusal = "OXError: Parameter type is " +
                                  OXValue::TypeToString(kinds[i].getType()) + " instead of " +
                                  pRow.wanted;
      const bool refused = pRow.expected[i] == no;
      EXPECT_EQ(outcome([&] { return callOn(camera, pMethod, arguments); }),
                refused ? refusal : pRow.expected[i]);
      EXPECT_EQ(outcome([&] {
                  return selectMethod("M", published, "method", arguments).arity;
                }).substr(0, 1),
                refused ? "O" : "1")
          << pRow.wanted << " of " << show(kinds[i]);
    }
  };
  check(&Camera::takeBool, {"bool", {no, "true", "true", no, no, no, no}});
  check(&Camera::takeInt, {"int", {no, no, "1", no, no, no, no}});
  check(&Camera::takeFloat, {"float", {no, no, "1f", "2.5f", no, no, no}});
  check(&Camera::takeString, {"string", {no, no, no, no, "\"t\"", no, no}});
  check(&Camera::takeList, {"vector", {no, no, no, no, no, "[1f, 2f]", no}});
  check(&Camera::takeValue, {"", {"invalid", "true", "1", "2.5f", "\"t\"", "[1, 2]", "<1 bytes>"}});
}

TEST(Functor, ARefusalNamesItsFile) {
  Camera camera;
  try {
    callOn(camera, &Camera::takeInt, OXValue::array("x"));
    FAIL() << "a string was taken for an int";
  } catch (const OXError& error) {
    EXPECT_EQ(error.getModuleName(), "convertFromOXValue");
    EXPECT_EQ(error.getFunctionName(), "convertFromOXValue");
    EXPECT_EQ(error.getFileName(), "liboxvalue/oxvalue/detail/oxfunctorconvert");
  }
}

TEST(Functor, CallsAndReturnsResults) {
  SpecialCamera camera;
  EXPECT_EQ(outcome([&] { return callOn(camera, &Camera::name, OXValue::array("a", 3)); }),
            "\"special a3\"")
      << "the override of the object's class runs";
  EXPECT_EQ(outcome([&] { return callOn(camera, &Camera::five, OXValue::array(1, 2, 3, 4, 5)); }),
            "[1, 2, 3, 4, 5]");
  EXPECT_EQ(outcome([&] { return callOn(camera, &Camera::image, OXValue::array()); }), "invalid")
      << "the pointer isn't carried";
  EXPECT_EQ(outcome([&] { return callOn(camera, &Camera::nothing, OXValue::array(3)); }),
            "\"untouched\"")
      << "void leaves the result alone";
  EXPECT_EQ(camera.fLast, 3);
}

TEST(Functor, ThrowsNothingButOXError) {
  Camera camera;
  EXPECT_EQ(outcome([&] { return callOn(camera, &Camera::name, OXValue::array("a")); }),
            "OXError: Index 1 is outside an array of 1 elements");
  EXPECT_EQ(outcome([&] { return callOn(camera, &Camera::nothing, OXValue()); }),
            "OXError: Value is invalid instead of array");
  EXPECT_EQ(outcome([&] {
              return callOn(camera, &Camera::takeList, OXValue::array(OXValue::array("x")));
            }),
            "OXError: Value is string instead of float");
  EXPECT_EQ(outcome([&] { return callOn(camera, &Camera::tooLong, OXValue::array()); }),
            "OXError: The method failed: too long");
  EXPECT_EQ(outcome([&] { return callOn(camera, &Camera::odd, OXValue::array()); }),
            "OXError: The method failed: an exception of an unknown type");
  EXPECT_EQ(camera.fLast, 0);
}

TEST(Functor, CompletesADescription) {
  const auto show = [](const OXMethodInfo& pInfo) {
    std::string text = pInfo.signature() + " |";
    for (const auto& parameter : pInfo.parameters)
      text += " " + parameter.name + "/" + parameter.description + "/" + parameter.type;
    return text;
  };
  EXPECT_EQ(show(described(&Camera::name, 0)),
            "string method(string, int) | arg1//string arg2//int");
  EXPECT_EQ(show(described(&Camera::name, 1)),
            "string method(string, int) | given/a text/string arg2//int");
  EXPECT_EQ(show(described(&Camera::name, 3)),
            "string method(string, int) | given/a text/string given/a text/int "
            "given/a text/nonsense")
      << "what is too much stays";
  EXPECT_EQ(show(described(&Camera::takeList, 1)),
            "vector<float> method(vector<float>) | given/a text/vector<float>");
  EXPECT_EQ(show(described(&Camera::image, 0)), "OXImage* method() |");
  EXPECT_EQ(show(described(&Camera::nothing, 0)), "void method(int) | arg1//int");
}

}  // namespace
}  // namespace OX::test
