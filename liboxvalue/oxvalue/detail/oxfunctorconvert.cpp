// The kinds that each type of parameter accepts. They must agree with the selection of overloads in
// framework/src/broker/oxmethod.cpp, which promises that a selected method can be called.
#include "oxvalue/detail/oxfunctorconvert.h"

#include <oxframework/oxerror.h>

namespace OX::detail {
namespace {

// Clients know these errors by this text of the file, which has no extension.
constexpr char kFileText[] = "liboxvalue/oxvalue/detail/oxfunctorconvert";

[[noreturn]] void raiseWrongKind(const OXValue& pValue, const char* pWanted,
                                 const OXSourceLocation& pWhere = OXSourceLocation::current()) {
  raiseError("convertFromOXValue", "convertFromOXValue",
             "Parameter type is " + OXValue::TypeToString(pValue.getType()) + pWanted,
             {kFileText, pWhere.fLine});
}

}  // namespace

std::string converter<std::string>::convertFromOXValue(const OXValue& pValue) {
  if (!pValue.isString()) raiseWrongKind(pValue, " instead of string");
  return pValue.toString();
}

int converter<int>::convertFromOXValue(const OXValue& pValue) {
  if (!pValue.isInt()) raiseWrongKind(pValue, " instead of int");
  return pValue.toInt();
}

bool converter<bool>::convertFromOXValue(const OXValue& pValue) {
  if (!pValue.isBool() && !pValue.isInt()) raiseWrongKind(pValue, " instead of bool");
  return pValue.toBool();
}

float converter<float>::convertFromOXValue(const OXValue& pValue) {
  if (!pValue.isFloat() && !pValue.isInt()) raiseWrongKind(pValue, " instead of float");
  return pValue.toFloat();
}

std::vector<float> converter<std::vector<float>>::convertFromOXValue(const OXValue& pValue) {
  if (!pValue.isArray()) raiseWrongKind(pValue, " instead of vector");
  return pValue.toFloatVector();
}

}  // namespace OX::detail
