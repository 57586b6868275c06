/// The two services that a broker offers to its modules. Create them with
/// OXModule::createModule<T>(broker) or, where they need more, their own create().
#pragma once

#include <map>
#include <string>
#include <vector>

#include "oxapi.h"
#include "oxmodule.h"
#include "oxthreadsafety.h"

namespace OX {

/// "OXMemory": events. raiseEvent() calls the subscribed callbacks one after the other, on the
/// caller's thread. A callback that fails is logged and does not keep others from being called; one
/// whose module or client no longer exists is unsubscribed. A callback may raise events itself, at
/// most 16 deep. Thread-safe: no lock is held while callbacks run.
class OX_API OXMemory : public OXModule {
 public:
  explicit OXMemory(boost::shared_ptr<OXBroker> pBroker);
  ~OXMemory() override;

  /// As OXMemoryProxy::subscribeToEvent(). Throws OXError for an empty name, and beyond 4096
  /// subscriptions in total.
  void subscribeToEvent(const std::string& pEventName, const std::string& pModuleName,
                        const std::string& pCallbackName);
  void unsubscribeToEvent(const std::string& pEventName, const std::string& pModuleName);
  /// Throws OXError when the broker has ended or events are nested too deep; never for a callback.
  void raiseEvent(const std::string& pEventName, const OXValue& pValue);
  /// An array of the names of events that have subscribers.
  OXValue getEventList();
  /// An array of the names of the modules that subscribed to an event.
  OXValue getSubscribers(const std::string& pEventName);

 private:
  struct Subscription {
    std::string module;
    std::string callback;
  };

  void xRemoveSubscription(const std::string& pEventName, const std::string& pModuleName)
      OX_REQUIRES(fGuard);
  void xNotify(OXBroker& pBroker, const std::string& pEventName, const OXValue& pValue,
               const Subscription& pSubscription);

  detail::Mutex fGuard;
  /// By event; the first subscriber first.
  std::map<std::string, std::vector<Subscription>> fSubscriptions OX_GUARDED_BY(fGuard);
};

/// "OXPreferences": preference files, DIRECTORY/NAME.xml:
///
///     <preferences module="VideoInput">
///       <entry name="source" description="where images come from" value="SimulatorCam"/>
///     </preferences>
///
/// type="int|float|bool|string" sets the kind of an entry's value; the default is string.
/// Thread-safe: files are read anew with each call.
class OX_API OXPreferences : public OXModule {
 public:
  OXPreferences(boost::shared_ptr<OXBroker> pBroker, const std::string& pDirectory);
  ~OXPreferences() override;
  /// Creates and registers the service for the files of pDirectory.
  static boost::shared_ptr<OXPreferences> create(const boost::shared_ptr<OXBroker>& pBroker,
                                                 const std::string& pDirectory);

  /// As OXPreferencesProxy::readPrefFile(). Throws OXError also for a name that is empty, contains
  /// a slash or starts with a dot, and for a file of more than 1 MiB. A program that knows better
  /// than a file overrides it.
  virtual OXValue readPrefFile(const std::string& pFileName, bool pFlag);

 private:
  std::string fDirectory;
};

}  // namespace OX
