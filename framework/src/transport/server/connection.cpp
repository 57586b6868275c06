// A request is read by a thread of the poller, which then runs the call itself. What must not wait
// for a call, the end of the connection above all, happens on the io thread. The broker is held
// weakly throughout: a connection must not keep it from ending.
#include "connection.h"

#include <algorithm>
#include <boost/make_shared.hpp>
#include <utility>

#include <oxframework/oxlog.h>
#include <oxframework/oxmodule.h>

namespace OX::wire {
namespace {

constexpr char kCategory[] = "ox.transport";

// How long cleaning up after a client waits for that client's calls to end. What they set up for it
// should exist before that.
constexpr std::chrono::seconds kGrace(1);
OXError shutdownError(const OXSourceLocation& pWhere = OXSourceLocation::current()) {
  return OXError("OXServer", "call", "The broker is shutting down", pWhere);
}

/// What a request is offered.
class RequestDeferral final : public OXDeferral {
 public:
  RequestDeferral(DeferredCalls& pCalls, const IncomingMessage& pRequest)
      : fCalls(pCalls), fRequest(pRequest) {}

  OXCompletion defer() override {
    if (fRequest.kind != IncomingMessage::kRequest)
      raiseError("OXServer", "call",
                 "A notification has no answer to wait for: call the method by a request");
    OXCompletion completion = fCalls.defer(fRequest.id);
    fIsDeferred = true;
    return completion;
  }
  bool isDeferred() const { return fIsDeferred; }

 private:
  DeferredCalls& fCalls;
  const IncomingMessage& fRequest;
  bool fIsDeferred = false;
};

boost::shared_ptr<OXConnections> connectionsOf(const ServerCore& pCore) {
  const auto broker = pCore.broker.lock();
  // Nothing is called on a broker that has ended, and so nothing is acquired.
  return broker ? broker->xConnections() : boost::make_shared<OXConnections>();
}

}  // namespace

Connection::Connection(const boost::shared_ptr<ServerCore>& pCore, OXDescriptor pSocket,
                       OXCaller pClient, Handlers pHandlers)
    : MessageStream(pCore->threads.getPoller(), std::move(pSocket), pCore->limits, false),
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
  fDeferred = boost::make_shared<DeferredCalls>(boost::weak_ptr<DeferredCalls::Answers>(xThis()),
                                                xLimits().maxRequestsWaiting);
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

// ---- reading: with the right to it unless told otherwise ----

bool Connection::xMayBegin() const {
  const std::size_t underWay = static_cast<std::size_t>(fUnderWay) + xCountWaiting();
  return underWay < static_cast<std::size_t>(xLimits().maxRequestsUnderWay) && xIsKeepingUp();
}

/// On a thread of the poller, which runs the last of the calls that it has read: usually the only
/// one.
void Connection::onReadable() {
  std::optional<IncomingMessage> last;
  xGuarded([&] {
    while (xTakeMessages(last) && !last && xReceive()) {
    }
  });
  if (last)
    xStart(std::move(*last));
  else
    xPause();
}

/// Begins a call for each complete message and posts all but the last. False when one is held.
bool Connection::xTakeMessages(std::optional<IncomingMessage>& pLast) {
  while (xHasMessage()) {
    if (!xMayTake()) return false;
    IncomingMessage message = xTakeMessage();
    if (message.kind == IncomingMessage::kAnswer)
      throw WireViolation("malformed message: an answer without a request");
    if (!xBeginCall()) return false;
    if (pLast) xPostCall(std::move(*pLast));
    pLast = std::move(message);
  }
  return true;
}

bool Connection::xMayTake() {
  const detail::MutexLock guard(fGuard);
  fHeld = !xMayBegin();
  return !fHeld;
}

/// False when the connection has ended.
bool Connection::xBeginCall() {
  const detail::MutexLock guard(fGuard);
  if (xHasEnded()) return false;
  ++fUnderWay;
  ++fCalls;
  return true;
}

/// Runs a call on this thread, and before that lets others read; or posts it.
void Connection::xStart(IncomingMessage&& pMessage) {
  const auto broker = fCore->broker.lock();
  const auto run = [this, &pMessage] {
    xPause();
    xRun(pMessage);
  };
  if (broker && fCore->threads.ensureWaiting() && broker->xTryRun(run)) return;
  // Before others may read: calls start in their order.
  xPostCall(std::move(pMessage));
  xPause();
}

void Connection::xPostCall(IncomingMessage&& pMessage) {
  bool isPosted = false;
  xGuarded([&] {
    const auto message = boost::make_shared<const IncomingMessage>(std::move(pMessage));
    const auto broker = fCore->broker.lock();
    isPosted = broker && broker->post([self = xThis(), message] { self->xRun(*message); });
    if (!isPosted && message->kind == IncomingMessage::kRequest)
      send(encodeError(message->id, shutdownError()));
  });
  if (!isPosted) xFinished();
}

/// Ends the right to read. False, and the right stays, when a message that was held may be taken.
bool Connection::xTryPause() {
  const detail::MutexLock guard(fGuard);
  if (fHeld && xMayBegin() && !xHasEnded()) return false;
  xStopReading();
  return true;
}

void Connection::xPause() {
  if (xTryPause()) return;
  // This thread has a call to run, which may take long.
  const auto broker = fCore->broker.lock();
  bool isPosted = false;
  xGuarded([&] { isPosted = broker && broker->post([self = xThis()] { self->xReadHeld(); }); });
  if (!isPosted) xReadHeld();
}

void Connection::xReadHeld() {
  do {
    std::optional<IncomingMessage> last;
    xGuarded([&] { xTakeMessages(last); });
    if (last) xPostCall(std::move(*last));
  } while (!xTryPause());
}

/// On any thread, after what may have made room.
void Connection::xProceed() {
  {
    const detail::MutexLock guard(fGuard);
    if (xIsReading() || xHasEnded()) return;
    if (!fHeld) return xArm();
    if (!xMayBegin() || !xTryReading()) return;
  }
  xReadHeld();
}

void Connection::onWritten() noexcept {
  bool isAwaited;
  {
    const detail::MutexLock guard(fGuard);
    if (xIsKeepingUp()) fLosesEvents = false;
    isAwaited = !fReady.empty() && xIsReady();
  }
  if (isAwaited && !xPost(&Connection::xCallReady)) xPostToIo(&Connection::xCallReady);
  xProceed();
}

// ---- calls: on the thread that runs them ----

void Connection::xRun(const IncomingMessage& pMessage) {
  try {
    const OXCallerContext::Scope scope(this);
    if (pMessage.kind == IncomingMessage::kRequest)
      xAnswer(pMessage);
    else
      xNotified(pMessage);
  } catch (const std::exception& error) {  // no memory for the answer: the client must not wait
    ki::log::LogStream(ki::log::kError, kCategory, "", "answer", __LINE__)
        << "Connection of " << getPeer() << " closed: " << error.what();
    end(error.what());
  }
  xFinished();
}

void Connection::xAnswer(const IncomingMessage& pRequest) {
  RequestDeferral deferral(*fDeferred, pRequest);
  try {
    const OXDeferral::Scope offer(&deferral);
    const OXValue result = xCall(pRequest);
    if (!deferral.isDeferred()) send(xEncode(pRequest.id, result));
  } catch (const OXError& error) {
    if (!deferral.isDeferred()) fail(pRequest.id, error);
  } catch (const std::exception& error) {
    if (!deferral.isDeferred())
      fail(pRequest.id, OXError(pRequest.target, pRequest.method, error.what()));
  }
}

/// A result that exceeds a limit is the caller's mistake.
OutgoingMessage Connection::xEncode(std::uint32_t pRequest, const OXValue& pResult) const {
  try {
    return encodeAnswer(pRequest, pResult, xLimits());
  } catch (const OXError& error) {
    return encodeError(pRequest, error);
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

/// After the end, cleaning up counts the calls on the io thread.
void Connection::xFinished() {
  bool isLate;
  {
    const detail::MutexLock guard(fGuard);
    isLate = xHasEnded();
    if (!isLate) --fUnderWay;
  }
  if (isLate) return xPostToIo(&Connection::xLateCallEnded);
  xProceed();
}

/// On the io thread.
void Connection::xLateCallEnded() {
  --fRunning;
  if (fPhase == Phase::kCallsEnd && fRunning == 0) return xCleanUp();
  if (fPhase == Phase::kGivingBack) xGiveBack();  // what the call acquired
}

// ---- answers that come later: on any thread ----

void Connection::answer(std::uint32_t pRequest, OXValue&& pResult, OXDescriptor&& pDescriptor) {
  try {
    OutgoingMessage message = xEncode(pRequest, pResult);
    message.descriptor = std::move(pDescriptor);
    send(std::move(message));
  } catch (const std::exception& error) {  // no memory for it: the client must not wait
    end(error.what());
  }
}

void Connection::fail(std::uint32_t pRequest, const OXError& pError) {
  try {
    send(encodeError(pRequest, pError));
  } catch (const std::exception& error) {
    end(error.what());
  }
}

bool Connection::takesDescriptor() const { return canSendDescriptor(); }

bool Connection::xIsReady() const { return xCountWaiting() == 0 || xHasEnded(); }

void Connection::whenReady(std::function<void()> pReady) {
  {
    const detail::MutexLock guard(fGuard);
    if (!xIsReady()) return fReady.push_back(std::move(pReady));
  }
  pReady();
}

/// On a thread of the broker, since those who are called may work long. One at a time: each may
/// send so much that the next one has to wait again.
void Connection::xCallReady() {
  for (;;) {
    std::function<void()> ready;
    {
      const detail::MutexLock guard(fGuard);
      if (fReady.empty() || !xIsReady()) return;
      ready = std::move(fReady.front());
      fReady.pop_front();
    }
    try {
      ready();
    } catch (const std::exception& error) {  // the others have waited too
      ki::log::LogStream(ki::log::kError, kCategory, "", "whenReady", __LINE__)
          << "A module failed to go on with " << getPeer() << ": " << error.what();
    }
  }
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

/// On any thread, whose caller may have locks: all that follows is the io thread's.
void Connection::onEnd(const std::string& pReason) {
  try {
    ki::log::LogStream(ki::log::kVerbose, kCategory, "", "end", __LINE__)
        << "Connection of " << getPeer() << " has ended: " << pReason;
  } catch (const std::bad_alloc&) {  // what follows must happen all the same
  }
  xPostToIo(&Connection::xEnded);
}

void Connection::xEnded() {
  {
    const auto broker = fCore->broker.lock();
    const detail::MutexLock guard(fNameGuard);
    // Removed before the event of the end, so that its subscribers find the name free.
    fGone = true;
    if (broker) broker->removeEndpoint(this);
  }
  fConnections->end(fNumber);
  fDeferred->cancelAll();
  if (!xPost(&Connection::xCallReady)) xCallReady();
  {
    const detail::MutexLock guard(fGuard);
    fRunning += fUnderWay;  // those that have ended since are counted already
  }
  fPhase = Phase::kCallsEnd;
  fHandlers.ended(xThis());
  if (fRunning == 0) return xCleanUp();
  xAfter(kGrace, &Connection::xCleanUp);
}

void Connection::endIfSilent(std::chrono::seconds pLimit) {
  {
    const detail::MutexLock guard(fGuard);
    if (xHasEnded() || fSilence.look(xSocket()) < pLimit) return;
  }
  end("not heard for " + std::to_string(pLimit.count()) + " s");
}

void Connection::failWaiting() { fDeferred->failAll(shutdownError()); }

bool Connection::isWritten() const {
  const detail::MutexLock guard(fGuard);
  return xIsReady();
}

void Connection::endWithServer() {
  fEndsWithServer = true;
  end("the server is closing");
  // It had ended before.
  if (fPhase == Phase::kWills || fPhase == Phase::kGivingBack) xForget();
}

}  // namespace OX::wire
