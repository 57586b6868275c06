// The reading and writing of one connection. At most one read and one write are under way; each
// continues the next from its handler, so the io thread needs no lock.
#include "messagestream.h"

#include <boost/asio/post.hpp>
#include <boost/asio/write.hpp>
#include <boost/weak_ptr.hpp>
#include <new>
#include <utility>

#include <oxframework/oxlog.h>
#include "socketoptions.h"

namespace OX::wire {
namespace {

using boost::system::error_code;
namespace asio = boost::asio;

// The most messages that one write to the socket gathers.
constexpr std::size_t kMessagesPerWrite = 64;

// The most bytes that one write hands to the system, before other connections have their turn on
// the io thread. Less costs a large image more wake-ups (64 KiB, Asio's own choice, takes several
// times as long); more lets small answers wait for a whole image to be copied.
constexpr std::size_t kBytesPerWrite = 512 * 1024;

std::size_t oneWrite(const error_code& pError, std::size_t) { return pError ? 0 : kBytesPerWrite; }

}  // namespace

MessageStream::MessageStream(boost::shared_ptr<asio::io_context> pIo, Socket&& pSocket,
                             const OXWireLimits& pLimits)
    : fIo(std::move(pIo)),
      fSocket(std::move(pSocket)),
      fIsTcp(isTcp(fSocket)),
      fLimits(pLimits),
      fScanner(pLimits) {}

MessageStream::~MessageStream() = default;

void MessageStream::start() { xProceed(); }

// ---- receiving ----

void MessageStream::xProceed() {
  if (fEnded || fReading) return;
  xGuarded([this] {
    xTakeMessages();
    // Guarded too: a large message may find no memory to be received into.
    if (!fEnded && mayTakeMessage()) xRead();
  });
}

void MessageStream::xTakeMessages() {
  while (!fEnded && mayTakeMessage() && fScanner.scan(fReceived.data(), fReceived.size())) {
    const std::size_t size = fScanner.getSize();
    // Decoded before it is consumed, since its values may keep using the block in place.
    IncomingMessage message = decode(fReceived.lend(), fReceived.data(), size);
    fScanner.reset();
    fReceived.consume(size);
    onMessage(std::move(message));
  }
}

void MessageStream::xRead() {
  fReceived.prepare(fScanner.getSize(), static_cast<std::size_t>(fLimits.maxMessageBytes));
  fReading = true;
  if (fIsTcp && fReceived.size() > 0) acknowledgeAtOnce(fSocket);
  fSocket.async_read_some(asio::buffer(fReceived.room(), fReceived.roomSize()),
                          [self = shared_from_this()](const error_code& pError, std::size_t pSize) {
                            self->fReading = false;
                            if (pError) return self->xEnd(pError.message());
                            self->xReceived(pSize);
                          });
}

void MessageStream::xReceived(std::size_t pSize) {
  fBytesIn += pSize;
  fReceived.commit(pSize);
  xProceed();
}

/// A step that fails halfway would leave a connection on which nothing is read or written any more,
/// and nobody would know: it is closed instead.
template <typename Step>
void MessageStream::xGuarded(Step pStep) {
  try {
    pStep();
  } catch (const WireViolation& violation) {
    xViolated(violation.what());
  } catch (const std::bad_alloc&) {
    xViolated("memory ran out");
  } catch (const std::exception& error) {
    xViolated(std::string("a message could not be processed: ") + error.what());
  }
}

void MessageStream::xViolated(const std::string& pProblem) {
  if (fEnded) return;
  try {
    ki::log::LogStream(ki::log::kError, "ox.transport", "", "receive", __LINE__)
        << "Connection of " << getPeer() << " closed: " << pProblem;
  } catch (const std::bad_alloc&) {  // closed without a record, then
  }
  xEnd(pProblem);
}

// ---- sending ----

bool MessageStream::xIsKeepingUp() const {
  return fWaitingBytes.load() <= static_cast<std::size_t>(fLimits.maxMessageBytes) &&
         fWaitingMessages.load() < kMaxWaiting;
}

bool MessageStream::trySend(OutgoingMessage&& pMessage) {
  if (!xIsKeepingUp()) return false;
  send(std::move(pMessage));
  return true;
}

// The handlers hold this weakly: a handler that remains in a stopped io_context would otherwise
// keep this alive, and this the io_context.
void MessageStream::send(OutgoingMessage&& pMessage) {
  // Counted here and not on the io thread, so that trySend() sees what was sent just before.
  fWaitingBytes += pMessage.getSize();
  ++fWaitingMessages;
  asio::post(*fIo, [weak = weak_from_this(), message = std::move(pMessage)]() mutable {
    if (const auto self = weak.lock()) self->xQueue(std::move(message));
  });
}

void MessageStream::xQueue(OutgoingMessage&& pMessage) {
  if (fEnded) return;
  xGuarded([&] {
    fQueue.push_back(std::move(pMessage));
    if (fWriting.empty()) xWrite();
  });
}

void MessageStream::xWrite() {
  while (!fQueue.empty() && fWriting.size() < kMessagesPerWrite) {
    fWriting.push_back(std::move(fQueue.front()));
    fQueue.pop_front();
  }
  std::vector<OutgoingMessage::Piece> pieces;
  // Pieces refer into fWriting, which therefore does not change until xWritten().
  for (const OutgoingMessage& message : fWriting) message.appendPieces(pieces);
  std::vector<asio::const_buffer> buffers;
  buffers.reserve(pieces.size());
  for (const auto& piece : pieces) buffers.emplace_back(piece.data, piece.size);
  asio::async_write(fSocket, buffers, oneWrite,
                    [self = shared_from_this()](const error_code& pError, std::size_t pSize) {
                      if (pError) return self->xEnd(pError.message());
                      self->xWritten(pSize);
                    });
}

void MessageStream::xWritten(std::size_t pSize) {
  const std::size_t messages = fWriting.size();
  fWriting.clear();
  fBytesOut += pSize;
  fWaitingBytes -= pSize;
  fWaitingMessages -= messages;
  xGuarded([this] {
    if (!fQueue.empty()) xWrite();
  });
  onWritten();
}

// ---- the end ----

void MessageStream::end(const std::string& pReason) {
  asio::post(*fIo, [weak = weak_from_this(), pReason] {
    if (const auto self = weak.lock()) self->xEnd(pReason);
  });
}

void MessageStream::xEnd(const std::string& pReason) {
  if (fEnded) return;
  fEnded = true;
  fQueue.clear();
  error_code ignored;  // it is closed in any case
  fSocket.shutdown(Socket::shutdown_both, ignored);
  fSocket.close(ignored);
  onEnd(pReason);
}

void runUntilDone(asio::io_context& pIo) {
  for (;;) {
    try {
      pIo.run();
      return;
    } catch (const std::exception& error) {
      ki::log::LogStream(ki::log::kError, "ox.transport", "", "run", __LINE__)
          << "Unexpected failure: " << error.what();
    }
  }
}

}  // namespace OX::wire
