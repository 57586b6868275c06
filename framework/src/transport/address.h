/// Addresses as programs read and print them: "HOST:PORT", "[IPv6]:PORT" or "unix:PATH".
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
  /// The host to hand to a resolver: the loopback address for "localhost", which a system without a
  /// hosts file may not resolve.
  std::string resolvableHost() const;
};

/// Throws OXError of pModule and pFunction that says what is wrong with the text.
Address parseAddress(const std::string& pText, const std::string& pModule,
                     const std::string& pFunction);

}  // namespace OX::wire
