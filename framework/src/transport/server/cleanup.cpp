// What happens when a connection has ended: its last wills run, what it owns is given back, and its
// end is announced. On the io thread unless told otherwise; what may wait runs on the broker's
// threads.
#include <boost/asio/post.hpp>
#include <new>
#include <thread>
#include <utility>

#include <oxframework/oxlog.h>
#include <oxframework/oxmodule.h>
#include "connection.h"

namespace OX::wire {
namespace {

constexpr char kCategory[] = "ox.transport";
constexpr char kMemory[] = "OXMemory";

// For all last wills of a connection together.
constexpr std::chrono::seconds kWillsLimit(5);
// Before another attempt: to end what a call under way keeps, or to get a thread of the broker, of
// which there may be none for a while.
constexpr std::chrono::milliseconds kPause(50);
// How long the event waits at most until nothing is left to give back.
constexpr std::chrono::seconds kAnnounceLimit(3);

void raiseClientDisconnected(OXBroker& pBroker, const std::string& pName) {
  try {
    if (pBroker.getModule(kMemory))
      pBroker.call(kMemory, "raiseEvent", OXValue::array("ClientDisconnected", pName));
  } catch (const std::exception& error) {
    ki::log::LogStream(ki::log::kWarning, kCategory, "", "raiseClientDisconnected", __LINE__)
        << "Could not announce the end of \"" << pName << "\": " << error.what();
  }
}

}  // namespace

void Connection::xAfter(std::chrono::milliseconds pDelay, void (Connection::*pStep)()) {
  fTimer.expires_after(pDelay);
  // A timer that has just expired can't be cancelled any more, hence the look at the phase.
  fTimer.async_wait(
      [self = xThis(), phase = fPhase, pStep](const boost::system::error_code& pError) {
        if (!pError && self->fPhase == phase) ((*self).*pStep)();
      });
}

void Connection::xCleanUp() {
  if (fEndsWithServer || fCore->broker.expired()) return xForget();
  if (!fConnections->hasWills(fNumber)) return xBeginGivingBack();
  fPhase = Phase::kWills;
  // Before the timer begins: no will is called after what they speak of is given back.
  fWillsEnd = std::chrono::steady_clock::now() + kWillsLimit;
  if (!xPost(&Connection::xRunWills)) return xAfter(kPause, &Connection::xCleanUp);
  ++fRunning;
  xAfter(kWillsLimit, &Connection::xBeginGivingBack);
}

// Without memory for it, it is tried again like without a thread.
bool Connection::xPost(void (Connection::*pTask)()) {
  try {
    const auto broker = fCore->broker.lock();
    return broker && broker->post([self = xThis(), pTask] { ((*self).*pTask)(); });
  } catch (const std::bad_alloc&) {
    return false;
  }
}

/// On a thread of the broker.
void Connection::xRunWills() {
  const OXCallerContext::Scope scope(this);
  for (const OXLastWill& will : fConnections->takeWills(fNumber)) {
    try {
      const auto broker = fCore->broker.lock();
      if (!broker) break;
      if (std::chrono::steady_clock::now() >= fWillsEnd)
        raiseError("OXBroker", "onDisconnect",
                   "not called: the last wills of a connection have " +
                       std::to_string(kWillsLimit.count()) + " s for all together");
      fConnections->call(*broker, fNumber, will.module, will.method, will.arguments);
    } catch (const std::exception& error) {
      xReportWill(will, error.what());
    }
  }
  xPostToIo(&Connection::xWillsRan);
}

void Connection::xReportWill(const OXLastWill& pWill, const char* pProblem) const {
  try {
    ki::log::LogStream(ki::log::kWarning, kCategory, "", "lastWill", __LINE__)
        << "The last will " << pWill.module << "." << pWill.method << " of " << getPeer()
        << " failed: " << pProblem;
  } catch (const std::bad_alloc&) {  // the other wills run all the same
  }
}

// Tried again without memory: the step after it would never come. Weakly: a handler that remains in
// a stopped io_context would keep this alive, and this the io_context.
void Connection::xPostToIo(void (Connection::*pStep)()) {
  for (;;) {
    try {
      boost::asio::post(fCore->io, [weak = weak_from_this(), pStep] {
        if (const auto self = weak.lock()) (static_cast<Connection&>(*self).*pStep)();
      });
      return;
    } catch (const std::bad_alloc&) {
      std::this_thread::sleep_for(kPause);
    }
  }
}

void Connection::xWillsRan() {
  --fRunning;
  if (fPhase == Phase::kWills) return xBeginGivingBack();
  if (fPhase == Phase::kGivingBack) xGiveBack();  // the time for them had passed
}

void Connection::xBeginGivingBack() {
  fPhase = Phase::kGivingBack;
  // Wills that no thread has begun in their time: what they speak of goes now.
  for (const OXLastWill& will : fConnections->takeWills(fNumber))
    xReportWill(will, "not called: the broker was busy for all the time that last wills have");
  fAnnounceBy = std::chrono::steady_clock::now() + kAnnounceLimit;
  xGiveBack();
}

void Connection::xGiveBack() {
  if (std::exchange(fIsGivingBack, true)) {
    fGivesBackAgain = true;
    return;
  }
  if (fCore->broker.expired()) return xForget();
  if (xPost(&Connection::xGiveBackAll)) return;
  fIsGivingBack = false;
  xAfter(kPause, &Connection::xGiveBack);
}

/// On a thread of the broker.
void Connection::xGiveBackAll() {
  bool nothingIsLeft = false;
  try {
    nothingIsLeft = fConnections->giveBack(fNumber);
  } catch (const std::bad_alloc&) {  // tried again
  }
  xPostToIo(nothingIsLeft ? &Connection::xGaveAllBack : &Connection::xGaveSomeBack);
}

void Connection::xGaveAllBack() {
  if (fPhase != Phase::kGivingBack) return;
  fIsGivingBack = false;
  if (std::exchange(fGivesBackAgain, false)) return xGiveBack();
  if (fRunning == 0) return xForget();
  // A call that never ends must not keep others from learning that its client has.
  xAnnounceEnd();
}

void Connection::xGaveSomeBack() {
  if (fPhase != Phase::kGivingBack) return;
  fIsGivingBack = fGivesBackAgain = false;
  if (std::chrono::steady_clock::now() >= fAnnounceBy) xAnnounceEnd();
  xAfter(kPause, &Connection::xGiveBack);
}

void Connection::xForget() {
  xAnnounceEnd();
  fPhase = Phase::kForgotten;
  fTimer.cancel();
  fConnections->forget(fNumber);
  fHandlers.forgotten(xThis());
}

void Connection::xAnnounceEnd() {
  if (fAnnounced) return;
  try {
    const std::string name = [this] {
      const detail::MutexLock guard(fNameGuard);
      return fClient.name;
    }();
    const auto broker = fCore->broker.lock();
    if (broker && !name.empty())
      broker->post([weak = fCore->broker, name] {
        if (const auto alive = weak.lock()) raiseClientDisconnected(*alive, name);
      });
  } catch (const std::bad_alloc&) {  // the connection must be forgotten all the same
  }
  fAnnounced = true;
}

}  // namespace OX::wire
