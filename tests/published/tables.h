/// The two tables of this folder: what is published (publications.json), and what calls return and
/// throw (calls.json). docs/reference.md shows the failures of the latter.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include <oxframework/oxvalue.h>

namespace OX::test {

using Json = nlohmann::ordered_json;

/// A file of this folder. Throws when it can't be read.
Json table(const std::string& pName);

/// The value of a table's entry: {"frame": [W, H]} is a binary of W * H * 3 bytes, {"file": "NAME"}
/// a path in pFolder, {"float": "nan"} the number that JSON has no literal for.
OXValue valueOf(const Json& pJson, const std::string& pFolder = "");

/// "setResolution(string, int)".
std::string signatureOf(const Json& pPublication);

}  // namespace OX::test
