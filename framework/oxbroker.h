/// The broker: the registry of modules, the dispatch of calls, and the threads that they run on.
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
class OXConnections;
class OXModuleCore;
class OXProxy;
class OXThreadPool;

/// The options of a new broker.
struct OXBrokerOptions {
  std::string name = "broker";
  int maxThreads = 128;  ///< calls that run at once; further ones wait in order
  /// Numbers for the modules of libraries, which document theirs: {"stream.perConnection", 64}.
  std::map<std::string, int> settings{};
};

/// Thread-safe. Created by create(), which also registers the module "OXBroker", through which
/// callers inspect the broker. Ends with shutdown(), which the destructor calls otherwise.
class OX_API OXBroker : public boost::enable_shared_from_this<OXBroker> {
 public:
  /// Throws OXError when maxThreads is less than 1.
  static boost::shared_ptr<OXBroker> create(const OXBrokerOptions& pOptions = {});
  virtual ~OXBroker();
  OXBroker(const OXBroker&) = delete;
  OXBroker& operator=(const OXBroker&) = delete;

  boost::shared_ptr<OXBroker> getThis() { return shared_from_this(); }
  const std::string& getName() const { return fOptions.name; }
  /// A setting of the options; pDefault when it is not among them.
  int getSetting(const std::string& pName, int pDefault) const {
    const auto found = fOptions.settings.find(pName);
    return found == fOptions.settings.end() ? pDefault : found->second;
  }

  /// A proxy to a module of this broker. pFlags is 0.
  /// Throws OXError for an unknown module; an override may also return null.
  virtual boost::shared_ptr<OXProxy> getProxy(const std::string& pName, int pFlags = 0);

  /// The same as a proxy of type T; null when getProxy() returns null.
  template <class T>
  boost::shared_ptr<T> getSpecialisedProxy(const std::string& pName) {
    const boost::shared_ptr<OXProxy> proxy = getProxy(pName, 0);
    return proxy ? boost::shared_ptr<T>(new T(proxy)) : boost::shared_ptr<T>();
  }

  boost::weak_ptr<OXBrokerManager> getBrokerManager() const;
  void setBrokerManager(const boost::weak_ptr<OXBrokerManager>& pManager);

  /// The registry. registerModule() shares ownership of the module; it throws OXError for an empty
  /// name, one that is in use, and after shutdown(). unregisterModule() gives the ownership up;
  /// calls under way keep the module until they end. An unknown name changes nothing.
  void registerModule(const boost::shared_ptr<OXModuleCore>& pModule);
  void unregisterModule(const std::string& pName);
  /// A module of this process, null when there is none. Modules that share pixels without a copy
  /// get a direct pointer this way, by a dynamic_cast to the interface they need.
  boost::shared_ptr<OXModuleCore> getModule(const std::string& pName) const;
  /// Names in the order of registration.
  std::vector<std::string> getModuleList() const;

  /// Calls a method on the caller's own thread. Throws OXError and nothing else.
  OXValue call(const std::string& pModule, const std::string& pMethod, const OXValue& pArguments);

  /// The same of a module that the caller has found already; for the transport.
  OXValue xCall(const boost::shared_ptr<OXModuleCore>& pModule, const std::string& pMethod,
                const OXValue& pArguments);

  /// Runs pTask on a thread of the broker. Tasks start in order; one that waits does not keep
  /// others from starting while fewer than maxThreads run. What a task throws is logged. False when
  /// the task was dropped: the broker is shutting down, or no thread could be started.
  bool post(std::function<void()> pTask);
  /// Runs pTask on the calling thread, which counts as one of the broker's meanwhile. False, and
  /// nothing was run, when it could not start at once: then post() it. For the transport.
  bool xTryRun(const std::function<void()>& pTask);

  /// Calls a method without a result: of a module of this process directly, on this thread; of a
  /// remote endpoint by a notification. Throws OXError when there is neither of that name, and what
  /// the module throws.
  void notify(const std::string& pTarget, const std::string& pMethod, const OXValue& pArguments);
  /// Whether there is a module or a remote endpoint of that name.
  bool canNotify(const std::string& pTarget) const;

  /// A remote client that can be notified under a name; the transport adds and removes endpoints.
  /// All endpoints of a name are notified. An endpoint may still be called shortly after it was
  /// removed, so it must guard what it uses. What it throws is logged. pOwner is only compared.
  using Endpoint = std::function<void(const std::string& pMethod, const OXValue& pArguments)>;
  void addEndpoint(const void* pOwner, const std::string& pName, Endpoint pEndpoint);
  void removeEndpoint(const void* pOwner);

  /// The ids that a module keeps for connections (OXOwnership), each with its owner as describe()
  /// has it. Ids that are nobody's are not among them.
  std::map<std::string, std::string> getOwners(const std::string& pModule) const;
  /// The remote connections, for the transport and the module "OXBroker". Never null.
  const boost::shared_ptr<OXConnections>& xConnections() const { return fConnections; }

  /// Refuses further tasks, waits at most 20 s for the queued ones (those that have not started by
  /// then are dropped), then releases the modules, the last registered first. May be called more
  /// than once, and from a task, for which it does not wait.
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
  const boost::shared_ptr<OXConnections> fConnections;
  mutable detail::Mutex fGuard;  ///< never held during a call
  /// In the order of registration.
  std::vector<boost::shared_ptr<OXModuleCore>> fModules OX_GUARDED_BY(fGuard);
  std::vector<NamedEndpoint> fEndpoints OX_GUARDED_BY(fGuard);
  /// No module is registered any more.
  bool fEnded OX_GUARDED_BY(fGuard) = false;
  boost::weak_ptr<OXBrokerManager> fManager OX_GUARDED_BY(fGuard);
};

/// The brokers of this process. Thread-safe.
class OX_API OXBrokerManager {
 public:
  /// The manager of this process; created on first use.
  static boost::shared_ptr<OXBrokerManager> getInstance();
  /// Replaces the manager of this process; null changes nothing.
  static void setInstance(const boost::shared_ptr<OXBrokerManager>& pManager);
  /// Keeps a weak reference. Adding a broker again changes nothing.
  void addBroker(const boost::shared_ptr<OXBroker>& pBroker);
  std::vector<boost::shared_ptr<OXBroker>> getBrokers() const;

 private:
  mutable detail::Mutex fGuard;
  std::vector<boost::weak_ptr<OXBroker>> fBrokers OX_GUARDED_BY(fGuard);
};

/// Who calls from another process.
struct OXCaller {
  int connection = 0;   ///< unique in the broker, never 0
  std::string address;  ///< "127.0.0.1:51234", or "unix:PATH" with the path of the broker's socket
  int processId = 0;    ///< over a Unix-domain socket; 0 when unknown
  int userId = -1;      ///< over a Unix-domain socket; -1 when unknown
  std::string name;     ///< as given to setClientName(); empty without
};

/// The caller for people: its name, else its address, with process and user where they are known:
/// "unix:PATH (process 7, user 0)".
OX_API std::string describe(const OXCaller& pCaller);

/// The remote caller of the call that runs on this thread. The transport sets it around a remote
/// call; a local call has none, also one that a remote call makes on another thread. Methods use it
/// to learn who calls, those of the module "OXBroker" also to act on the caller's connection.
class OX_API OXCallerContext {
 public:
  virtual ~OXCallerContext();
  virtual void setClientName(const std::string& pName) = 0;
  /// Thread-safe.
  virtual OXCaller getCaller() const = 0;

  /// Null in a local call. Borrowed until the call ends.
  static OXCallerContext* current();

  /// Makes a context current on this thread for a scope.
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
