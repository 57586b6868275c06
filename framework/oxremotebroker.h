/// The client of OXServer: calls a broker in another process through a socket.
#pragma once

#include <boost/enable_shared_from_this.hpp>
#include <boost/shared_ptr.hpp>
#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "oxapi.h"
#include "oxdescriptor.h"
#include "oxserver.h"
#include "oxvalue.h"

namespace OX {

class OXProxy;

/// One connection. Thread-safe: any number of threads may call at once, and answers may arrive in
/// any order. A thread that calls reads its own answer, and those of others meanwhile. When the
/// connection ends, every call under way and every later one throws OXError.
class OX_API OXRemoteBroker : public boost::enable_shared_from_this<OXRemoteBroker> {
 public:
  /// Connects to an address in the form that OXServer::listen() takes, within pTimeout, which
  /// includes finding the address of a name. Throws OXError that names the address and the reason
  /// of the failure.
  static boost::shared_ptr<OXRemoteBroker> connect(
      const std::string& pAddress,
      std::chrono::milliseconds pTimeout = std::chrono::milliseconds(5000));
  ~OXRemoteBroker();
  OXRemoteBroker(const OXRemoteBroker&) = delete;
  OXRemoteBroker& operator=(const OXRemoteBroker&) = delete;

  /// Calls a method with the elements of pArguments, an array, and waits for the answer. Throws the
  /// OXError that the other side raised, or one of module "OXRemoteBroker" when the connection has
  /// ended or no answer arrives within the time limit.
  OXValue call(const std::string& pModule, const std::string& pMethod, const OXValue& pArguments);
  /// The same for a method that waits: it may take longer than other calls by so much.
  OXValue call(const std::string& pModule, const std::string& pMethod, const OXValue& pArguments,
               std::chrono::milliseconds pLonger);
  /// The same for an answer that may come with a descriptor, as some do over a Unix-domain socket;
  /// pDescriptor has none without. Other calls close it.
  OXValue call(const std::string& pModule, const std::string& pMethod, const OXValue& pArguments,
               OXDescriptor& pDescriptor,
               std::chrono::milliseconds pLonger = std::chrono::milliseconds(0));

  /// How long a call may take, from waiting for room to send it to its answer; 30 s by default.
  void setTimeout(std::chrono::milliseconds pTimeout);

  /// Sends a call without an answer. Throws OXError when the connection has ended.
  void notify(const std::string& pModule, const std::string& pMethod, const OXValue& pArguments);

  /// Called on the connection's thread for every notification (an event) with its target, its
  /// method and its arguments. Must not call this broker, and be brief: later events
  /// and what the system has no room for, as in a large request, wait for it. What it throws is
  /// logged.
  using Listener = std::function<void(const std::string& pTarget, const std::string& pMethod,
                                      const OXValue& pArguments)>;
  /// Replaces the listener; an empty one ignores events.
  void setListener(Listener pListener);

  /// A proxy to a module of the other side, which shares ownership of the connection. Does not
  /// check that the module exists.
  boost::shared_ptr<OXProxy> getProxy(const std::string& pName);

  bool isConnected() const;
  /// Ends the connection. May be called more than once.
  void close();

 private:
  class Impl;
  explicit OXRemoteBroker(std::unique_ptr<Impl> pImpl);
  std::unique_ptr<Impl> fImpl;
};

}  // namespace OX
