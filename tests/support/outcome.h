/// Results of calls as text, so that results and refusals fit into one table.
#pragma once

#include <sstream>
#include <string>

#include <oxframework/oxerror.h>
#include <oxframework/oxvalue.h>

namespace OX::test {

/// A value as a person writes it: [true, 3, 2.5, "text", <4 bytes>, invalid].
inline std::string show(const OXValue& pValue) {
  std::ostringstream text;
  if (pValue.isBool()) text << (pValue.toBool() ? "true" : "false");
  if (pValue.isInt()) text << pValue.toInt();
  if (pValue.isFloat()) text << pValue.toFloat() << "f";
  if (pValue.isString()) text << '"' << pValue.toString() << '"';
  if (pValue.isBinary()) text << "<" << pValue.getSize() << " bytes>";
  if (!pValue.isValid()) text << "invalid";
  if (pValue.isArray()) {
    text << "[";
    for (int i = 0; i < pValue.getSize(); ++i) text << (i ? ", " : "") << show(pValue[i]);
    text << "]";
  }
  return text.str();
}

/// The result of pCall, or "OXError: " and the description of the error that it throws.
template <typename Call>
std::string outcome(Call pCall) {
  try {
    return show(OXValue(pCall()));
  } catch (const OXError& error) {
    return "OXError: " + error.getDescription();
  }
}

}  // namespace OX::test
