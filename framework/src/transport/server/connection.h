/// The server's end of a connection: the client's calls, its name, its events and its end.
#pragma once

#include <atomic>
#include <boost/asio/steady_timer.hpp>
#include <boost/weak_ptr.hpp>
#include <functional>
#include <string>

#include <oxframework/oxbroker.h>
#include <oxframework/oxthreadsafety.h>
#include "transport/messagestream.h"

namespace OX::wire {

/// What all connections of a server share. Outlives the server while calls are under way, whose
/// answers are then dropped.
struct ServerCore {
  ServerCore(const boost::shared_ptr<OXBroker>& pBroker, const OXWireLimits& pLimits)
      : io(1), broker(pBroker), limits(pLimits) {}
  boost::asio::io_context io;
  boost::weak_ptr<OXBroker> broker;
  OXWireLimits limits;
};

/// Calls start in order on the broker's threads. A call is under way until its answer was written.
/// While too many are, or while the client does not read what is sent to it, nothing is read from
/// it.
class Connection : public MessageStream, private OXCallerContext {
 public:
  using EndHandler = std::function<void(const boost::shared_ptr<Connection>&)>;

  /// pOnEnd is called once, on the io thread, when the connection has ended.
  Connection(const boost::shared_ptr<ServerCore>& pCore, Socket&& pSocket, OXCaller pClient,
             EndHandler pOnEnd);
  ~Connection() override;

 private:
  void onMessage(IncomingMessage&& pMessage) override;
  void onWritten() override;
  void onEnd(const std::string& pReason) override;
  bool mayTakeMessage() const override;
  std::string getPeer() const override;
  void setClientName(const std::string& pName) override;
  OXCaller getCaller() const override;

  boost::shared_ptr<Connection> xThis();
  void xRun(const IncomingMessage& pMessage);
  OutgoingMessage xAnswer(const IncomingMessage& pRequest);
  void xNotified(const IncomingMessage& pNotification);
  OXValue xCall(const IncomingMessage& pMessage);
  bool xIsKnown(const IncomingMessage& pMessage) const;
  void xFinished();
  void xSendEvent(const std::string& pName, const std::string& pMethod, const OXValue& pArguments);
  void xAnnounceEnd();

  const boost::shared_ptr<ServerCore> fCore;
  EndHandler fOnEnd;
  boost::asio::steady_timer fGrace;
  int fRunning = 0;         ///< calls that have started and not ended
  bool fAnnounced = false;  ///< the event of its end was posted

  std::atomic<bool> fLosesEvents{false};

  mutable detail::Mutex fNameGuard;            ///< acquired before the broker's own guard
  OXCaller fClient OX_GUARDED_BY(fNameGuard);  ///< only its name changes
  bool fGone OX_GUARDED_BY(fNameGuard) = false;
};

}  // namespace OX::wire
