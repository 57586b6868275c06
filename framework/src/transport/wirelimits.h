/// Violations of the protocol, and the bounds derived from OXWireLimits.
#pragma once

#include <algorithm>
#include <cstddef>
#include <stdexcept>
#include <string>

#include <oxframework/oxserver.h>

namespace OX::wire {

/// Received bytes after which the protocol cannot continue: the connection must be closed.
/// what() names the rule or limit, with the size received and the size allowed.
class WireViolation : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A value takes some forty times as much memory as the one byte that it may have on the wire, so
/// the number of elements in all arrays of a message is limited too: one per this many bytes of the
/// largest message.
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
