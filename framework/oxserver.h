/// Serves a broker to other processes: MessagePack-RPC on TCP and Unix-domain sockets
/// (docs/wire.md).
#pragma once

#include <boost/shared_ptr.hpp>
#include <memory>
#include <string>
#include <vector>

#include "oxapi.h"

namespace OX {

class OXBroker;

/// The limits of a server. A client that exceeds one gets an error or loses its connection; other
/// clients notice nothing.
struct OXWireLimits {
  int maxMessageBytes = 16 * 1024 * 1024;
  int maxNesting = 32;  ///< arrays within arrays, the message's own included
  int maxArrayElements = 4096;
  int maxConnections = 256;      ///< further clients are refused
  int maxRequestsUnderWay = 64;  ///< per connection, which is not read from while it has as many
  /// Per connection: calls that are answered later (oxcompletion.h), beside those under way.
  int maxRequestsWaiting = 1024;
  /// A TCP client whose system has not been heard for so many seconds is given up, within twice
  /// that. One that is stopped is heard: its system answers. 0: only when the system gives it up.
  int keepAliveSeconds = 10;
};

/// Listens and serves on a thread of its own; calls run on the broker's threads.
/// Thread-safe except for the destructor.
class OX_API OXServer {
 public:
  /// Throws OXError when a limit leaves no room for a call.
  explicit OXServer(const boost::shared_ptr<OXBroker>& pBroker, const OXWireLimits& pLimits = {});
  /// Closes as close() does.
  ~OXServer();
  OXServer(const OXServer&) = delete;
  OXServer& operator=(const OXServer&) = delete;

  /// Listens on "HOST:PORT" (port 0 chooses one; an IPv6 host is in brackets) or "unix:PATH".
  /// Returns the address in the same form, with the actual port. Calls are served once it returns.
  /// A socket file that no process listens on is replaced; PATH is removed by close().
  /// Throws OXError when the address is malformed or not available.
  std::string listen(const std::string& pAddress);

  /// Closes all connections and ends the thread. The answers of calls under way are dropped. May be
  /// called more than once.
  void close();

 private:
  class Impl;
  std::unique_ptr<Impl> fImpl;
};

}  // namespace OX
