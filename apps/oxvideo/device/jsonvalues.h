/// Converts values of the broker to JSON text and back.
#pragma once

#include <string>
#include <vector>

#include <oxframework/oxvalue.h>

namespace OX::cli {

/// One argument of a call: JSON (null, true, 3, 0.5, "text", [1, 2]); a word that is not valid JSON
/// is a string. Throws OXUsageError for an object, an integer outside 32 bits, or nesting
/// beyond 32.
OXValue parseArgument(const std::string& pWord);

/// JSON on one line. A binary becomes {"binary": SIZE}, an invalid value null; floats have the
/// digits of single precision; numbers that JSON lacks become "nan" or "inf".
std::string toJson(const OXValue& pValue);

/// The binaries inside a value, in order, at any depth.
std::vector<OXValue> binariesIn(const OXValue& pValue);

}  // namespace OX::cli
