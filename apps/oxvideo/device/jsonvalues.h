/// Values of the broker as JSON text and back.
#pragma once

#include <string>
#include <vector>

#include <oxframework/oxvalue.h>

namespace OX::cli {

/// One argument of a call: JSON (null, true, 3, 0.5, "text", [1, 2]), anything else the word
/// itself. Throws OXUsageError for an object, an integer outside 32 bits, or nesting beyond 32.
OXValue parseArgument(const std::string& pWord);

/// JSON on one line. A binary stands as {"binary": SIZE}, an invalid value as null; a float has as
/// many digits as single precision holds; what JSON has no number for stands as "nan" or "inf".
std::string toJson(const OXValue& pValue);

/// The binaries inside a value, in their order.
std::vector<OXValue> binariesIn(const OXValue& pValue);

}  // namespace OX::cli
