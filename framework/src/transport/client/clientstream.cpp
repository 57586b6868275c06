// Calls wait on condition variables of their own, on their callers' stacks, so that an answer wakes
// exactly the thread that asked. No lock is held while a message is encoded or sent.
#include "clientstream.h"

#include <boost/make_shared.hpp>
#include <utility>

#include <oxframework/oxerror.h>
#include <oxframework/oxlog.h>
#include "deadline.h"

namespace OX::wire {
namespace {

constexpr char kModule[] = "OXRemoteBroker";

}  // namespace

ClientStream::ClientStream(boost::shared_ptr<boost::asio::io_context> pIo, Socket&& pSocket,
                           std::string pAddress)
    : MessageStream(std::move(pIo), std::move(pSocket), OXWireLimits()),
      fAddress(std::move(pAddress)) {}

ClientStream::~ClientStream() = default;

void ClientStream::xSend(OutgoingMessage&& pMessage, const std::string& pFunction,
                         std::chrono::steady_clock::time_point pDeadline) {
  {
    detail::MutexLock guard(fGuard);
    fRoom.wait_until(guard.native(), pDeadline,
                     [this]() OX_REQUIRES(fGuard) { return xIsKeepingUp() || fEndReason; });
  }
  // Tried in any case: another thread may have taken the room, or made some just after the wait.
  if (!trySend(std::move(pMessage)))
    raiseError(kModule, pFunction,
               "The broker at " + fAddress + " does not read what is sent to it");
}

void ClientStream::onWritten() {
  const detail::MutexLock guard(fGuard);
  fRoom.notify_all();
}

OXValue ClientStream::call(const std::string& pModule, const std::string& pMethod,
                           const OXValue& pArguments, std::chrono::milliseconds pTimeout) {
  const std::string name = pModule + "." + pMethod;
  // One for both waits: for room to send, and for the answer.
  const auto deadline = deadlineAfter(pTimeout);
  Waiting waiting;
  detail::MutexLock guard(fGuard);
  // Wraps round after 2^32 calls, when the call of the same number has long ended.
  const std::uint32_t id = ++fLastId;
  if (!fEndReason) {
    guard.unlock();
    // Encoded without the lock: a large image takes a while.
    OutgoingMessage message = encodeRequest(id, pModule, pMethod, pArguments, xLimits());
    guard.lock();
    // Registered before the request is sent, since the answer may come before xSend() returns.
    fWaiting[id] = &waiting;
    guard.unlock();
    try {
      xSend(std::move(message), "call", deadline);
    } catch (...) {
      guard.lock();
      fWaiting.erase(id);
      throw;
    }
    guard.lock();
    waiting.answered.wait_until(guard.native(), deadline, [&]() OX_REQUIRES(fGuard) {
      return waiting.answer.has_value() || fEndReason;
    });
    fWaiting.erase(id);
  }
  // An answer counts even if the connection ended just after it.
  if (!waiting.answer && fEndReason)
    raiseError(kModule, "call",
               name + ": the connection to " + fAddress + " has ended: " + *fEndReason);
  guard.unlock();
  if (!waiting.answer)
    raiseError(kModule, "call",
               name + ": no answer from " + fAddress + " within " +
                   std::to_string(pTimeout.count()) + " ms");
  if (waiting.answer->error) throw *waiting.answer->error;
  if (!waiting.answer->problem.empty())
    raiseError(kModule, "call", name + ": " + waiting.answer->problem);
  return std::move(waiting.answer->value);
}

void ClientStream::notify(const std::string& pModule, const std::string& pMethod,
                          const OXValue& pArguments, std::chrono::milliseconds pTimeout) {
  {
    const detail::MutexLock guard(fGuard);
    if (fEndReason)
      raiseError(kModule, "notify", "The connection to " + fAddress + " has ended: " + *fEndReason);
  }
  xSend(encodeNotification(pModule, pMethod, pArguments, xLimits()), "notify",
        deadlineAfter(pTimeout));
}

void ClientStream::setListener(OXRemoteBroker::Listener pListener) {
  auto listener = boost::make_shared<const OXRemoteBroker::Listener>(std::move(pListener));
  const detail::MutexLock guard(fGuard);
  fListener.swap(listener);
}

bool ClientStream::isConnected() const {
  const detail::MutexLock guard(fGuard);
  return !fEndReason;
}

void ClientStream::onMessage(IncomingMessage&& pMessage) {
  if (pMessage.kind == IncomingMessage::kRequest)
    throw WireViolation("malformed message: a request to a client");
  if (pMessage.kind == IncomingMessage::kNotification) return xDispatchEvent(pMessage);
  const detail::MutexLock guard(fGuard);
  const auto found = fWaiting.find(pMessage.id);
  if (found == fWaiting.end()) return;  // its caller no longer waits
  found->second->answer = std::move(pMessage);
  found->second->answered.notify_one();
}

void ClientStream::xDispatchEvent(const IncomingMessage& pEvent) {
  boost::shared_ptr<const OXRemoteBroker::Listener> listener;
  {
    const detail::MutexLock guard(fGuard);
    listener = fListener;
  }
  if (!listener || !*listener) return;
  try {
    (*listener)(pEvent.target, pEvent.method, pEvent.value);
  } catch (const std::exception& error) {
    ki::log::LogStream(ki::log::kWarning, "ox.transport", "", "event", __LINE__)
        << "The listener failed to handle " << pEvent.target << "." << pEvent.method << ": "
        << error.what();
  }
}

void ClientStream::onEnd(const std::string& pReason) {
  const detail::MutexLock guard(fGuard);
  // From here on no call waits: those under way are woken, later ones see the reason first.
  fEndReason = pReason;
  fRoom.notify_all();
  for (const auto& [id, waiting] : fWaiting) waiting->answered.notify_one();
}

}  // namespace OX::wire
