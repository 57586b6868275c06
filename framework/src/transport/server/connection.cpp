// Calls run on the broker's threads, everything else on the io thread, which never waits; what both
// touch is the name, under its lock. The broker is held weakly throughout: a connection must not
// keep it from ending.
#include "connection.h"

#include <algorithm>
#include <boost/asio/post.hpp>
#include <boost/make_shared.hpp>
#include <utility>

#include <oxframework/oxlog.h>
#include <oxframework/oxmodule.h>

namespace OX::wire {
namespace {

constexpr char kCategory[] = "ox.transport";
constexpr char kMemory[] = "OXMemory";

// How long cleaning up after a client waits for that client's calls to end. What they set up for it
// should exist before that.
constexpr std::chrono::seconds kGrace(1);
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

OXError shutdownError(const OXSourceLocation& pWhere = OXSourceLocation::current()) {
  return OXError("OXServer", "call", "The broker is shutting down", pWhere);
}

boost::shared_ptr<OXConnections> connectionsOf(const ServerCore& pCore) {
  const auto broker = pCore.broker.lock();
  // Of a broker that has ended nothing is called, and so nothing is acquired.
  return broker ? broker->xConnections() : boost::make_shared<OXConnections>();
}

}  // namespace

Connection::Connection(const boost::shared_ptr<ServerCore>& pCore, Socket&& pSocket,
                       OXCaller pClient, Handlers pHandlers)
    : MessageStream({pCore, &pCore->io}, std::move(pSocket), pCore->limits),
      fCore(pCore),
      fConnections(connectionsOf(*pCore)),
      fHandlers(std::move(pHandlers)),
      fTimer(pCore->io),
      fClient(std::move(pClient)) {}

Connection::~Connection() = default;

boost::shared_ptr<Connection> Connection::xThis() {
  return boost::static_pointer_cast<Connection>(shared_from_this());
}

void Connection::begin() {
  fNumber = fConnections->add([weak = boost::weak_ptr<Connection>(xThis())] {
    const auto self = weak.lock();
    return self ? self->xState() : OXConnectionState();
  });
  {
    const detail::MutexLock guard(fNameGuard);
    fClient.connection = fNumber;
  }
  start();
}

OXConnectionState Connection::xState() const {
  return {getCaller(), fCalls, xBytesIn(), xBytesOut()};
}

std::string Connection::getPeer() const {
  const detail::MutexLock guard(fNameGuard);
  return fClient.name.empty() ? fClient.address : fClient.address + " \"" + fClient.name + "\"";
}

OXCaller Connection::getCaller() const {
  const detail::MutexLock guard(fNameGuard);
  return fClient;
}

// ---- calls: on the io thread unless told otherwise ----

bool Connection::mayTakeMessage() const {
  const std::size_t underWay = static_cast<std::size_t>(fRunning) + xCountWaiting();
  return underWay < static_cast<std::size_t>(xLimits().maxRequestsUnderWay) && xIsKeepingUp();
}

void Connection::onWritten() {
  if (xIsKeepingUp()) fLosesEvents = false;
  xProceed();
}

void Connection::onMessage(IncomingMessage&& pMessage) {
  if (pMessage.kind == IncomingMessage::kAnswer)
    throw WireViolation("malformed message: an answer without a request");
  const auto message = boost::make_shared<const IncomingMessage>(std::move(pMessage));
  const auto broker = fCore->broker.lock();
  ++fCalls;
  if (broker && broker->post([self = xThis(), message] { self->xRun(*message); })) {
    ++fRunning;  // its end is counted on this thread too, so not before this
    return;
  }
  if (message->kind == IncomingMessage::kRequest) send(encodeError(message->id, shutdownError()));
}

/// On a thread of the broker.
void Connection::xRun(const IncomingMessage& pMessage) {
  try {
    const OXCallerContext::Scope scope(this);
    if (pMessage.kind == IncomingMessage::kRequest)
      send(xAnswer(pMessage));
    else
      xNotified(pMessage);
  } catch (const std::exception& error) {  // no memory for the answer: the client must not wait
    ki::log::LogStream(ki::log::kError, kCategory, "", "answer", __LINE__)
        << "Connection of " << getPeer() << " closed: " << error.what();
    end(error.what());
  }
  xPostToIo(&Connection::xFinished);
}

OutgoingMessage Connection::xAnswer(const IncomingMessage& pRequest) {
  try {
    return encodeAnswer(pRequest.id, xCall(pRequest), xLimits());
  } catch (const OXError& error) {
    return encodeError(pRequest.id, error);
  } catch (const std::exception& error) {
    return encodeError(pRequest.id, OXError(pRequest.target, pRequest.method, error.what()));
  }
}

OXValue Connection::xCall(const IncomingMessage& pMessage) {
  if (pMessage.method.empty())
    raiseError("OXServer", "call",
               "\"" + pMessage.target + "\" does not name a method; expected Module.method");
  if (!pMessage.problem.empty()) raiseError(pMessage.target, pMessage.method, pMessage.problem);
  const auto broker = fCore->broker.lock();
  if (!broker) throw shutdownError();
  return fConnections->call(*broker, fNumber, pMessage.target, pMessage.method, pMessage.value);
}

void Connection::xNotified(const IncomingMessage& pNotification) {
  try {
    xCall(pNotification);
  } catch (const std::exception& error) {
    if (!xIsKnown(pNotification)) return;
    ki::log::LogStream(ki::log::kWarning, kCategory, "", "notification", __LINE__)
        << pNotification.target << "." << pNotification.method << " for " << getPeer()
        << " failed: " << error.what();
  }
}

bool Connection::xIsKnown(const IncomingMessage& pMessage) const {
  const auto broker = fCore->broker.lock();
  const auto module = broker ? broker->getModule(pMessage.target) : nullptr;
  if (!module) return false;
  const auto& methods = module->getMethods();
  return std::any_of(methods.begin(), methods.end(),
                     [&](const OXMethodInfo& pMethod) { return pMethod.name == pMessage.method; });
}

void Connection::xFinished() {
  --fRunning;
  if (fPhase == Phase::kOpen) return xProceed();
  if (fPhase == Phase::kCallsEnd && fRunning == 0) return xCleanUp();
  if (fPhase == Phase::kGivingBack) xGiveBack();  // what the call acquired
}

// ---- the client's name, its events, its end ----

/// On a thread of the broker, within a call of this client.
void Connection::setClientName(const std::string& pName) {
  const auto broker = fCore->broker.lock();
  const detail::MutexLock guard(fNameGuard);
  fClient.name = pName;
  // The call may still run after the client has disconnected.
  if (fGone || !broker) return;
  broker->removeEndpoint(this);
  if (pName.empty()) return;
  broker->addEndpoint(this, pName,
                      [weak = boost::weak_ptr<Connection>(xThis()), pName](
                          const std::string& pMethod, const OXValue& pArguments) {
                        if (const auto self = weak.lock())
                          self->xSendEvent(pName, pMethod, pArguments);
                      });
}

/// On any thread. A client that does not read its events loses those that no longer fit.
void Connection::xSendEvent(const std::string& pName, const std::string& pMethod,
                            const OXValue& pArguments) {
  if (trySend(encodeNotification(pName, pMethod, pArguments, xLimits()))) return;
  if (fLosesEvents.exchange(true)) return;
  ki::log::LogStream(ki::log::kWarning, kCategory, "", "event", __LINE__)
      << getPeer() << " does not read and loses events until it does";
}

void Connection::onEnd(const std::string& pReason) {
  try {
    ki::log::LogStream(ki::log::kVerbose, kCategory, "", "end", __LINE__)
        << "Connection of " << getPeer() << " has ended: " << pReason;
  } catch (const std::bad_alloc&) {  // what follows must happen all the same
  }
  {
    const auto broker = fCore->broker.lock();
    const detail::MutexLock guard(fNameGuard);
    // Removed before the event of the end, so that its subscribers find the name free.
    fGone = true;
    if (broker) broker->removeEndpoint(this);
  }
  fConnections->end(fNumber);
  fPhase = Phase::kCallsEnd;
  fHandlers.ended(xThis());
  if (fRunning == 0) return xCleanUp();
  xAfter(kGrace, &Connection::xCleanUp);
}

void Connection::endIfSilent(std::chrono::seconds pLimit) {
  if (!xHasEnded() && fSilence.look(xSocket()) >= pLimit)
    xEnd("not heard for " + std::to_string(pLimit.count()) + " s");
}

void Connection::endWithServer() {
  fEndsWithServer = true;
  xEnd("the server is closing");
  // It had ended before.
  if (fPhase == Phase::kWills || fPhase == Phase::kGivingBack) xForget();
}

// ---- cleaning up: on the io thread unless told otherwise ----

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
  fPhase = Phase::kWills;
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
  const auto deadline = std::chrono::steady_clock::now() + kWillsLimit;
  const OXCallerContext::Scope scope(this);
  for (const OXLastWill& will : fConnections->takeWills(fNumber)) {
    try {
      const auto broker = fCore->broker.lock();
      if (!broker) break;
      if (std::chrono::steady_clock::now() >= deadline)
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

// Weakly: a handler that remains in a stopped io_context would keep this alive, and this the
// io_context.
void Connection::xPostToIo(void (Connection::*pStep)()) {
  boost::asio::post(xIo(), [weak = weak_from_this(), pStep] {
    if (const auto self = weak.lock()) (static_cast<Connection&>(*self).*pStep)();
  });
}

void Connection::xWillsRan() {
  --fRunning;
  if (fPhase == Phase::kWills) return xBeginGivingBack();
  if (fPhase == Phase::kGivingBack) xGiveBack();  // the time for them had passed
}

void Connection::xBeginGivingBack() {
  fPhase = Phase::kGivingBack;
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
  fHandlers.forgot(xThis());
}

void Connection::xAnnounceEnd() {
  if (std::exchange(fAnnounced, true)) return;
  const std::string name = [this] {
    const detail::MutexLock guard(fNameGuard);
    return fClient.name;
  }();
  const auto broker = fCore->broker.lock();
  if (broker && !name.empty())
    broker->post([weak = fCore->broker, name] {
      if (const auto alive = weak.lock()) raiseClientDisconnected(*alive, name);
    });
}

}  // namespace OX::wire
