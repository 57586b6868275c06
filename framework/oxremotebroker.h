/// The other end of OXServer: a broker of another process, called through a socket.
#pragma once

#include <boost/enable_shared_from_this.hpp>
#include <boost/shared_ptr.hpp>
#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "oxapi.h"
#include "oxserver.h"
#include "oxvalue.h"

namespace OX {

class OXProxy;

/// One connection. Any number of threads may call at once; answers may come in any order.
/// When the connection ends every call under way, and every later one, throws OXError.
class OX_API OXRemoteBroker : public boost::enable_shared_from_this<OXRemoteBroker> {
 public:
  /// Connects to an address as OXServer::listen takes it. Throws OXError that says which address
  /// did not answer and why.
  static boost::shared_ptr<OXRemoteBroker> connect(
      const std::string& pAddress,
      std::chrono::milliseconds pTimeout = std::chrono::milliseconds(5000));
  ~OXRemoteBroker();
  OXRemoteBroker(const OXRemoteBroker&) = delete;
  OXRemoteBroker& operator=(const OXRemoteBroker&) = delete;

  /// pArguments is an array. Throws the OXError that the other side raised, or one of module
  /// "OXRemoteBroker" for a lost connection or no answer within the time limit.
  OXValue call(const std::string& pModule, const std::string& pMethod, const OXValue& pArguments);

  /// How long a call waits for its answer; 30 s at the start.
  void setTimeout(std::chrono::milliseconds pTimeout);

  /// Sends a call that has no answer. Throws OXError when the connection has ended.
  void notify(const std::string& pModule, const std::string& pMethod, const OXValue& pArguments);

  /// Called on the connection's thread for every notification (an event): target, method,
  /// arguments. Must not call this broker.
  using Listener = std::function<void(const std::string& pTarget, const std::string& pMethod,
                                      const OXValue& pArguments)>;
  void setListener(Listener pListener);

  /// A proxy to a module of the other side; it keeps the connection. Doesn't ask whether the
  /// module is there.
  boost::shared_ptr<OXProxy> getProxy(const std::string& pName);

  bool isConnected() const;
  /// Ends the connection. May be called again.
  void close();

 private:
  class Impl;
  explicit OXRemoteBroker(std::unique_ptr<Impl> pImpl);
  std::unique_ptr<Impl> fImpl;
};

}  // namespace OX
