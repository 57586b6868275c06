// The registry of modules and of remote endpoints, and the dispatch of calls.
//
// No lock is held while a module runs, and none while a module or an endpoint is destroyed: both
// may call the broker. Functions therefore move what leaves the registry into a local that is
// declared before the lock, and so is destroyed after it.
#include <oxframework/oxbroker.h>

#include <algorithm>
#include <boost/make_shared.hpp>
#include <chrono>
#include <exception>

#include <oxframework/oxcompletion.h>
#include <oxframework/oxlog.h>
#include <oxframework/oxmodule.h>
#include <oxframework/oxproxies.h>
#include "connections.h"
#include "services/brokermodule.h"
#include "threadpool.h"

namespace OX {
namespace {

constexpr std::chrono::seconds kShutdownLimit(20);

void report(int pLevel, const char* pFunction, const std::string& pText) {
  ki::log::log(pLevel, "framework.broker", pText, "", pFunction, 0);
}

struct ProcessManager {
  detail::Mutex guard;
  boost::shared_ptr<OXBrokerManager> instance OX_GUARDED_BY(guard) =
      boost::make_shared<OXBrokerManager>();
};

ProcessManager& processManager() {
  static ProcessManager manager;
  return manager;
}

// Per thread, since a call runs on one thread from start to end.
thread_local OXCallerContext* tCaller = nullptr;

/// Looks the module up for each call. Keeps neither broker nor module alive, so that modules may
/// hold proxies to each other.
class LocalProxy : public OXProxy {
 public:
  LocalProxy(boost::weak_ptr<OXBroker> pBroker, const std::string& pName)
      : fBroker(std::move(pBroker)), fName(pName) {}

  const std::string& getModuleName() const override { return fName; }

  OXValue callArray(const std::string& pMethod, const OXValue& pArguments) override {
    const boost::shared_ptr<OXBroker> broker = fBroker.lock();
    if (!broker)
      raiseError("OXBroker", "callArray", "The broker of module \"" + fName + "\" has ended");
    return broker->call(fName, pMethod, pArguments);
  }

 private:
  boost::weak_ptr<OXBroker> fBroker;
  std::string fName;
};

}  // namespace

OXBroker::OXBroker(const OXBrokerOptions& pOptions)
    : fOptions(pOptions),
      fThreads(std::make_unique<OXThreadPool>(pOptions.maxThreads)),
      fConnections(boost::make_shared<OXConnections>()) {}

OXBroker::~OXBroker() { shutdown(); }

boost::shared_ptr<OXBroker> OXBroker::create(const OXBrokerOptions& pOptions) {
  boost::shared_ptr<OXBroker> broker(new OXBroker(pOptions));
  const boost::shared_ptr<OXBrokerManager> manager = OXBrokerManager::getInstance();
  broker->setBrokerManager(manager);
  manager->addBroker(broker);
  OXModule::createModule<OXBrokerModule>(broker);
  return broker;
}

boost::shared_ptr<OXProxy> OXBroker::getProxy(const std::string& pName, int) {
  // A wrong name fails here, where it is written, and not only at the first call.
  if (!getModule(pName)) raiseError("OXBroker", "getProxy", "There is no module \"" + pName + "\"");
  return boost::make_shared<LocalProxy>(weak_from_this(), pName);
}

boost::weak_ptr<OXBrokerManager> OXBroker::getBrokerManager() const {
  const detail::MutexLock hold(fGuard);
  return fManager;
}

void OXBroker::setBrokerManager(const boost::weak_ptr<OXBrokerManager>& pManager) {
  const detail::MutexLock hold(fGuard);
  fManager = pManager;
}

void OXBroker::registerModule(const boost::shared_ptr<OXModuleCore>& pModule) {
  if (!pModule || pModule->getName().empty())
    raiseError("OXBroker", "registerModule", "A module needs a name");
  const detail::MutexLock hold(fGuard);
  if (fEnded)
    raiseError(
        "OXBroker", "registerModule",
        "Module \"" + pModule->getName() + "\" was not registered: the broker is shutting down");
  for (const auto& module : fModules)
    if (module->getName() == pModule->getName())
      raiseError("OXBroker", "registerModule",
                 "There is a module \"" + pModule->getName() + "\" already");
  fModules.push_back(pModule);
}

void OXBroker::unregisterModule(const std::string& pName) {
  boost::shared_ptr<OXModuleCore> leaving;  // may be destroyed here, after the lock
  const detail::MutexLock hold(fGuard);
  const auto found = std::find_if(fModules.begin(), fModules.end(),
                                  [&](const auto& pModule) { return pModule->getName() == pName; });
  if (found == fModules.end()) return;
  leaving = *found;
  fModules.erase(found);
}

boost::shared_ptr<OXModuleCore> OXBroker::getModule(const std::string& pName) const {
  const detail::MutexLock hold(fGuard);
  for (const auto& module : fModules)
    if (module->getName() == pName) return module;
  return {};
}

std::vector<std::string> OXBroker::getModuleList() const {
  const detail::MutexLock hold(fGuard);
  std::vector<std::string> names;
  for (const auto& module : fModules) names.push_back(module->getName());
  return names;
}

OXValue OXBroker::call(const std::string& pModule, const std::string& pMethod,
                       const OXValue& pArguments) {
  const boost::shared_ptr<OXModuleCore> module = getModule(pModule);
  if (!module) raiseError("OXBroker", "call", "There is no module \"" + pModule + "\"");
  return xCall(module, pMethod, pArguments);
}

OXValue OXBroker::xCall(const boost::shared_ptr<OXModuleCore>& pModule, const std::string& pMethod,
                        const OXValue& pArguments) {
  // The call may outlive this broker, so only these are used from here on.
  const boost::shared_ptr<OXModuleCore> module = pModule;
  const boost::shared_ptr<OXConnections> connections = fConnections;
  const OXDeferral::Call call;
  OXValue result;
  try {
    module->execute(pMethod, pArguments, result);
  } catch (const OXError&) {
    throw;
  } catch (const std::exception& error) {
    // A module that overrides execute() may throw anything.
    raiseError(module->getName(), pMethod, std::string("The method failed: ") + error.what());
  }
  const std::vector<std::string>& returning = module->getOwnership().returning;
  if (std::find(returning.begin(), returning.end(), pMethod) != returning.end())
    connections->dropEnded(*module);
  return result;
}

bool OXBroker::post(std::function<void()> pTask) { return fThreads->post(std::move(pTask)); }

bool OXBroker::xTryRun(const std::function<void()>& pTask) { return fThreads->tryRun(pTask); }

void OXBroker::notify(const std::string& pTarget, const std::string& pMethod,
                      const OXValue& pArguments) {
  if (getModule(pTarget)) {
    call(pTarget, pMethod, pArguments);
    return;
  }
  // Copied out of the lock: an endpoint may call the broker.
  std::vector<Endpoint> endpoints;
  {
    const detail::MutexLock hold(fGuard);
    for (const NamedEndpoint& endpoint : fEndpoints)
      if (endpoint.name == pTarget) endpoints.push_back(endpoint.endpoint);
  }
  if (endpoints.empty())
    raiseError("OXBroker", "notify", "There is no module and no client \"" + pTarget + "\"");
  // The failure of one client must not keep others of its name from being notified.
  for (const Endpoint& endpoint : endpoints) {
    try {
      endpoint(pMethod, pArguments);
    } catch (const std::exception& error) {
      report(ki::log::kError, "notify",
             "A client \"" + pTarget + "\" could not be notified: " + error.what());
    }
  }
}

bool OXBroker::canNotify(const std::string& pTarget) const {
  if (getModule(pTarget)) return true;
  const detail::MutexLock hold(fGuard);
  return std::any_of(fEndpoints.begin(), fEndpoints.end(),
                     [&](const NamedEndpoint& pEndpoint) { return pEndpoint.name == pTarget; });
}

void OXBroker::addEndpoint(const void* pOwner, const std::string& pName, Endpoint pEndpoint) {
  const detail::MutexLock hold(fGuard);
  fEndpoints.push_back({pOwner, pName, std::move(pEndpoint)});
}

void OXBroker::removeEndpoint(const void* pOwner) {
  std::vector<NamedEndpoint> leaving;  // what they hold is destroyed here, after the lock
  const detail::MutexLock hold(fGuard);
  const auto first = std::stable_partition(
      fEndpoints.begin(), fEndpoints.end(),
      [pOwner](const NamedEndpoint& pEndpoint) { return pEndpoint.owner != pOwner; });
  leaving.assign(std::make_move_iterator(first), std::make_move_iterator(fEndpoints.end()));
  fEndpoints.erase(first, fEndpoints.end());
}

std::map<std::string, std::string> OXBroker::getOwners(const std::string& pModule) const {
  std::map<std::string, std::string> owners;
  for (const auto& [id, owner] : fConnections->findOwners(pModule))
    owners.emplace(id, describe(owner));
  return owners;
}

void OXBroker::shutdown() {
  if (!fThreads->stop(kShutdownLimit))
    report(ki::log::kWarning, "shutdown",
           "Calls are still running after " + std::to_string(kShutdownLimit.count()) +
               " seconds; they are left to finish on their own");
  for (;;) {
    // One at a time: a module may, as it ends, still call those registered before it.
    boost::shared_ptr<OXModuleCore> leaving;
    const detail::MutexLock hold(fGuard);
    fEnded = true;
    if (fModules.empty()) return;
    leaving = std::move(fModules.back());
    fModules.pop_back();
  }
}

boost::shared_ptr<OXBrokerManager> OXBrokerManager::getInstance() {
  const detail::MutexLock hold(processManager().guard);
  return processManager().instance;
}

void OXBrokerManager::setInstance(const boost::shared_ptr<OXBrokerManager>& pManager) {
  if (!pManager) return;
  const detail::MutexLock hold(processManager().guard);
  processManager().instance = pManager;
}

void OXBrokerManager::addBroker(const boost::shared_ptr<OXBroker>& pBroker) {
  if (!pBroker) return;
  const detail::MutexLock hold(fGuard);
  // Expired entries go too, so that the list does not grow with brokers that have ended.
  std::erase_if(fBrokers, [&](const boost::weak_ptr<OXBroker>& pKnown) {
    const boost::shared_ptr<OXBroker> known = pKnown.lock();
    return !known || known == pBroker;
  });
  fBrokers.push_back(pBroker);
}

std::vector<boost::shared_ptr<OXBroker>> OXBrokerManager::getBrokers() const {
  const detail::MutexLock hold(fGuard);
  std::vector<boost::shared_ptr<OXBroker>> brokers;
  for (const auto& known : fBrokers)
    if (const boost::shared_ptr<OXBroker> broker = known.lock()) brokers.push_back(broker);
  return brokers;
}

std::string describe(const OXCaller& pCaller) {
  return pCaller.name.empty() ? describeAddress(pCaller) : pCaller.name;
}

OXCallerContext::~OXCallerContext() = default;

OXCallerContext* OXCallerContext::current() { return tCaller; }

OXCallerContext::Scope::Scope(OXCallerContext* pContext) : fPrevious(tCaller) {
  tCaller = pContext;
}

OXCallerContext::Scope::~Scope() { tCaller = fPrevious; }

}  // namespace OX
