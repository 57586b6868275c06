/// Messages of the wire to and from MessagePack (docs/wire.md).
#pragma once

#include <boost/shared_ptr.hpp>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include <oxframework/oxdescriptor.h>
#include <oxframework/oxerror.h>
#include <oxframework/oxvalue.h>
#include "outgoingmessage.h"
#include "wirelimits.h"

namespace OX::wire {

/// A received message.
struct IncomingMessage {
  enum Kind { kRequest = 0, kAnswer = 1, kNotification = 2 };
  Kind kind = kRequest;
  std::uint32_t id = 0;          ///< of a request or an answer
  std::string target;            ///< the module of a request or a notification
  std::string method;            ///< its method
  OXValue value;                 ///< the array of arguments, or the result of an answer
  std::optional<OXError> error;  ///< of an answer
  /// Why the value cannot be used: an integer outside 32 bits, a map. Empty when it can.
  std::string problem;
  OXDescriptor descriptor;  ///< that came with an answer
  std::size_t size = 0;     ///< bytes on the wire
};

/// Decodes one complete message that the scanner has accepted. Large binaries are not copied: they
/// refer to the bytes at pData, which pOwner keeps alive.
/// Throws WireViolation when it is not a message of the protocol.
IncomingMessage decode(const boost::shared_ptr<const void>& pOwner, const unsigned char* pData,
                       std::size_t pSize);

/// These throw OXError when the message would exceed a limit: the receiver would have to refuse it.
OutgoingMessage encodeRequest(std::uint32_t pId, const std::string& pTarget,
                              const std::string& pMethod, const OXValue& pArguments,
                              const OXWireLimits& pLimits);
OutgoingMessage encodeNotification(const std::string& pTarget, const std::string& pMethod,
                                   const OXValue& pArguments, const OXWireLimits& pLimits);
OutgoingMessage encodeAnswer(std::uint32_t pId, const OXValue& pResult,
                             const OXWireLimits& pLimits);
OutgoingMessage encodeError(std::uint32_t pId, const OXError& pError);

}  // namespace OX::wire
