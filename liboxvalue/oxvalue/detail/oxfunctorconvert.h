/// Conversions from OXValue to the type of a method's parameter. Thread-safe.
#pragma once

#include <string>
#include <vector>

#include <oxframework/oxapi.h>
#include <oxframework/oxvalue.h>

namespace OX::detail {

/// convertFromOXValue() accepts the kinds named at each specialisation and throws OXError on every
/// other: "Parameter type is ", the kind, " instead of " and the type.
template <typename T>
struct converter;

/// Accepts string.
template <>
struct OX_API converter<std::string> {
  static std::string convertFromOXValue(const OXValue& pValue);
};

/// Accepts int, but not bool.
template <>
struct OX_API converter<int> {
  static int convertFromOXValue(const OXValue& pValue);
};

/// Accepts bool and int.
template <>
struct OX_API converter<bool> {
  static bool convertFromOXValue(const OXValue& pValue);
};

/// Accepts float and int.
template <>
struct OX_API converter<float> {
  static float convertFromOXValue(const OXValue& pValue);
};

/// Accepts array; an element that is not a number throws the error of OXValue.
template <>
struct OX_API converter<std::vector<float>> {
  static std::vector<float> convertFromOXValue(const OXValue& pValue);
};

}  // namespace OX::detail
