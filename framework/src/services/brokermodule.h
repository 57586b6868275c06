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

 private:
  boost::shared_ptr<OXModuleCore> xFind(const std::string& pModule, const char* pFunction);
};

}  // namespace OX
