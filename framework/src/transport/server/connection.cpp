// Calls run on the broker's threads, everything else on the io thread; what both touch is the name,
// under its lock. The broker is held weakly throughout: a connection must not keep it from ending.
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

// How long the event of a disconnected client waits for that client's calls to end. What they set
// up for it should exist before its subscribers clean up.
constexpr std::chrono::seconds kGrace(1);

void raiseClientDisconnected(OXBroker& pBroker, const std::string& pName) {
  try {
    if (pBroker.getModule(kMemory))
      pBroker.call(kMemory, "raiseEvent", OXValue::array("ClientDisconnected", pName));
  } catch (const std::exception& error) {
    ki::log::LogStream(ki::log::kWarning, kCategory, "", "raiseClientDisconnected", __LINE__)
        << "Could not announce the end of \"" << pName << "\": " << error.what();
  }
}

/// Never the same in one process, and so in one broker.
int nextNumber() {
  static std::atomic<int> last{0};
  return ++last;
}

OXError shutdownError(const OXSourceLocation& pWhere = OXSourceLocation::current()) {
  return OXError("OXServer", "call", "The broker is shutting down", pWhere);
}

}  // namespace

Connection::Connection(const boost::shared_ptr<ServerCore>& pCore, Socket&& pSocket,
                       OXCaller pClient, EndHandler pOnEnd)
    : MessageStream({pCore, &pCore->io}, std::move(pSocket), pCore->limits),
      fCore(pCore),
      fOnEnd(std::move(pOnEnd)),
      fGrace(pCore->io),
      fClient(std::move(pClient)) {
  fClient.connection = nextNumber();
}

Connection::~Connection() = default;

boost::shared_ptr<Connection> Connection::xThis() {
  return boost::static_pointer_cast<Connection>(shared_from_this());
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
  boost::asio::post(xIo(), [weak = weak_from_this()] {
    if (const auto self = weak.lock()) static_cast<Connection&>(*self).xFinished();
  });
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
  return broker->call(pMessage.target, pMessage.method, pMessage.value);
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
  if (xHasEnded() && fRunning == 0) return xAnnounceEnd();
  xProceed();
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
  fOnEnd(xThis());
  if (fRunning == 0) return xAnnounceEnd();
  fGrace.expires_after(kGrace);
  fGrace.async_wait([self = xThis()](const boost::system::error_code&) { self->xAnnounceEnd(); });
}

void Connection::xAnnounceEnd() {
  if (std::exchange(fAnnounced, true)) return;
  fGrace.cancel();
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
