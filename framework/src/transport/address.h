/// Addresses as programs take and print them: "HOST:PORT", "[IPv6]:PORT" or "unix:PATH".
#pragma once

#include <string>

namespace OX::wire {

struct Address {
  std::string path;  ///< of a Unix-domain socket; empty for TCP
  std::string host;  ///< without brackets
  int port = 0;      ///< 0 to 65535

  bool isUnix() const { return !path.empty(); }
  /// The form that parseAddress takes.
  std::string toString() const;
  /// The host as a resolver is asked for it: "localhost" is the loopback address whatever a system
  /// without a hosts file makes of the name.
  std::string resolvableHost() const;
};

/// Throws OXError in the name of pModule and pFunction, with what is wrong with the text.
Address parseAddress(const std::string& pText, const std::string& pModule,
                     const std::string& pFunction);

}  // namespace OX::wire
