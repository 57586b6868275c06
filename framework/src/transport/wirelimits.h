/// What breaks the protocol, and the bounds derived from OXWireLimits.
#pragma once

#include <algorithm>
#include <cstddef>
#include <stdexcept>
#include <string>

#include <oxframework/oxserver.h>

namespace OX::wire {

/// Bytes came that no reader of the protocol can go on from: the connection must end.
/// what() says which rule or limit, how much came and what is allowed.
class WireViolation : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A value in memory is some forty times the byte that it may take on the wire, so the elements of
/// all arrays of a message are bounded too: one for this many bytes of the largest message.
constexpr std::size_t kBytesPerElement = 64;

inline std::size_t maxElementsOfMessage(const OXWireLimits& pLimits) {
  return std::max(static_cast<std::size_t>(pLimits.maxMessageBytes) / kBytesPerElement,
                  static_cast<std::size_t>(pLimits.maxArrayElements));
}

/// "array of 5000 elements (limit 4096)"
inline std::string overLimit(const std::string& pWhat, std::size_t pLimit) {
  return pWhat + " (limit " + std::to_string(pLimit) + ")";
}

}  // namespace OX::wire
