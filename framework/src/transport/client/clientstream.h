/// The client's end of a connection: matches answers with the threads that wait for them.
///
/// A thread that calls also reads, until it has its answer, unless another one does; a thread whose
/// answer somebody else read is woken by that one. The connection's own thread reads while nobody
/// calls, and is the only one that calls the listener.
#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <map>
#include <optional>
#include <string>

#include <oxframework/oxremotebroker.h>
#include <oxframework/oxthreadsafety.h>
#include "transport/messagestream.h"

namespace OX::wire {

/// All but serve() may be called from any thread.
class ClientStream : public MessageStream {
 public:
  struct Answer {
    OXValue value;
    OXDescriptor descriptor;  ///< none unless the answer came with one
  };

  ClientStream(boost::shared_ptr<Poller> pPoller, OXDescriptor pSocket, std::string pAddress);
  ~ClientStream() override;

  /// Takes at most pTimeout, also when the request has to wait until it can be sent.
  Answer call(const std::string& pModule, const std::string& pMethod, const OXValue& pArguments,
              std::chrono::milliseconds pTimeout);
  /// Waits at most pTimeout while too much is queued. Throws OXError when the connection has ended.
  void notify(const std::string& pModule, const std::string& pMethod, const OXValue& pArguments,
              std::chrono::milliseconds pTimeout);
  void setListener(OXRemoteBroker::Listener pListener);
  bool isConnected() const;
  /// Ends the connection; the listener is not called any more, except for a call under way.
  void close();

  /// The connection's thread, until the connection has ended.
  void serve();

 private:
  using Deadline = std::chrono::steady_clock::time_point;

  /// A call under way, on the stack of the thread that waits.
  struct Waiting {
    std::optional<IncomingMessage> answer;
    bool reads = false;  ///< has the right to read
    std::condition_variable woken;
  };
  using SharedListener = boost::shared_ptr<const OXRemoteBroker::Listener>;
  using Calls = std::map<std::uint32_t, Waiting*>;

  void onReadable() override;
  void onWritten() noexcept override;
  void onEnd(const std::string& pReason) override;
  bool mayRead() const override OX_REQUIRES(fGuard) { return true; }
  std::string getPeer() const override { return fAddress; }

  void xAwaitRoom(detail::MutexLock& pHold, const std::string& pFunction, Deadline pDeadline)
      OX_REQUIRES(fGuard);
  void xExchange(std::uint32_t pId, OutgoingMessage&& pMessage, Waiting& pWaiting,
                 Deadline pDeadline);
  void xAwaitAnswer(std::uint32_t pId, Waiting& pWaiting, Deadline pDeadline);
  void xReadUntil(const Waiting& pWaiting, Deadline pDeadline);
  bool xAwaitListener(Deadline pDeadline);
  void xLeaveReading() OX_REQUIRES(fGuard);
  void xDispatchReceived();
  void xDispatch(IncomingMessage&& pMessage);
  void xQueueEvent(IncomingMessage&& pEvent);
  bool xNextEvent(IncomingMessage& pEvent, SharedListener& pListener);
  void xDeliverEvents();

  const std::string fAddress;
  const boost::shared_ptr<Poller> fPoller;
  std::condition_variable fRoom;       ///< there may be room for further messages
  std::condition_variable fDelivered;  ///< there may be room for further events
  /// By message id.
  Calls fCalls OX_GUARDED_BY(fGuard);
  std::uint32_t fLastId OX_GUARDED_BY(fGuard) = 0;
  std::deque<IncomingMessage> fEvents OX_GUARDED_BY(fGuard);  ///< not delivered yet
  std::size_t fEventBytes OX_GUARDED_BY(fGuard) = 0;
  bool fIsAwake OX_GUARDED_BY(fGuard) = false;  ///< the connection's thread will look at fEvents
  /// Set once, when the connection has ended.
  std::optional<std::string> fEndReason OX_GUARDED_BY(fGuard);
  SharedListener fListener OX_GUARDED_BY(fGuard);
};

}  // namespace OX::wire
