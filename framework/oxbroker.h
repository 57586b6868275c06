/// The broker: the registry of modules, the dispatch of calls, and the threads they run on.
#pragma once

#include <boost/enable_shared_from_this.hpp>
#include <boost/shared_ptr.hpp>
#include <boost/weak_ptr.hpp>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "oxapi.h"
#include "oxerror.h"
#include "oxthreadsafety.h"
#include "oxvalue.h"

namespace OX {

class OXBrokerManager;
class OXCallerContext;
class OXModuleCore;
class OXProxy;
class OXThreadPool;

/// What may be set when a broker is made.
struct OXBrokerOptions {
  std::string name = "broker";
  int maxThreads = 128;  ///< calls that run at once; further ones wait in their order
};

/// Thread-safe. Made by create(), which also makes the module "OXBroker" that speaks for it.
/// End it with shutdown(); the destructor does so otherwise.
class OX_API OXBroker : public boost::enable_shared_from_this<OXBroker> {
 public:
  static boost::shared_ptr<OXBroker> create(const OXBrokerOptions& pOptions = {});
  virtual ~OXBroker();
  OXBroker(const OXBroker&) = delete;
  OXBroker& operator=(const OXBroker&) = delete;

  boost::shared_ptr<OXBroker> getThis() { return shared_from_this(); }
  const std::string& getName() const { return fOptions.name; }

  /// A proxy to a module of this broker. pFlags is 0.
  /// Throws OXError for an unknown module; an override may also give null.
  virtual boost::shared_ptr<OXProxy> getProxy(const std::string& pName, int pFlags = 0);

  /// The same as a proxy of the type T; null when getProxy gives null.
  template <class T>
  boost::shared_ptr<T> getSpecialisedProxy(const std::string& pName) {
    const boost::shared_ptr<OXProxy> proxy = getProxy(pName, 0);
    return proxy ? boost::shared_ptr<T>(new T(proxy)) : boost::shared_ptr<T>();
  }

  boost::weak_ptr<OXBrokerManager> getBrokerManager() const;
  void setBrokerManager(const boost::weak_ptr<OXBrokerManager>& pManager);

  /// The registry. Registering keeps the module alive; throws OXError for a name that is empty or
  /// taken, and after shutdown(). Unregistering lets it go as soon as the calls that are inside it
  /// have ended; a name that isn't there changes nothing.
  void registerModule(const boost::shared_ptr<OXModuleCore>& pModule);
  void unregisterModule(const std::string& pName);
  /// A module of this process, null when there is none: the way to a direct pointer for modules
  /// that share pixels without a copy (dynamic_cast to the interface wanted).
  boost::shared_ptr<OXModuleCore> getModule(const std::string& pName) const;
  /// Names in the order of registration.
  std::vector<std::string> getModuleList() const;

  /// Calls on the caller's own thread. Throws OXError and nothing else.
  OXValue call(const std::string& pModule, const std::string& pMethod, const OXValue& pArguments);

  /// Runs pTask on a thread of the broker. Tasks start in their order; one that waits never keeps
  /// another from starting as long as fewer than maxThreads run.
  /// False when the broker is shutting down: pTask is dropped.
  bool post(std::function<void()> pTask);

  /// Calls a module's method for its effect: a module of this process directly, on this thread, a
  /// remote endpoint of that name by a notification. Throws OXError when there is neither.
  void notify(const std::string& pTarget, const std::string& pMethod, const OXValue& pArguments);
  /// Whether there is a module or a remote endpoint of that name.
  bool canNotify(const std::string& pTarget) const;

  /// A remote client that can be notified under a name, which the transport adds and takes away.
  /// Of several of one name all are notified. An endpoint may still be called for a moment after it
  /// was taken away: it must guard what it uses. What it throws is logged.
  using Endpoint = std::function<void(const std::string& pMethod, const OXValue& pArguments)>;
  void addEndpoint(const void* pOwner, const std::string& pName, Endpoint pEndpoint);
  void removeEndpoint(const void* pOwner);

  /// Refuses further tasks, waits for those that it has (20 s at most; what has not started by then
  /// is dropped), then lets the modules go, the last registered first. May be called again, and
  /// from a task, which it doesn't wait for.
  void shutdown();

 protected:
  explicit OXBroker(const OXBrokerOptions& pOptions);

 private:
  struct NamedEndpoint {
    const void* owner;
    std::string name;
    Endpoint endpoint;
  };

  OXBrokerOptions fOptions;
  std::unique_ptr<OXThreadPool> fThreads;
  mutable detail::Mutex fGuard;  ///< never held during a call
  /// In the order of registration.
  std::vector<boost::shared_ptr<OXModuleCore>> fModules OX_GUARDED_BY(fGuard);
  std::vector<NamedEndpoint> fEndpoints OX_GUARDED_BY(fGuard);
  /// No module is registered any more.
  bool fEnded OX_GUARDED_BY(fGuard) = false;
  boost::weak_ptr<OXBrokerManager> fManager OX_GUARDED_BY(fGuard);
};

/// The brokers of this process.
class OX_API OXBrokerManager {
 public:
  /// The process's manager; made on first use.
  static boost::shared_ptr<OXBrokerManager> getInstance();
  /// Null leaves the present one in force.
  static void setInstance(const boost::shared_ptr<OXBrokerManager>& pManager);
  /// Keeps a weak reference; adding a broker twice counts once.
  void addBroker(const boost::shared_ptr<OXBroker>& pBroker);
  std::vector<boost::shared_ptr<OXBroker>> getBrokers() const;

 private:
  mutable detail::Mutex fGuard;
  std::vector<boost::weak_ptr<OXBroker>> fBrokers OX_GUARDED_BY(fGuard);
};

/// Who makes the call that runs on this thread: set by the transport around a remote call, absent
/// in a local one. The broker's own methods that concern a connection work through it.
class OX_API OXCallerContext {
 public:
  virtual ~OXCallerContext();
  virtual void setClientName(const std::string& pName) = 0;

  static OXCallerContext* current();

  /// Makes a context current for a scope.
  class OX_API Scope {
   public:
    explicit Scope(OXCallerContext* pContext);
    ~Scope();
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

   private:
    OXCallerContext* fPrevious;
  };
};

}  // namespace OX
