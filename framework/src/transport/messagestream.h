/// One connection as a stream of messages, the same on both ends: receives bytes, finds the
/// messages in them, and writes messages. Derived classes decide who reads, and give messages their
/// meaning.
///
/// Threads: there is none of its own. Whoever sends a message also writes it, with those of others
/// that come meanwhile; what the system has no room for is written by the thread that the poller
/// wakes when there is. One thread at a time has the right to read, and one the right to write.
#pragma once

#include <atomic>
#include <boost/enable_shared_from_this.hpp>
#include <boost/shared_ptr.hpp>
#include <chrono>
#include <cstdint>
#include <deque>
#include <exception>
#include <new>
#include <string>
#include <vector>

#include <oxframework/oxdescriptor.h>
#include <oxframework/oxthreadsafety.h>
#include "codec.h"
#include "messagescanner.h"
#include "poller.h"
#include "receivebuffer.h"

namespace OX::wire {

class MessageStream : public boost::enable_shared_from_this<MessageStream> {
 public:
  virtual ~MessageStream();
  MessageStream(const MessageStream&) = delete;
  MessageStream& operator=(const MessageStream&) = delete;

  /// Starts to read. Throws when the system has no memory for it.
  void start();

  /// Sends a message, or queues it when the other side does not read; drops it when the connection
  /// has ended. Does not wait.
  void send(OutgoingMessage&& pMessage);
  /// The same, but sends nothing and returns false when the other side does not read: more bytes
  /// than the largest message has, or more than kMaxWaiting messages, are already queued.
  bool trySend(OutgoingMessage&& pMessage);
  /// Whether a message's descriptor arrives: it does on a Unix-domain socket.
  bool canSendDescriptor() const { return !fIsTcp; }

  /// Closes the connection; onEnd() is called on this thread unless it was called before.
  void end(const std::string& pReason);

  /// The poller has reported events; it reports none until the next arming.
  void onReady(std::uint32_t pEvents);

  static constexpr std::size_t kMaxWaiting = 16384;

 protected:
  /// Without pTakesDescriptors the system closes what the other side sends.
  MessageStream(boost::shared_ptr<Poller> pPoller, OXDescriptor pSocket,
                const OXWireLimits& pLimits, bool pTakesDescriptors);

  /// Called with the right to read when there may be something. Ends with xStopReading().
  virtual void onReadable() = 0;
  /// Called when messages were handed to the system and fewer are queued.
  virtual void onWritten() noexcept = 0;
  /// Called once, after the connection was closed.
  virtual void onEnd(const std::string& pReason) = 0;
  /// Whether to wait for the next message, while nobody reads.
  virtual bool mayRead() const OX_REQUIRES(fGuard) = 0;
  /// The other side's address or name, for the log.
  virtual std::string getPeer() const = 0;

  // With the right to read:
  /// Whether a complete message has been received. Throws WireViolation.
  bool xHasMessage() { return fScanner.scan(fReceived.data(), fReceived.size()); }
  /// That message. Throws WireViolation.
  IncomingMessage xTakeMessage();
  /// Receives what there is. False when there is nothing, or the connection ends here.
  bool xReceive();
  /// The same, but waits until there is something. False also when the time is over.
  bool xReceiveUntil(std::chrono::steady_clock::time_point pDeadline);

  /// Takes the right to read; false when somebody has it.
  bool xTryReading() OX_REQUIRES(fGuard);
  /// Gives it up, and lets the poller wait for the next bytes.
  void xStopReading() OX_REQUIRES(fGuard);
  /// Lets the poller wait for what may be read or written now.
  void xArm() OX_REQUIRES(fGuard);
  bool xIsReading() const OX_REQUIRES(fGuard) { return fReading; }
  bool xHasEnded() const OX_REQUIRES(fGuard) { return fEnded; }
  /// Whether the other side reads what is sent to it.
  bool xIsKeepingUp() const OX_REQUIRES(fGuard);
  /// Messages that were not yet handed to the system.
  std::size_t xCountWaiting() const OX_REQUIRES(fGuard) { return fWaitingMessages; }
  /// Queues a message. True when the caller has the right to write now: it calls xWrite() without
  /// the guard.
  bool xQueue(OutgoingMessage&& pMessage) OX_REQUIRES(fGuard);
  void xWrite();
  /// The socket; -1 after it was closed.
  int xSocket() const OX_REQUIRES(fGuard) { return fSocket.number(); }

  /// A step that fails halfway would leave a connection on which nothing is read or written any
  /// more, and nobody would know: it is closed instead. False then.
  template <typename Step>
  bool xGuarded(Step pStep);
  /// Since the beginning. Thread-safe.
  std::uint64_t xBytesIn() const { return fBytesIn; }
  std::uint64_t xBytesOut() const { return fBytesOut; }
  const OXWireLimits& xLimits() const { return fLimits; }

  mutable detail::Mutex fGuard;

 private:
  enum class Written { kAll, kNoRoom, kFailed };

  bool xReceiveSome(int pFlags);
  ssize_t xReceiveWithDescriptor(int pFlags);
  void xCloseUnused() OX_REQUIRES(fGuard);
  bool xNextBatch();
  void xFillBatch() OX_REQUIRES(fGuard);
  Written xWriteBatch();
  Written xWriteSome();
  void xAwaitRoom();
  void xViolated(const std::string& pProblem);

  const boost::shared_ptr<Poller> fPoller;
  const bool fIsTcp;
  const OXWireLimits fLimits;

  OXDescriptor fSocket OX_GUARDED_BY(fGuard);  ///< open for as long as somebody reads or writes
  std::uint64_t fNumber OX_GUARDED_BY(fGuard) = 0;  ///< at the poller; 0 before start()
  std::uint32_t fArmed OX_GUARDED_BY(fGuard) = 0;   ///< what the poller waits for
  bool fReading OX_GUARDED_BY(fGuard) = false;
  bool fWriting OX_GUARDED_BY(fGuard) = false;
  bool fFull OX_GUARDED_BY(fGuard) = false;  ///< the batch goes on when the system has room
  bool fEnded OX_GUARDED_BY(fGuard) = false;
  std::deque<OutgoingMessage> fQueue OX_GUARDED_BY(fGuard);
  std::size_t fWaitingBytes OX_GUARDED_BY(fGuard) = 0;
  std::size_t fWaitingMessages OX_GUARDED_BY(fGuard) = 0;

  // Of the thread that reads.
  ReceiveBuffer fReceived;
  MessageScanner fScanner;
  struct Received {
    std::uint64_t position;  ///< of the byte that it came with, in all that was received
    OXDescriptor descriptor;
  };
  std::deque<Received> fDescriptors;  ///< of messages that were not taken yet
  std::uint64_t fBytesTaken = 0;

  // Of the thread that writes.
  std::vector<OutgoingMessage> fBatch;
  std::vector<OutgoingMessage::Piece> fPieces;  ///< of the batch; empty until it is begun
  std::size_t fNextPiece = 0;                   ///< cut to what was not yet written

  std::atomic<std::uint64_t> fBytesIn{0};
  std::atomic<std::uint64_t> fBytesOut{0};
  const bool fTakesDescriptors;
  /// The socket for those with a right to it, who need no lock.
  const int fHandle;
};

template <typename Step>
bool MessageStream::xGuarded(Step pStep) {
  try {
    pStep();
    return true;
  } catch (const WireViolation& violation) {
    xViolated(violation.what());
  } catch (const std::bad_alloc&) {
    xViolated("memory ran out");
  } catch (const std::exception& error) {
    xViolated(std::string("a message could not be processed: ") + error.what());
  }
  return false;
}

}  // namespace OX::wire
