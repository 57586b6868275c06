/// Calling a module by name, wherever it lives, and the proxies of the two services that every
/// module uses.
#pragma once

#include <boost/shared_ptr.hpp>
#include <string>

#include "oxapi.h"
#include "oxbroker.h"
#include "oxvalue.h"

namespace OX {

/// One module as seen by a caller: of this process (OXBroker::getProxy) or of another one
/// (OXRemoteBroker::getProxy). Thread-safe. Calls throw OXError and nothing else.
class OX_API OXProxy {
 public:
  virtual ~OXProxy();
  virtual const std::string& getModuleName() const = 0;
  /// pArguments is an array.
  virtual OXValue callArray(const std::string& pMethod, const OXValue& pArguments) = 0;

  /// proxy.call("setResolution", name, 2)
  template <typename... Arguments>
  OXValue call(const std::string& pMethod, Arguments&&... pArguments) {
    return callArray(pMethod, OXValue::array(std::forward<Arguments>(pArguments)...));
  }
};

/// The event service "OXMemory".
class OX_API OXMemoryProxy {
 public:
  explicit OXMemoryProxy(const boost::shared_ptr<OXBroker>& pBroker);
  explicit OXMemoryProxy(boost::shared_ptr<OXProxy> pProxy);

  /// From now on an event of this name calls pModuleName.pCallbackName with the event's name, its
  /// value, and the name of the module that subscribed. Subscribing twice counts once; the later
  /// callback is the one called.
  void subscribeToEvent(const std::string& pEventName, const std::string& pModuleName,
                        const std::string& pCallbackName);
  void unsubscribeToEvent(const std::string& pEventName, const std::string& pModuleName);
  void raiseEvent(const std::string& pEventName, const OXValue& pValue);

 private:
  boost::shared_ptr<OXProxy> fProxy;
};

/// The preference service "OXPreferences".
class OX_API OXPreferencesProxy {
 public:
  explicit OXPreferencesProxy(const boost::shared_ptr<OXBroker>& pBroker);
  explicit OXPreferencesProxy(boost::shared_ptr<OXProxy> pProxy);

  /// The entries of pFileName.xml, each an array [name, description, value].
  /// pFlag is accepted and has no effect. Throws OXError when the file can't be read.
  OXValue readPrefFile(const std::string& pFileName, bool pFlag);

 private:
  boost::shared_ptr<OXProxy> fProxy;
};

}  // namespace OX
