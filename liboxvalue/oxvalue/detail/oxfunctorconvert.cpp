#include "oxvalue/detail/oxfunctorconvert.h"

#include <oxframework/oxerror.h>

namespace OX::detail {
namespace {

[[noreturn]] void wrongKind(const OXValue& pValue, const char* pWanted) {
  throw OXError("convertFromOXValue", "convertFromOXValue",
                "Parameter type is " + OXValue::TypeToString(pValue.getType()) + pWanted,
                "liboxvalue/oxvalue/detail/oxfunctorconvert", __LINE__);
}

}  // namespace

std::string converter<std::string>::convertFromOXValue(const OXValue& pValue) {
  if (!pValue.isString()) wrongKind(pValue, " instead of string");
  return pValue.toString();
}

int converter<int>::convertFromOXValue(const OXValue& pValue) {
  if (!pValue.isInt()) wrongKind(pValue, " instead of int");
  return pValue.toInt();
}

bool converter<bool>::convertFromOXValue(const OXValue& pValue) {
  if (!pValue.isBool() && !pValue.isInt()) wrongKind(pValue, " instead of bool");
  return pValue.toBool();
}

float converter<float>::convertFromOXValue(const OXValue& pValue) {
  if (!pValue.isFloat() && !pValue.isInt()) wrongKind(pValue, " instead of float");
  return pValue.toFloat();
}

std::vector<float> converter<std::vector<float>>::convertFromOXValue(const OXValue& pValue) {
  if (!pValue.isArray()) wrongKind(pValue, " instead of vector");
  return pValue.toFloatVector();
}

}  // namespace OX::detail
