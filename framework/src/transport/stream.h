/// One connection as a stream of messages, the same on both ends: reads, finds the messages, and
/// writes what is queued. What a message means is the business of the class derived from it.
///
/// Threads: all runs on the one thread that runs the io_context; only send(), trySend() and end()
/// may be called from any thread.
#pragma once

#include <atomic>
#include <boost/asio/generic/stream_protocol.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/enable_shared_from_this.hpp>
#include <boost/shared_ptr.hpp>
#include <deque>
#include <string>
#include <vector>

#include "codec.h"
#include "messagescanner.h"
#include "receivebuffer.h"

namespace OX::wire {

class Stream : public boost::enable_shared_from_this<Stream> {
 public:
  using Socket = boost::asio::generic::stream_protocol::socket;

  virtual ~Stream();
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  /// Begins to read. On the io thread, or before it runs.
  void start();

  /// Queues a message; it is dropped when the connection has ended.
  void send(OutgoingMessage&& pMessage);
  /// The same, but false and nothing sent when more than a message of the largest size, or more
  /// than kMaxWaiting messages, wait already: the other side does not read.
  bool trySend(OutgoingMessage&& pMessage);

  /// Closes the connection; onEnd() follows on the io thread unless it has ended already.
  void end(const std::string& pReason);

  static constexpr std::size_t kMaxWaiting = 16384;

 protected:
  /// Keeps pIo alive; pSocket belongs to it.
  Stream(boost::shared_ptr<boost::asio::io_context> pIo, Socket&& pSocket,
         const OXWireLimits& pLimits);

  /// A message has come. May throw WireViolation.
  virtual void onMessage(IncomingMessage&& pMessage) = 0;
  /// Messages have been handed to the system: fewer wait now.
  virtual void onWritten() = 0;
  /// Called once, when the connection has been closed.
  virtual void onEnd(const std::string& pReason) = 0;
  /// Whether the next message may be taken. Once it may again, call xProceed().
  virtual bool mayTakeMessage() const = 0;
  /// Who the other side is, for the log.
  virtual std::string getPeer() const = 0;

  /// Takes the messages that are there and reads on.
  void xProceed();
  void xEnd(const std::string& pReason);
  bool xHasEnded() const { return fEnded; }
  /// Whether the other side takes what is sent to it.
  bool xIsKeepingUp() const;
  /// Messages that have been sent and not yet handed to the system.
  std::size_t xCountWaiting() const { return fWaitingMessages.load(); }
  const OXWireLimits& xLimits() const { return fLimits; }
  boost::asio::io_context& xIo() { return *fIo; }

 private:
  void xTakeMessages();
  void xRead();
  void xReceived(std::size_t pSize);
  void xQueue(OutgoingMessage&& pMessage);
  void xWrite();
  void xWritten(std::size_t pSize);
  void xViolated(const std::string& pProblem);

  const boost::shared_ptr<boost::asio::io_context> fIo;  ///< goes last: the socket is part of it
  Socket fSocket;
  OXWireLimits fLimits;
  ReceiveBuffer fReceived;
  MessageScanner fScanner;
  bool fReading = false;
  bool fEnded = false;

  std::deque<OutgoingMessage> fQueue;
  std::vector<OutgoingMessage> fWriting;  ///< handed to the socket until it has taken them
  std::atomic<std::size_t> fWaitingBytes{0};
  std::atomic<std::size_t> fWaitingMessages{0};
};

/// Runs until nothing is left to do. A failure in one handler is logged and does not end the
/// others.
void runUntilDone(boost::asio::io_context& pIo);

}  // namespace OX::wire
