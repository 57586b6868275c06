/// One connection as a stream of messages, the same on both ends: receives bytes, finds the
/// messages in them, and writes the messages that are queued. Derived classes give messages their
/// meaning.
///
/// Threads: everything runs on the one thread that runs the io_context, which is why the members
/// have no lock; only send(), trySend() and end() may be called from any thread.
#pragma once

#include <atomic>
#include <boost/asio/generic/stream_protocol.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/enable_shared_from_this.hpp>
#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "codec.h"
#include "messagescanner.h"
#include "receivebuffer.h"

namespace OX::wire {

class MessageStream : public boost::enable_shared_from_this<MessageStream> {
 public:
  using Socket = boost::asio::generic::stream_protocol::socket;

  virtual ~MessageStream();
  MessageStream(const MessageStream&) = delete;
  MessageStream& operator=(const MessageStream&) = delete;

  /// Starts to read. Call it on the io thread, or before that runs.
  void start();

  /// Queues a message; drops it when the connection has ended.
  void send(OutgoingMessage&& pMessage);
  /// The same, but sends nothing and returns false when the other side does not read: more bytes
  /// than the largest message has, or more than kMaxWaiting messages, are already queued.
  bool trySend(OutgoingMessage&& pMessage);

  /// Closes the connection; onEnd() follows on the io thread unless it was called before.
  void end(const std::string& pReason);

  static constexpr std::size_t kMaxWaiting = 16384;

 protected:
  /// Keeps pIo alive; pSocket belongs to it.
  MessageStream(boost::shared_ptr<boost::asio::io_context> pIo, Socket&& pSocket,
                const OXWireLimits& pLimits);

  /// Called for each message. May throw WireViolation, which closes the connection.
  virtual void onMessage(IncomingMessage&& pMessage) = 0;
  /// Called when messages were handed to the system and fewer are queued.
  virtual void onWritten() = 0;
  /// Called once, after the connection was closed.
  virtual void onEnd(const std::string& pReason) = 0;
  /// Whether the next message may be processed. When that becomes true again, call xProceed().
  virtual bool mayTakeMessage() const = 0;
  /// The other side's address or name, for the log.
  virtual std::string getPeer() const = 0;

  /// Processes the received messages and continues to read.
  void xProceed();
  void xEnd(const std::string& pReason);
  bool xHasEnded() const { return fEnded; }
  /// Whether the other side reads what is sent to it.
  bool xIsKeepingUp() const;
  /// Messages that are queued and not yet handed to the system.
  std::size_t xCountWaiting() const { return fWaitingMessages.load(); }
  /// Since the beginning. Thread-safe.
  std::uint64_t xBytesIn() const { return fBytesIn; }
  std::uint64_t xBytesOut() const { return fBytesOut; }
  const OXWireLimits& xLimits() const { return fLimits; }
  boost::asio::io_context& xIo() { return *fIo; }
  Socket& xSocket() { return fSocket; }

 private:
  void xTakeMessages();
  void xRead();
  void xReceived(std::size_t pSize);
  void xQueue(OutgoingMessage&& pMessage);
  void xWrite();
  void xWritten(std::size_t pSize);
  template <typename Step>
  void xGuarded(Step pStep);
  void xViolated(const std::string& pProblem);

  const boost::shared_ptr<boost::asio::io_context>
      fIo;  ///< destroyed last: the socket belongs to it
  Socket fSocket;
  const bool fIsTcp;
  OXWireLimits fLimits;
  ReceiveBuffer fReceived;
  MessageScanner fScanner;
  bool fReading = false;
  bool fEnded = false;

  std::deque<OutgoingMessage> fQueue;
  std::vector<OutgoingMessage> fWriting;  ///< being written to the socket
  std::atomic<std::size_t> fWaitingBytes{0};
  std::atomic<std::size_t> fWaitingMessages{0};
  std::atomic<std::uint64_t> fBytesIn{0};
  std::atomic<std::uint64_t> fBytesOut{0};
};

/// Runs until nothing is left to do. A handler that throws is logged and does not end the others.
void runUntilDone(boost::asio::io_context& pIo);

}  // namespace OX::wire
