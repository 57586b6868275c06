/// The module "OXBroker": lists modules and methods, and names connections.
#pragma once

#include <boost/shared_ptr.hpp>
#include <string>

#include <oxframework/oxmodule.h>

namespace OX {

/// Registered by OXBroker::create(). Thread-safe.
class OXBrokerModule : public OXModule {
 public:
  explicit OXBrokerModule(boost::shared_ptr<OXBroker> pBroker);

  /// An array of the names of modules, in the order of registration.
  OXValue getModuleList();
  /// One array per method, in the order of binding: name, class, description, flags, parameters
  /// as [name, description, type], return as [name, description, type], examples as
  /// [language, text]. Throws OXError for an unknown module.
  OXValue getMethodList(const std::string& pModule);
  /// [description, [[language, text], ...]]. Throws OXError for an unknown module.
  OXValue getModuleDescription(const std::string& pModule);
  /// Names the connection of this call. Throws OXError for an empty name, and for a local call,
  /// which has no connection.
  void setClientName(const std::string& pName);
  /// True.
  bool ping();
  // What concerns the connection of the call; a local call, which has none, throws OXError.

  /// With true, what this connection acquires from now on is nobody's (OXOwnership).
  void keepSubscriptions(bool pKeep);
  /// Makes a call when the connection has ended, and returns an id for cancelOnDisconnect().
  /// pArguments is an array. Throws OXError when there is no such method, and beyond 64.
  int onDisconnect(const std::string& pModule, const std::string& pMethod,
                   const OXValue& pArguments);
  /// False when the connection has no last will of that id.
  bool cancelOnDisconnect(int pId);
  /// One array per connection, the oldest first: number, address, name, seconds since its begin,
  /// calls, MiB in, MiB out, [ids that it owns].
  OXValue getConnections();

 private:
  boost::shared_ptr<OXBroker> xBroker(const char* pFunction);
  static int xConnection(const char* pFunction);
  boost::shared_ptr<OXModuleCore> xFind(const std::string& pModule, const char* pFunction);
};

}  // namespace OX
