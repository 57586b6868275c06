/// The two services that every broker offers its modules. Made with
/// OXModule::createModule<T>(broker) or, where they take more, by their own create().
#pragma once

#include <map>
#include <string>
#include <vector>

#include "oxapi.h"
#include "oxmodule.h"
#include "oxthreadsafety.h"

namespace OX {

/// "OXMemory": events. raiseEvent calls the subscribed callbacks one after the other on the
/// raiser's thread; one that fails is logged and keeps no other from being called, one whose module
/// or client is gone is forgotten. A callback may raise events itself, 16 deep at most.
/// Thread-safe: no lock is held while callbacks run.
class OX_API OXMemory : public OXModule {
 public:
  explicit OXMemory(boost::shared_ptr<OXBroker> pBroker);
  ~OXMemory() override;

  /// Throws OXError for an empty name and beyond 4096 subscriptions in all.
  void subscribeToEvent(const std::string& pEventName, const std::string& pModuleName,
                        const std::string& pCallbackName);
  void unsubscribeToEvent(const std::string& pEventName, const std::string& pModuleName);
  void raiseEvent(const std::string& pEventName, const OXValue& pValue);
  /// The names that have subscribers.
  OXValue getEventList();
  /// The names of the modules that subscribed to an event.
  OXValue getSubscribers(const std::string& pEventName);

 private:
  struct Subscription {
    std::string module;
    std::string callback;
  };

  void xForget(const std::string& pEventName, const std::string& pModuleName) OX_REQUIRES(fGuard);
  void xNotify(OXBroker& pBroker, const std::string& pEventName, const OXValue& pValue,
               const Subscription& pSubscription);

  detail::Mutex fGuard;
  /// By event; the first subscriber first.
  std::map<std::string, std::vector<Subscription>> fSubscriptions OX_GUARDED_BY(fGuard);
};

/// "OXPreferences": preference files, DIRECTORY/NAME.xml:
///
///   <preferences module="VideoInput">
///     <entry name="source" description="where images come from" value="SimulatorCam"/>
///   </preferences>
///
/// type="int|float|bool|string" on an entry gives its value that kind; string is the default.
class OX_API OXPreferences : public OXModule {
 public:
  OXPreferences(boost::shared_ptr<OXBroker> pBroker, const std::string& pDirectory);
  ~OXPreferences() override;
  /// Makes and registers one that reads from pDirectory.
  static boost::shared_ptr<OXPreferences> create(const boost::shared_ptr<OXBroker>& pBroker,
                                                 const std::string& pDirectory);

  /// See OXPreferencesProxy::readPrefFile. The name may have no slash and may not start with a dot.
  OXValue readPrefFile(const std::string& pFileName, bool pFlag);

 private:
  std::string fDirectory;
};

}  // namespace OX
