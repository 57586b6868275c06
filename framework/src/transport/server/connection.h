/// The server's end of a connection: the client's calls, its name, its events and its end.
///
/// After the end the connection is cleaned up, in this order: calls under way end, for at most a
/// second; the last wills run, for at most 5 s; what the connection owns is ended, and tried again
/// until nothing is left; the event "ClientDisconnected" is raised.
#pragma once

#include <atomic>
#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/weak_ptr.hpp>
#include <chrono>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <oxframework/oxbroker.h>
#include <oxframework/oxthreadsafety.h>
#include "broker/connections.h"
#include "deferredcalls.h"
#include "pollerthreads.h"
#include "transport/messagestream.h"
#include "transport/silence.h"

namespace OX::wire {

/// What all connections of a server share. Outlives the server while calls are under way, whose
/// answers are then dropped.
struct ServerCore {
  ServerCore(const boost::shared_ptr<OXBroker>& pBroker, const OXWireLimits& pLimits)
      : io(1), broker(pBroker), limits(pLimits) {}
  boost::asio::io_context io;  ///< accepts, looks for silent clients, cleans up
  PollerThreads threads;       ///< read and run requests
  boost::weak_ptr<OXBroker> broker;
  OXWireLimits limits;
};

/// Calls start in order, on the thread that read the request or on one of the broker. A call is
/// under way until its answer was written. While too many are, or while the client does not read
/// what is sent to it, nothing is read from it.
class Connection : public MessageStream, private OXCallerContext, public DeferredCalls::Answers {
 public:
  using Handler = std::function<void(const boost::shared_ptr<Connection>&)>;
  /// Called once each, on the io thread.
  struct Handlers {
    Handler ended;      ///< its owner must keep it until:
    Handler forgotten;  ///< it is cleaned up after
  };

  Connection(const boost::shared_ptr<ServerCore>& pCore, OXDescriptor pSocket, OXCaller pClient,
             Handlers pHandlers);
  ~Connection() override;

  /// Registers with the broker and starts to read. Call it on the io thread.
  void begin();
  /// The server ends: calls that wait are answered with an error.
  void failWaiting();
  /// Whether all that was sent has been handed to the system.
  bool isWritten() const;
  /// On the io thread: the server, and with it the broker, ends. The connection is closed, and
  /// neither are wills run nor is anything given back, since the modules end too.
  void endWithServer();
  /// On the io thread, from time to time: ends the connection when its client has not been heard
  /// for pLimit although data waits for it.
  void endIfSilent(std::chrono::seconds pLimit);

 private:
  void onReadable() override;
  void onWritten() noexcept override;
  void onEnd(const std::string& pReason) override;
  bool mayRead() const override OX_REQUIRES(fGuard) { return !fHeld && xMayBegin(); }
  std::string getPeer() const override;
  void setClientName(const std::string& pName) override;
  OXCaller getCaller() const override;

  void answer(std::uint32_t pRequest, OXValue&& pResult, OXDescriptor&& pDescriptor) override;
  void fail(std::uint32_t pRequest, const OXError& pError) override;
  bool takesDescriptor() const override;
  void whenReady(std::function<void()> pReady) override;
  bool xIsReady() const OX_REQUIRES(fGuard);
  void xCallReady();

  boost::shared_ptr<Connection> xThis();
  bool xTakeMessages(std::optional<IncomingMessage>& pLast);
  bool xMayBegin() const OX_REQUIRES(fGuard);
  bool xMayTake();
  bool xBeginCall();
  void xStart(IncomingMessage&& pMessage);
  void xPostCall(IncomingMessage&& pMessage);
  bool xTryPause();
  void xPause();
  void xReadHeld();
  void xProceed();
  void xRun(const IncomingMessage& pMessage);
  void xAnswer(const IncomingMessage& pRequest);
  OutgoingMessage xEncode(std::uint32_t pRequest, const OXValue& pResult) const;
  void xNotified(const IncomingMessage& pNotification);
  OXValue xCall(const IncomingMessage& pMessage);
  bool xIsKnown(const IncomingMessage& pMessage) const;
  void xFinished();
  void xEnded();
  void xLateCallEnded();
  void xSendEvent(const std::string& pName, const std::string& pMethod, const OXValue& pArguments);
  OXConnectionState xState() const;

  // The steps of cleaning up, each of which leads to the next one.
  void xCleanUp();
  void xRunWills();
  void xReportWill(const OXLastWill& pWill, const char* pProblem) const;
  void xWillsRan();
  void xBeginGivingBack();
  void xGiveBack();
  void xGiveBackAll();
  void xGaveAllBack();
  void xGaveSomeBack();
  void xAnnounceEnd();
  void xForget();
  /// Runs pTask on a thread of the broker; false when there is none for it.
  bool xPost(void (Connection::*pTask)());
  /// From there: runs pStep on the io thread.
  void xPostToIo(void (Connection::*pStep)());
  /// Calls pStep after a while unless another step has begun by then.
  void xAfter(std::chrono::milliseconds pDelay, void (Connection::*pStep)());

  enum class Phase { kOpen, kCallsEnd, kWills, kGivingBack, kForgotten };

  const boost::shared_ptr<ServerCore> fCore;
  const boost::shared_ptr<OXConnections> fConnections;  ///< the broker's
  int fNumber = 0;                                      ///< in these; set by begin()
  boost::shared_ptr<DeferredCalls> fDeferred;           ///< set by begin()
  std::atomic<int> fCalls{0};
  int fUnderWay OX_GUARDED_BY(fGuard) = 0;  ///< calls that have begun and not ended
  /// A complete message was received, for which there is no room: the next end of a call or a write
  /// takes it.
  bool fHeld OX_GUARDED_BY(fGuard) = false;
  /// Called when all that was sent has been handed to the system.
  std::deque<std::function<void()>> fReady OX_GUARDED_BY(fGuard);
  // On the io thread only.
  Handlers fHandlers;
  boost::asio::steady_timer fTimer;  ///< the bound of the phase, or the next attempt in it
  Phase fPhase = Phase::kOpen;
  Silence fSilence;
  int fRunning = 0;  ///< after the end: calls that have not ended yet, the wills included
  bool fEndsWithServer = false;
  bool fIsGivingBack = false;                       ///< a thread of the broker does it
  bool fGivesBackAgain = false;                     ///< a call has ended meanwhile
  std::chrono::steady_clock::time_point fWillsEnd;  ///< set before the wills run elsewhere
  std::chrono::steady_clock::time_point fAnnounceBy;
  bool fAnnounced = false;  ///< the event of its end was posted

  std::atomic<bool> fLosesEvents{false};

  mutable detail::Mutex fNameGuard;            ///< acquired before the broker's own guard
  OXCaller fClient OX_GUARDED_BY(fNameGuard);  ///< only its name changes
  bool fGone OX_GUARDED_BY(fNameGuard) = false;
};

}  // namespace OX::wire
