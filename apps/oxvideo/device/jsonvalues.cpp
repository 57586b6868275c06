// Limits are checked here rather than on the wire, where the error would not name the word.
#include "device/jsonvalues.h"

#include <fmt/format.h>

#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>

#include "terminal/exitstatus.h"
#include "terminal/json.h"
#include "terminal/text.h"

namespace OX::cli {

namespace {

using Json = nlohmann::json;

constexpr int kDeepest = 32;  // the limit of the broker

OXValue integer(const Json& pJson, const std::string& pWord) {
  // The library keeps large positive numbers unsigned; a signed read would wrap them.
  const bool fits = pJson.is_number_unsigned()
                        ? pJson.get<std::uint64_t>() <= std::numeric_limits<int>::max()
                        : pJson.get<std::int64_t>() >= std::numeric_limits<int>::min() &&
                              pJson.get<std::int64_t>() <= std::numeric_limits<int>::max();
  if (!fits)
    throw OXUsageError(fmt::format("{}: integers are limited to 32 bits", printable(pWord)));
  return {static_cast<int>(pJson.get<std::int64_t>())};
}

OXValue fromJson(const Json& pJson, const std::string& pWord, int pDepth) {
  if (pDepth > kDeepest) throw OXUsageError("arrays can be nested 32 deep at most");
  switch (pJson.type()) {
    case Json::value_t::boolean:
      return {pJson.get<bool>()};
    case Json::value_t::number_integer:
    case Json::value_t::number_unsigned:
      return integer(pJson, pWord);
    case Json::value_t::number_float:
      return {pJson.get<double>()};
    case Json::value_t::string:
      return {pJson.get<std::string>()};
    case Json::value_t::array: {
      OXValue::Array elements;
      for (const Json& element : pJson) elements.push_back(fromJson(element, pWord, pDepth + 1));
      return {std::move(elements)};
    }
    case Json::value_t::object:
      // The wire refuses maps in arguments.
      throw OXUsageError(fmt::format("{}: objects are not supported as arguments; use an array",
                                     printable(pWord)));
    default:
      return {};
  }
}

/// Recursive, which is safe: the transport limits the nesting of what it receives.
void collectBinaries(const OXValue& pValue, std::vector<OXValue>& pResult) {
  if (pValue.isBinary()) pResult.push_back(pValue);
  if (pValue.isArray())
    for (const OXValue& element : pValue.toArray()) collectBinaries(element, pResult);
}

OXJson asJson(const OXValue& pValue) {
  switch (pValue.getType()) {
    case OXValue::TypeBool:
      return pValue.toBool();
    case OXValue::TypeInt:
      return pValue.toInt();
    case OXValue::TypeFloat:
      if (!std::isfinite(pValue.toFloat())) return fmt::format("{}", pValue.toFloat());
      // Via the float's shortest text: 0.1f must print as 0.1, not as 0.10000000149011612.
      return std::stod(fmt::format("{}", pValue.toFloat()));
    case OXValue::TypeString:
      return pValue.toString();
    case OXValue::TypeArray: {
      OXJson array = OXJson::array();
      for (const OXValue& element : pValue.toArray()) array.append(asJson(element));
      return array;
    }
    case OXValue::TypeBinary:
      return {{"binary", pValue.getSize()}};
    default:
      return nullptr;
  }
}

}  // namespace

OXValue parseArgument(const std::string& pWord) {
  // Without exceptions: most words are plain strings and not errors.
  const Json json = Json::parse(pWord, nullptr, false);
  if (json.is_discarded()) return {pWord};
  return fromJson(json, pWord, 0);
}

std::string toJson(const OXValue& pValue) { return asJson(pValue).text(); }

std::vector<OXValue> binariesIn(const OXValue& pValue) {
  std::vector<OXValue> result;
  collectBinaries(pValue, result);
  return result;
}

}  // namespace OX::cli
