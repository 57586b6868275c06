/// Calls to a module by name, in this process or another, and the proxies of the two services that
/// every module uses.
#pragma once

#include <boost/shared_ptr.hpp>
#include <string>

#include "oxapi.h"
#include "oxbroker.h"
#include "oxvalue.h"

namespace OX {

/// One module as seen by a caller: of this process (OXBroker::getProxy) or of another one
/// (OXRemoteBroker::getProxy). Thread-safe. Calls throw OXError and nothing else. A proxy does not
/// keep its module alive.
class OX_API OXProxy {
 public:
  virtual ~OXProxy();
  virtual const std::string& getModuleName() const = 0;
  /// Calls a method with the elements of pArguments, an array. Returns an invalid value for a void
  /// method.
  virtual OXValue callArray(const std::string& pMethod, const OXValue& pArguments) = 0;

  /// The same with arguments as they are: proxy.call("setResolution", name, 2).
  template <typename... Arguments>
  OXValue call(const std::string& pMethod, Arguments&&... pArguments) {
    return callArray(pMethod, OXValue::array(std::forward<Arguments>(pArguments)...));
  }
};

/// The event service "OXMemory". Thread-safe. The constructor throws OXError when the broker has no
/// such service; with a null broker or proxy, each call throws it.
class OX_API OXMemoryProxy {
 public:
  explicit OXMemoryProxy(const boost::shared_ptr<OXBroker>& pBroker);
  explicit OXMemoryProxy(boost::shared_ptr<OXProxy> pProxy);

  /// From now on, an event of this name calls pModuleName.pCallbackName with the event's name, its
  /// value, and the name of the module that subscribed. A second subscription of a module replaces
  /// the first.
  void subscribeToEvent(const std::string& pEventName, const std::string& pModuleName,
                        const std::string& pCallbackName);
  void unsubscribeToEvent(const std::string& pEventName, const std::string& pModuleName);
  void raiseEvent(const std::string& pEventName, const OXValue& pValue);

 private:
  boost::shared_ptr<OXProxy> fProxy;
};

/// The preference service "OXPreferences". Thread-safe; errors as for OXMemoryProxy.
class OX_API OXPreferencesProxy {
 public:
  explicit OXPreferencesProxy(const boost::shared_ptr<OXBroker>& pBroker);
  explicit OXPreferencesProxy(boost::shared_ptr<OXProxy> pProxy);

  /// The entries of pFileName.xml, an array of arrays [name, description, value].
  /// pFlag has no effect. Throws OXError when the file cannot be read.
  OXValue readPrefFile(const std::string& pFileName, bool pFlag);

 private:
  boost::shared_ptr<OXProxy> fProxy;
};

}  // namespace OX
