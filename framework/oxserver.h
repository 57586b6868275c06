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

/// What a connection may do; beyond it an error or the end of that connection, nothing else.
struct OXWireLimits {
  int maxMessageBytes = 16 * 1024 * 1024;
  int maxNesting = 32;
  int maxArrayElements = 4096;
  int maxConnections = 256;
  int maxRequestsUnderWay = 64;  ///< per connection; then it is not read from for a while
};

/// Listens and serves on a thread of its own; calls run on the broker's threads.
/// Thread-safe but for the destructor.
class OX_API OXServer {
 public:
  explicit OXServer(const boost::shared_ptr<OXBroker>& pBroker, const OXWireLimits& pLimits = {});
  /// Closes all connections and ends the thread. Calls under way lose their answer.
  ~OXServer();
  OXServer(const OXServer&) = delete;
  OXServer& operator=(const OXServer&) = delete;

  /// Listens on "HOST:PORT" (port 0 picks one; an IPv6 host stands in brackets) or "unix:PATH" and
  /// gives the address in the same form with the port that it is. Calls are served when it returns.
  /// A socket file that nobody listens on any more is replaced; PATH is removed at the end.
  /// Throws OXError when the address is malformed or can't be had.
  std::string listen(const std::string& pAddress);

  void close();

 private:
  class Impl;
  std::unique_ptr<Impl> fImpl;
};

}  // namespace OX
