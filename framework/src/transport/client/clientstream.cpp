// Calls wait on condition variables of their own, on their callers' stacks, so that an answer wakes
// exactly the thread that asked. No lock is held while a message is encoded, written or read.
//
// Somebody has the right to read, or else the poller waits for the connection's thread. A caller
// takes the right before it sends, so that the answer finds it waiting, and leaves it to another
// caller that still waits, or to the poller.
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

ClientStream::ClientStream(boost::shared_ptr<Poller> pPoller, OXDescriptor pSocket,
                           std::string pAddress)
    : MessageStream(pPoller, std::move(pSocket), OXWireLimits(), true),
      fAddress(std::move(pAddress)),
      fPoller(std::move(pPoller)) {}

ClientStream::~ClientStream() = default;

// ---- calls ----

/// Returns also when the connection has ended.
void ClientStream::xAwaitRoom(detail::MutexLock& pHold, const std::string& pFunction,
                              Deadline pDeadline) {
  const bool mayGoOn = fRoom.wait_until(pHold.native(), pDeadline, [this]() OX_REQUIRES(fGuard) {
    return xIsKeepingUp() || fEndReason;
  });
  if (!mayGoOn)
    raiseError(kModule, pFunction,
               "The broker at " + fAddress + " does not read what is sent to it");
}

void ClientStream::onWritten() noexcept { fRoom.notify_all(); }

ClientStream::Answer ClientStream::call(const std::string& pModule, const std::string& pMethod,
                                        const OXValue& pArguments,
                                        std::chrono::milliseconds pTimeout) {
  const std::string name = pModule + "." + pMethod;
  // One for both waits: for room to send, and for the answer.
  const auto deadline = deadlineAfter(pTimeout);
  std::uint32_t id;
  bool isConnected;
  {
    const detail::MutexLock guard(fGuard);
    // Wraps round after 2^32 calls, when the call of the same number has long ended.
    id = ++fLastId;
    isConnected = !fEndReason;
  }
  Waiting waiting;
  // Encoded without the lock: a large image takes a while.
  if (isConnected)
    xExchange(id, encodeRequest(id, pModule, pMethod, pArguments, xLimits()), waiting, deadline);
  if (!waiting.answer) {
    const detail::MutexLock guard(fGuard);
    if (fEndReason)
      raiseError(kModule, "call",
                 name + ": the connection to " + fAddress + " has ended: " + *fEndReason);
    raiseError(kModule, "call",
               name + ": no answer from " + fAddress + " within " +
                   std::to_string(pTimeout.count()) + " ms");
  }
  if (waiting.answer->error) throw *waiting.answer->error;
  if (!waiting.answer->problem.empty())
    raiseError(kModule, "call", name + ": " + waiting.answer->problem);
  return {std::move(waiting.answer->value), std::move(waiting.answer->descriptor)};
}

/// Sends a request and waits for its answer, the end of the connection, or the deadline.
void ClientStream::xExchange(std::uint32_t pId, OutgoingMessage&& pMessage, Waiting& pWaiting,
                             Deadline pDeadline) {
  bool writes;
  {
    detail::MutexLock hold(fGuard);
    xAwaitRoom(hold, "call", pDeadline);
    const auto entry = fCalls.insert_or_assign(pId, &pWaiting).first;
    try {
      writes = xQueue(std::move(pMessage));
    } catch (...) {
      fCalls.erase(entry);
      throw;
    }
    pWaiting.reads = xTryReading();
  }
  if (writes) xWrite();
  xAwaitAnswer(pId, pWaiting, pDeadline);
}

void ClientStream::xAwaitAnswer(std::uint32_t pId, Waiting& pWaiting, Deadline pDeadline) {
  detail::MutexLock hold(fGuard);
  const auto isDone = [&]() OX_REQUIRES(fGuard) { return pWaiting.answer || fEndReason; };
  if (!pWaiting.reads)
    pWaiting.woken.wait_until(hold.native(), pDeadline,
                              [&]() OX_REQUIRES(fGuard) { return isDone() || pWaiting.reads; });
  if (pWaiting.reads) {
    hold.unlock();
    xReadUntil(pWaiting, pDeadline);
    hold.lock();
  }
  // In one step: a caller that no longer waits must not be left the right to read.
  fCalls.erase(pId);
  if (pWaiting.reads) xLeaveReading();
  // Whoever ends the connection is about to say why.
  if (!pWaiting.answer && xHasEnded())
    fRoom.wait(hold.native(), [this]() OX_REQUIRES(fGuard) { return fEndReason.has_value(); });
}

void ClientStream::notify(const std::string& pModule, const std::string& pMethod,
                          const OXValue& pArguments, std::chrono::milliseconds pTimeout) {
  OutgoingMessage message = encodeNotification(pModule, pMethod, pArguments, xLimits());
  bool writes;
  {
    detail::MutexLock hold(fGuard);
    xAwaitRoom(hold, "notify", deadlineAfter(pTimeout));
    if (fEndReason)
      raiseError(kModule, "notify", "The connection to " + fAddress + " has ended: " + *fEndReason);
    writes = xQueue(std::move(message));
  }
  if (writes) xWrite();
}

// ---- reading: with the right to it ----

void ClientStream::xReadUntil(const Waiting& pWaiting, Deadline pDeadline) {
  xGuarded([&] {
    for (;;) {
      xDispatchReceived();
      {
        const detail::MutexLock guard(fGuard);
        if (pWaiting.answer || xHasEnded()) return;
      }
      if (!xAwaitListener(pDeadline) || !xReceiveUntil(pDeadline)) return;
    }
  });
}

/// Events that a slow listener leaves in the queue must not use up the memory: the broker is told
/// by not being read from. False when the time is over.
bool ClientStream::xAwaitListener(Deadline pDeadline) {
  detail::MutexLock hold(fGuard);
  return fDelivered.wait_until(hold.native(), pDeadline, [this]() OX_REQUIRES(fGuard) {
    return xHasEnded() || (fEventBytes <= static_cast<std::size_t>(xLimits().maxMessageBytes) &&
                           fEvents.size() < kMaxWaiting);
  });
}

/// Gives the right to read to another caller that waits, or to the connection's thread.
void ClientStream::xLeaveReading() {
  if (!xHasEnded()) {
    for (const auto& [id, waiting] : fCalls) {
      if (waiting->answer) continue;
      waiting->reads = true;
      waiting->woken.notify_one();
      return;
    }
  }
  xStopReading();
}

/// On the connection's thread. Once, and then events are delivered.
void ClientStream::onReadable() {
  xGuarded([this] {
    xDispatchReceived();
    if (xReceive()) xDispatchReceived();
  });
  const detail::MutexLock guard(fGuard);
  xLeaveReading();
}

void ClientStream::xDispatchReceived() {
  while (xHasMessage()) xDispatch(xTakeMessage());
}

void ClientStream::xDispatch(IncomingMessage&& pMessage) {
  if (pMessage.kind == IncomingMessage::kRequest)
    throw WireViolation("malformed message: a request to a client");
  if (pMessage.kind == IncomingMessage::kNotification) return xQueueEvent(std::move(pMessage));
  const detail::MutexLock guard(fGuard);
  const auto found = fCalls.find(pMessage.id);
  if (found == fCalls.end()) return;  // its caller no longer waits
  found->second->answer = std::move(pMessage);
  found->second->woken.notify_one();
}

// ---- events ----

void ClientStream::xQueueEvent(IncomingMessage&& pEvent) {
  const detail::MutexLock guard(fGuard);
  const std::size_t size = pEvent.size;
  fEvents.push_back(std::move(pEvent));
  fEventBytes += size;
  if (!std::exchange(fIsAwake, true)) fPoller->wake();
}

void ClientStream::serve() {
  bool goesOn = true;
  while (goesOn) {
    {
      const Poller::Ready ready = fPoller->wait(-1);
      {
        const detail::MutexLock guard(fGuard);
        fIsAwake = true;
      }
      if (ready.stream) ready.stream->onReady(ready.events);
    }
    xDeliverEvents();
    const detail::MutexLock guard(fGuard);
    goesOn = !xHasEnded();
  }
  // Those that came just before the end.
  xDeliverEvents();
}

bool ClientStream::xNextEvent(IncomingMessage& pEvent, SharedListener& pListener) {
  const detail::MutexLock guard(fGuard);
  fIsAwake = !fEvents.empty();
  if (!fIsAwake) return false;
  pEvent = std::move(fEvents.front());
  fEvents.pop_front();
  fEventBytes -= pEvent.size;
  fDelivered.notify_all();
  pListener = fListener;
  return true;
}

void ClientStream::xDeliverEvents() {
  IncomingMessage event;
  SharedListener listener;
  while (xNextEvent(event, listener)) {
    if (!listener || !*listener) continue;
    try {
      (*listener)(event.target, event.method, event.value);
    } catch (const std::exception& error) {
      ki::log::LogStream(ki::log::kWarning, "ox.transport", "", "event", __LINE__)
          << "The listener failed to handle " << event.target << "." << event.method << ": "
          << error.what();
    }
  }
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

// ---- the end ----

void ClientStream::close() {
  SharedListener dropped;
  {
    const detail::MutexLock guard(fGuard);
    dropped.swap(fListener);
  }
  end("closed by this program");
}

void ClientStream::onEnd(const std::string& pReason) {
  const detail::MutexLock guard(fGuard);
  // From here on no call waits: those under way are woken, later ones see the reason first.
  fEndReason = pReason;
  fRoom.notify_all();
  fDelivered.notify_all();
  for (const auto& [id, waiting] : fCalls) waiting->woken.notify_one();
  fPoller->wake();
}

}  // namespace OX::wire
