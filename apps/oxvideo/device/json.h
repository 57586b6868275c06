/// JSON as this program writes it. Only for sources: the library's header is heavy.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include <oxframework/oxvalue.h>

namespace OX::cli {

/// Keeps the order in which members are added.
using Json = nlohmann::ordered_json;

Json asJson(const OXValue& pValue);

/// One line; bytes that are no UTF-8 become U+FFFD.
std::string dumped(const Json& pJson);

}  // namespace OX::cli
