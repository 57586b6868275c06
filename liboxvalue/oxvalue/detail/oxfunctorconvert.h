/// From the value that crosses the broker to the type that a method takes.
#pragma once

#include <string>
#include <vector>

#include <oxframework/oxapi.h>
#include <oxframework/oxvalue.h>

namespace OX::detail {

/// convertFromOXValue takes the kinds named here and throws OXError on every other, with
/// "Parameter type is ", the kind, and what was wanted.
template <typename T>
struct converter;

/// string
template <>
struct OX_API converter<std::string> {
  static std::string convertFromOXValue(const OXValue& pValue);
};

/// int; a bool is none
template <>
struct OX_API converter<int> {
  static int convertFromOXValue(const OXValue& pValue);
};

/// bool, int
template <>
struct OX_API converter<bool> {
  static bool convertFromOXValue(const OXValue& pValue);
};

/// float, int
template <>
struct OX_API converter<float> {
  static float convertFromOXValue(const OXValue& pValue);
};

/// array; an element that is no number throws OXValue's own error
template <>
struct OX_API converter<std::vector<float>> {
  static std::vector<float> convertFromOXValue(const OXValue& pValue);
};

}  // namespace OX::detail
