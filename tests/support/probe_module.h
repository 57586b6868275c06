/// A module whose calls can be observed and held.
#pragma once

#include <algorithm>
#include <boost/make_shared.hpp>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include <oxframework/oxbroker.h>
#include <oxframework/oxerror.h>
#include <oxframework/oxlog.h>
#include <oxframework/oxmodule.h>
#include <oxvalue/detail/oxfunctor.h>

namespace OX::test {

class ProbeModule : public OXModule {
 public:
  explicit ProbeModule(boost::shared_ptr<OXBroker> pBroker)
      : OXModule(std::move(pBroker), "Probe") {
    xPublish("echo", &ProbeModule::echo);
    xPublish("fail", &ProbeModule::fail);
    xPublish("log", &ProbeModule::log);
    xPublish("make", &ProbeModule::make);
    xPublish("note", &ProbeModule::note);
    xPublish("hold", &ProbeModule::hold);
    xPublish("release", &ProbeModule::releaseOne);
    xPublish("onEvent", &ProbeModule::onEvent);
    xPublish("awaitEvent", &ProbeModule::awaitEvent);
    xPublish("caller", &ProbeModule::caller);
  }

  OXValue echo(const OXValue& pValue) { return pValue; }
  void fail(const std::string& pText) { throw OXError("Probe", "fail()", pText, "file", 7); }

  void log(const std::string& pText) {
    ki::log::log(ki::log::kError, "probe", pText, "", "log", 0);
  }

  /// A binary of pSize bytes.
  OXValue make(int pSize) {
    OXValue value;
    const std::string bytes(static_cast<std::size_t>(pSize), 'm');
    value.SetBinary(bytes.data(), pSize);
    note(pSize);
    return value;
  }

  void note(int pNumber) {
    const std::lock_guard guard(fGuard);
    fNotes.push_back(pNumber);
    fChanged.notify_all();
  }

  /// Waits until release() has been called as often as hold().
  int hold() {
    std::unique_lock guard(fGuard);
    fMostHeld = std::max(fMostHeld, ++fHeld);
    ++fHolds;
    fChanged.notify_all();
    fChanged.wait(guard, [&] { return fReleases > 0; });
    --fReleases;
    --fHeld;
    return 1;
  }

  void onEvent(const std::string& pEvent, const OXValue& pValue, const std::string& pSubscriber) {
    const std::lock_guard guard(fGuard);
    fEvents.push_back(pEvent + " " + (pValue.isString() ? pValue.toString() : "?") + " " +
                      pSubscriber);
    fChanged.notify_all();
  }

  void releaseOne() { release(); }
  /// The first event, waiting for it.
  std::string awaitEvent() { return awaitEvents(1) ? getEvents().front() : "none"; }

  /// [address, process, user, name] of the remote caller; nothing for a local one.
  OXValue caller() {
    const OXCallerContext* const context = OXCallerContext::current();
    if (!context) return {};
    const OXCaller caller = context->getCaller();
    return OXValue::array(caller.address, caller.processId, caller.userId, caller.name);
  }

  void release(int pCalls = 1) {
    const std::lock_guard guard(fGuard);
    fReleases += pCalls;
    fChanged.notify_all();
  }

  bool awaitHolds(int pCount) {
    return xAwait([&] { return fHolds >= pCount; });
  }
  bool awaitNotes(std::size_t pCount) {
    return xAwait([&] { return fNotes.size() >= pCount; });
  }
  bool awaitEvents(std::size_t pCount) {
    return xAwait([&] { return fEvents.size() >= pCount; });
  }

  int getMostHeld() { return xRead(fMostHeld); }
  std::vector<int> getNotes() { return xRead(fNotes); }
  std::vector<std::string> getEvents() { return xRead(fEvents); }

 private:
  template <typename Method>
  void xPublish(const std::string& pName, Method pMethod) {
    functionName(pName, "Probe", pName);
    completeAndCheck(pMethod, getCurrentMethodDescription());
    bindMethod(createFunctor(this, pMethod));
  }

  template <typename Condition>
  bool xAwait(Condition pCondition) {
    std::unique_lock guard(fGuard);
    return fChanged.wait_for(guard, std::chrono::seconds(20), pCondition);
  }

  template <typename T>
  T xRead(const T& pField) {
    const std::lock_guard guard(fGuard);
    return pField;
  }

  std::mutex fGuard;
  std::condition_variable fChanged;
  std::vector<int> fNotes;
  std::vector<std::string> fEvents;
  int fHeld = 0;
  int fMostHeld = 0;
  int fHolds = 0;
  int fReleases = 0;
};

}  // namespace OX::test
