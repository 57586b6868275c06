// The proxies of the two services. A missing service is an error at the first call and not at
// construction: modules make their proxies before all services are registered.
#include <oxframework/oxproxies.h>

#include <oxframework/oxerror.h>

namespace OX {
namespace {

boost::shared_ptr<OXProxy> proxyTo(const boost::shared_ptr<OXBroker>& pBroker,
                                   const char* pService) {
  return pBroker ? pBroker->getProxy(pService) : boost::shared_ptr<OXProxy>();
}

OXProxy& requireProxy(const boost::shared_ptr<OXProxy>& pProxy, const char* pService,
                      const char* pFunction,
                      const OXSourceLocation& pWhere = OXSourceLocation::current()) {
  if (!pProxy)
    raiseError(std::string(pService) + "Proxy", pFunction,
               std::string("This proxy has no service \"") + pService + "\" to call", pWhere);
  return *pProxy;
}

constexpr const char* kMemory = "OXMemory";
constexpr const char* kPreferences = "OXPreferences";

}  // namespace

OXProxy::~OXProxy() = default;

OXMemoryProxy::OXMemoryProxy(const boost::shared_ptr<OXBroker>& pBroker)
    : fProxy(proxyTo(pBroker, kMemory)) {}

OXMemoryProxy::OXMemoryProxy(boost::shared_ptr<OXProxy> pProxy) : fProxy(std::move(pProxy)) {}

void OXMemoryProxy::subscribeToEvent(const std::string& pEventName, const std::string& pModuleName,
                                     const std::string& pCallbackName) {
  requireProxy(fProxy, kMemory, "subscribeToEvent")
      .call("subscribeToEvent", pEventName, pModuleName, pCallbackName);
}

void OXMemoryProxy::unsubscribeToEvent(const std::string& pEventName,
                                       const std::string& pModuleName) {
  requireProxy(fProxy, kMemory, "unsubscribeToEvent")
      .call("unsubscribeToEvent", pEventName, pModuleName);
}

void OXMemoryProxy::raiseEvent(const std::string& pEventName, const OXValue& pValue) {
  requireProxy(fProxy, kMemory, "raiseEvent").call("raiseEvent", pEventName, pValue);
}

OXPreferencesProxy::OXPreferencesProxy(const boost::shared_ptr<OXBroker>& pBroker)
    : fProxy(proxyTo(pBroker, kPreferences)) {}

OXPreferencesProxy::OXPreferencesProxy(boost::shared_ptr<OXProxy> pProxy)
    : fProxy(std::move(pProxy)) {}

OXValue OXPreferencesProxy::readPrefFile(const std::string& pFileName, bool pFlag) {
  return requireProxy(fProxy, kPreferences, "readPrefFile").call("readPrefFile", pFileName, pFlag);
}

}  // namespace OX
