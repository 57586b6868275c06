// Ownership by number: each acquiring call has one of its own, which the module stores beside the
// id that it makes. Ids are used again, numbers never are; so the end of a connection, an
// unsubscription by somebody else and a new subscriber of the same id may meet in any order, and
// each ends only what it means.
#include "connections.h"

#include <algorithm>
#include <exception>
#include <utility>

#include <oxframework/oxerror.h>
#include <oxframework/oxlog.h>
#include <oxframework/oxmodule.h>

namespace OX {
namespace {

thread_local std::uint64_t tAcquisition = 0;

class AcquisitionScope {
 public:
  explicit AcquisitionScope(std::uint64_t pNumber) : fPrevious(tAcquisition) {
    tAcquisition = pNumber;
  }
  ~AcquisitionScope() { tAcquisition = fPrevious; }
  AcquisitionScope(const AcquisitionScope&) = delete;
  AcquisitionScope& operator=(const AcquisitionScope&) = delete;

 private:
  std::uint64_t fPrevious;
};

bool contains(const std::vector<std::string>& pNames, const std::string& pName) {
  return std::find(pNames.begin(), pNames.end(), pName) != pNames.end();
}

}  // namespace

std::uint64_t OXConnections::getAcquisition() { return tAcquisition; }

int OXConnections::add(StateReader pState) {
  const detail::MutexLock hold(fGuard);
  Connection connection;
  connection.state = std::move(pState);
  connection.begin = std::chrono::steady_clock::now();
  const int number = fLastConnection + 1;
  fConnections.emplace(number, std::move(connection));
  return fLastConnection = number;
}

void OXConnections::end(int pConnection) {
  const detail::MutexLock hold(fGuard);
  const auto found = fConnections.find(pConnection);
  if (found != fConnections.end()) found->second.ended = true;
}

void OXConnections::forget(int pConnection) {
  std::map<int, Connection>::node_type leaving;  // what it holds is destroyed after the lock
  const detail::MutexLock hold(fGuard);
  leaving = fConnections.extract(pConnection);
}

// ---- acquiring ----

OXValue OXConnections::call(OXBroker& pBroker, int pConnection, const std::string& pModule,
                            const std::string& pMethod, const OXValue& pArguments) {
  const boost::shared_ptr<OXModuleCore> module = pBroker.getModule(pModule);
  if (!module) return pBroker.call(pModule, pMethod, pArguments);  // which says so
  const bool acquires = contains(module->getOwnership().acquiring, pMethod);
  const std::uint64_t number = acquires ? xNextAcquisition(pConnection) : 0;
  // Also without a number: a call within an acquiring one is the module's own.
  const AcquisitionScope scope(number);
  if (number == 0) return pBroker.xCall(module, pMethod, pArguments);
  try {
    OXValue result = pBroker.xCall(module, pMethod, pArguments);
    xKeep(pConnection, module, number);
    return result;
  } catch (...) {
    // One that fails may have made its id all the same.
    xKeep(pConnection, module, number);
    throw;
  }
}

std::uint64_t OXConnections::xNextAcquisition(int pConnection) {
  const detail::MutexLock hold(fGuard);
  const auto found = fConnections.find(pConnection);
  return found != fConnections.end() && found->second.owns ? ++fLastAcquisition : 0;
}

void OXConnections::xKeep(int pConnection, const boost::shared_ptr<OXModuleCore>& pModule,
                          std::uint64_t pNumber) {
  const Acquisition acquisition{pModule, pNumber};
  try {
    if (xFindId(acquisition).empty()) return;
    const detail::MutexLock hold(fGuard);
    const auto found = fConnections.find(pConnection);
    if (found != fConnections.end()) {
      found->second.acquisitions.push_back(acquisition);
      return;
    }
  } catch (const std::bad_alloc&) {  // what could not be noted must not stay
  }
  pModule->getOwnership().end(pNumber);
}

void OXConnections::setOwning(int pConnection, bool pOwns) {
  const detail::MutexLock hold(fGuard);
  const auto found = fConnections.find(pConnection);
  if (found != fConnections.end()) found->second.owns = pOwns;
}

// ---- last wills ----

int OXConnections::addWill(int pConnection, OXLastWill pWill) {
  const detail::MutexLock hold(fGuard);
  const auto found = fConnections.find(pConnection);
  if (found == fConnections.end() || found->second.ended)
    raiseError("OXBroker", "onDisconnect", "The connection has ended");
  std::vector<OXLastWill>& wills = found->second.wills;
  if (wills.size() >= kMaxWills)
    raiseError("OXBroker", "onDisconnect",
               "This connection has " + std::to_string(kMaxWills) +
                   " last wills already, which is the limit: cancel one first");
  pWill.id = fLastWill + 1;
  wills.push_back(std::move(pWill));
  return ++fLastWill;
}

bool OXConnections::cancelWill(int pConnection, int pWill) {
  OXLastWill leaving;  // its arguments are destroyed after the lock
  const detail::MutexLock hold(fGuard);
  const auto connection = fConnections.find(pConnection);
  if (connection == fConnections.end()) return false;
  std::vector<OXLastWill>& wills = connection->second.wills;
  const auto found = std::find_if(wills.begin(), wills.end(),
                                  [&](const OXLastWill& pOne) { return pOne.id == pWill; });
  if (found == wills.end()) return false;
  leaving = std::move(*found);
  wills.erase(found);
  return true;
}

bool OXConnections::hasWills(int pConnection) const {
  const detail::MutexLock hold(fGuard);
  const auto found = fConnections.find(pConnection);
  return found != fConnections.end() && !found->second.wills.empty();
}

std::vector<OXLastWill> OXConnections::takeWills(int pConnection) {
  const detail::MutexLock hold(fGuard);
  const auto found = fConnections.find(pConnection);
  return found == fConnections.end() ? std::vector<OXLastWill>()
                                     : std::exchange(found->second.wills, {});
}

// ---- giving back ----

std::string OXConnections::xFindId(const Acquisition& pAcquisition) {
  const boost::shared_ptr<OXModuleCore> module = pAcquisition.module.lock();
  return module ? module->getOwnership().findId(pAcquisition.number) : std::string();
}

void OXConnections::xDrop(int pConnection, const std::vector<std::uint64_t>& pNumbers) {
  const detail::MutexLock hold(fGuard);
  const auto found = fConnections.find(pConnection);
  if (found == fConnections.end()) return;
  std::erase_if(found->second.acquisitions, [&](const Acquisition& pOne) {
    return std::find(pNumbers.begin(), pNumbers.end(), pOne.number) != pNumbers.end();
  });
}

bool OXConnections::xIsFirstFailure(int pConnection, std::uint64_t pNumber) {
  const detail::MutexLock hold(fGuard);
  const auto found = fConnections.find(pConnection);
  if (found == fConnections.end()) return false;
  for (Acquisition& one : found->second.acquisitions)
    if (one.number == pNumber) return !std::exchange(one.hasFailed, true);
  return false;
}

bool OXConnections::giveBack(int pConnection) {
  std::vector<Acquisition> owned;
  {
    const detail::MutexLock hold(fGuard);
    const auto found = fConnections.find(pConnection);
    if (found == fConnections.end()) return true;
    owned = found->second.acquisitions;
  }
  std::vector<std::uint64_t> ended;
  for (const Acquisition& one : owned) {
    const boost::shared_ptr<OXModuleCore> module = one.module.lock();
    try {
      if (!module || module->getOwnership().end(one.number)) ended.push_back(one.number);
    } catch (const std::exception& error) {
      // It is asked again: the others must not wait for it, nor may it be lost.
      if (!xIsFirstFailure(pConnection, one.number)) continue;
      ki::log::LogStream(ki::log::kWarning, "framework.broker", "", "giveBack", 0)
          << module->getName() << " could not end what a client left: " << error.what();
    }
  }
  xDrop(pConnection, ended);
  return ended.size() == owned.size();
}

// Housekeeping: what fails here is dropped next time, and is no failure of the call before it.
void OXConnections::dropEnded(const OXModuleCore& pModule) try {
  std::vector<std::pair<int, Acquisition>> kept;
  {
    const detail::MutexLock hold(fGuard);
    for (const auto& [number, connection] : fConnections)
      for (const Acquisition& one : connection.acquisitions) kept.emplace_back(number, one);
  }
  for (const auto& [connection, one] : kept)
    if (one.module.lock().get() == &pModule && xFindId(one).empty())
      xDrop(connection, {one.number});
} catch (const std::exception&) {
}

// ---- looking ----

// Not the wills: copying what clients left there would keep the lock for long.
std::vector<OXConnections::Present> OXConnections::xPresent() const {
  const detail::MutexLock hold(fGuard);
  std::vector<Present> present;
  present.reserve(fConnections.size());
  for (const auto& [number, one] : fConnections)
    present.push_back({one.state, one.begin, one.ended, one.acquisitions});
  return present;
}

std::map<std::string, OXCaller> OXConnections::findOwners(const std::string& pModule) const {
  std::map<std::string, OXCaller> owners;
  for (const Present& owner : xPresent()) {
    if (owner.acquisitions.empty()) continue;
    const OXCaller caller = owner.state().caller;
    for (const Acquisition& one : owner.acquisitions) {
      const boost::shared_ptr<OXModuleCore> module = one.module.lock();
      if (!module || module->getName() != pModule) continue;
      std::string id = xFindId(one);
      if (!id.empty()) owners.emplace(std::move(id), caller);
    }
  }
  return owners;
}

std::vector<OXConnections::Listed> OXConnections::list() const {
  const auto now = std::chrono::steady_clock::now();
  std::vector<Listed> listed;
  for (const Present& one : xPresent()) {
    Listed entry{
        one.state(), std::chrono::duration_cast<std::chrono::seconds>(now - one.begin), {}};
    // It has ended, or it does meanwhile.
    if (one.ended || entry.state.caller.connection == 0) continue;
    for (const Acquisition& acquisition : one.acquisitions) {
      std::string id = xFindId(acquisition);
      if (!id.empty()) entry.ids.push_back(std::move(id));
    }
    listed.push_back(std::move(entry));
  }
  return listed;
}

std::string describeAddress(const OXCaller& pCaller) {
  if (pCaller.processId == 0) return pCaller.address;
  return pCaller.address + " (process " + std::to_string(pCaller.processId) + ", user " +
         std::to_string(pCaller.userId) + ")";
}

}  // namespace OX
