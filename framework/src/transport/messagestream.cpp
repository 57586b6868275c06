// The reading and writing of one connection. The mutex guards who does what and is never held
// during a call of the system that moves bytes, nor while a message, whose pixels may be another
// module's, is destroyed.
#include "messagestream.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/uio.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <system_error>
#include <utility>

#include <oxframework/oxlog.h>
#include "descriptormessage.h"
#include "socketoptions.h"

namespace OX::wire {
namespace {

// The most messages that one batch gathers, and the most pieces that one call of the system takes.
constexpr std::size_t kMessagesPerBatch = 64;
constexpr std::size_t kPiecesPerWrite = 64;
// What is copied into a socket of this machine is copied page by page: a third faster when its
// source is aligned. The system begins a page with each write, so a large piece is begun in the
// write before, to where it is aligned.
constexpr std::size_t kAlignment = 64;
constexpr std::size_t kAlignedFrom = 64 * 1024;

// How long receiving waits at most before it looks at the time. Less than calls usually may take.
constexpr std::chrono::seconds kReceiveLimit(10);

std::string describeError(int pNumber) { return std::system_category().message(pNumber); }

/// Whether to try again, at once or when the poller says so.
bool isForNow(int pError) { return pError == EAGAIN || pError == EWOULDBLOCK || pError == EINTR; }

}  // namespace

MessageStream::MessageStream(boost::shared_ptr<Poller> pPoller, OXDescriptor pSocket,
                             const OXWireLimits& pLimits, bool pTakesDescriptors)
    : fPoller(std::move(pPoller)),
      fIsTcp(isTcp(pSocket.number())),
      fLimits(pLimits),
      fSocket(std::move(pSocket)),
      fScanner(pLimits),
      fTakesDescriptors(pTakesDescriptors && !fIsTcp),
      fHandle(fSocket.number()) {
  // Those who don't want to wait say so in each call.
  const int flags = ::fcntl(fHandle, F_GETFL);
  ::fcntl(fHandle, F_SETFL, flags & ~O_NONBLOCK);
  const timeval limit{kReceiveLimit.count(), 0};
  ::setsockopt(fHandle, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
}

MessageStream::~MessageStream() {
  if (fSocket.isOpen() && fNumber != 0) fPoller->remove(fHandle, fNumber);
}

void MessageStream::start() {
  const detail::MutexLock guard(fGuard);
  fNumber = fPoller->add(fHandle, weak_from_this());
  xArm();
}

// ---- rights ----

void MessageStream::onReady(std::uint32_t pEvents) {
  constexpr std::uint32_t kGone = EPOLLERR | EPOLLHUP;
  bool reads = false;
  bool writes = false;
  {
    const detail::MutexLock guard(fGuard);
    fArmed = 0;
    if (fEnded) return;
    if (fFull && (pEvents & (EPOLLOUT | kGone)) != 0) {
      fFull = false;
      fWriting = writes = true;
    }
    if ((pEvents & (EPOLLIN | kGone)) != 0 && mayRead()) reads = xTryReading();
    xArm();
  }
  if (writes) xWrite();
  if (reads) onReadable();
}

bool MessageStream::xTryReading() {
  if (fReading || fEnded) return false;
  fReading = true;
  xArm();
  return true;
}

void MessageStream::xStopReading() {
  fReading = false;
  xArm();
  xCloseUnused();
}

void MessageStream::xArm() {
  if (fEnded || fNumber == 0) return;
  const std::uint32_t wanted = (!fReading && mayRead() ? EPOLLIN : 0u) | (fFull ? EPOLLOUT : 0u);
  if (wanted == fArmed) return;
  fPoller->arm(fHandle, fNumber, wanted);
  fArmed = wanted;
}

// ---- receiving ----

IncomingMessage MessageStream::xTakeMessage() {
  const std::size_t size = fScanner.getSize();
  // Decoded before it is consumed, since its values may keep using the block in place.
  IncomingMessage message = decode(fReceived.lend(), fReceived.data(), size);
  message.size = size;
  fBytesTaken += size;
  for (; !fDescriptors.empty() && fDescriptors.front().position < fBytesTaken;
       fDescriptors.pop_front())
    message.descriptor = std::move(fDescriptors.front().descriptor);
  fScanner.reset();
  fReceived.consume(size);
  return message;
}

bool MessageStream::xReceive() { return xReceiveSome(MSG_DONTWAIT); }

// Waiting in the call that receives saves one that only waits. The socket's own limit for it is
// never changed, since that would cost a call too; it must not be reached after the deadline.
bool MessageStream::xReceiveUntil(std::chrono::steady_clock::time_point pDeadline) {
  using std::chrono::milliseconds;
  for (;;) {
    const auto left = std::chrono::ceil<milliseconds>(pDeadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) return false;
    if (left > kReceiveLimit) {
      if (xReceiveSome(0)) return true;
    } else {
      pollfd wanted{fHandle, POLLIN, 0};
      if (::poll(&wanted, 1, static_cast<int>(left.count())) > 0 && xReceive()) return true;
    }
    const detail::MutexLock guard(fGuard);
    if (fEnded) return false;
  }
}

bool MessageStream::xReceiveSome(int pFlags) {
  fReceived.prepare(fScanner.getSize(), static_cast<std::size_t>(fLimits.maxMessageBytes));
  if (fIsTcp && fReceived.size() > 0) acknowledgeAtOnce(fHandle);
  const ssize_t got = fTakesDescriptors
                          ? xReceiveWithDescriptor(pFlags)
                          : ::recv(fHandle, fReceived.room(), fReceived.roomSize(), pFlags);
  if (got > 0) {
    fReceived.commit(static_cast<std::size_t>(got));
    fBytesIn += static_cast<std::uint64_t>(got);
    return true;
  }
  if (got == 0 || !isForNow(errno)) end(got == 0 ? "End of file" : describeError(errno));
  return false;
}

// The system ends a call with the bytes that a descriptor was sent with, though those before them
// may have been received by it too: the last byte belongs to the descriptor's message.
ssize_t MessageStream::xReceiveWithDescriptor(int pFlags) {
  iovec room{fReceived.room(), fReceived.roomSize()};
  msghdr message{};
  message.msg_iov = &room;
  message.msg_iovlen = 1;
  DescriptorMessage beside;
  beside.makeRoom(message);
  const ssize_t got = ::recvmsg(fHandle, &message, pFlags | MSG_CMSG_CLOEXEC);
  if (got <= 0) return got;
  if (OXDescriptor descriptor = DescriptorMessage::take(message); descriptor.isOpen()) {
    // One of a message that is not complete, one of the next. Whoever sends more loses them.
    if (fDescriptors.size() == 2) fDescriptors.pop_front();
    fDescriptors.push_back({fBytesIn + static_cast<std::uint64_t>(got) - 1, std::move(descriptor)});
  }
  return got;
}

void MessageStream::xViolated(const std::string& pProblem) {
  {
    const detail::MutexLock guard(fGuard);
    if (fEnded) return;
  }
  try {
    ki::log::LogStream(ki::log::kError, "ox.transport", "", "receive", __LINE__)
        << "Connection of " << getPeer() << " closed: " << pProblem;
  } catch (const std::bad_alloc&) {  // closed without a record, then
  }
  end(pProblem);
}

// ---- sending ----

bool MessageStream::xIsKeepingUp() const {
  return fWaitingBytes <= static_cast<std::size_t>(fLimits.maxMessageBytes) &&
         fWaitingMessages < kMaxWaiting;
}

bool MessageStream::trySend(OutgoingMessage&& pMessage) {
  bool writes;
  {
    const detail::MutexLock guard(fGuard);
    if (!xIsKeepingUp()) return false;
    writes = xQueue(std::move(pMessage));
  }
  if (writes) xWrite();
  return true;
}

void MessageStream::send(OutgoingMessage&& pMessage) {
  bool writes;
  {
    const detail::MutexLock guard(fGuard);
    writes = xQueue(std::move(pMessage));
  }
  if (writes) xWrite();
}

bool MessageStream::xQueue(OutgoingMessage&& pMessage) {
  if (fEnded) return false;
  const std::size_t size = pMessage.getSize();
  fQueue.push_back(std::move(pMessage));
  fWaitingBytes += size;
  ++fWaitingMessages;
  if (fWriting || fFull) return false;
  return fWriting = true;
}

/// With the right to write, which ends here.
void MessageStream::xWrite() {
  const bool fine = xGuarded([this] {
    while (xNextBatch())
      if (xWriteBatch() == Written::kNoRoom) return xAwaitRoom();
  });
  if (fine) return;
  std::vector<OutgoingMessage> dropped;
  const detail::MutexLock guard(fGuard);
  dropped.swap(fBatch);
  fWriting = false;
  xCloseUnused();
}

/// Counts the batch that was written, and takes the next one. False at the end of the queue or of
/// the connection: then the right to write has ended.
bool MessageStream::xNextBatch() {
  std::size_t bytes = 0;
  std::size_t messages = 0;
  if (!fPieces.empty() && fNextPiece == fPieces.size()) {
    for (const OutgoingMessage& message : fBatch) bytes += message.getSize();
    messages = fBatch.size();
    fBatch.clear();
    fPieces.clear();
    fNextPiece = 0;
  }
  bool goesOn = false;
  std::vector<OutgoingMessage>
      dropped;  // of a connection that has ended; destroyed after the guard
  {
    const detail::MutexLock guard(fGuard);
    fWaitingBytes -= bytes;
    fWaitingMessages -= messages;
    goesOn = !fEnded && !(fBatch.empty() && fQueue.empty());
    if (goesOn && fBatch.empty()) xFillBatch();
    if (!goesOn) {
      dropped.swap(fBatch);
      fWriting = false;
      xCloseUnused();
    }
  }
  if (messages > 0) onWritten();
  return goesOn;
}

/// A message with a descriptor is a batch of its own, so that the receiver knows which message it
/// belongs to.
void MessageStream::xFillBatch() {
  while (!fQueue.empty() && fBatch.size() < kMessagesPerBatch) {
    const bool isAlone = fQueue.front().descriptor.isOpen();
    if (isAlone && !fBatch.empty()) return;
    fBatch.push_back(std::move(fQueue.front()));
    fQueue.pop_front();
    if (isAlone) return;
  }
}

MessageStream::Written MessageStream::xWriteBatch() {
  if (fPieces.empty())
    for (const OutgoingMessage& message : fBatch) message.appendPieces(fPieces);
  while (fNextPiece < fPieces.size()) {
    const Written written = xWriteSome();
    if (written != Written::kAll) return written;
  }
  return Written::kAll;
}

/// One call of the system.
MessageStream::Written MessageStream::xWriteSome() {
  iovec pieces[kPiecesPerWrite];
  std::size_t count = 0;
  std::size_t wanted = 0;
  bool isCut = false;
  while (!isCut && count < kPiecesPerWrite && fNextPiece + count < fPieces.size()) {
    const OutgoingMessage::Piece& piece = fPieces[fNextPiece + count];
    const std::size_t offset = reinterpret_cast<std::uintptr_t>(piece.data) % kAlignment;
    isCut = !fIsTcp && piece.size >= kAlignedFrom && (count > 0 || offset > 0);
    pieces[count] = {const_cast<void*>(piece.data), isCut ? kAlignment - offset : piece.size};
    wanted += pieces[count++].iov_len;
  }
  msghdr message{};
  message.msg_iov = pieces;
  message.msg_iovlen = count;
  OXDescriptor& descriptor = fBatch.front().descriptor;
  DescriptorMessage beside;
  if (descriptor.isOpen() && !fIsTcp) beside.attach(message, descriptor.number());
  // Counted before: who has the answer may ask for the count at once.
  fBytesOut += wanted;
  const ssize_t sent = ::sendmsg(fHandle, &message, MSG_DONTWAIT | MSG_NOSIGNAL);
  fBytesOut -= wanted - static_cast<std::size_t>(std::max<ssize_t>(sent, 0));
  if (sent < 0 && isForNow(errno)) return errno == EINTR ? Written::kAll : Written::kNoRoom;
  if (sent < 0) {
    end(describeError(errno));
    return Written::kFailed;
  }
  descriptor = OXDescriptor();
  for (auto left = static_cast<std::size_t>(sent); left > 0;) {
    OutgoingMessage::Piece& piece = fPieces[fNextPiece];
    const std::size_t done = std::min(left, piece.size);
    piece.data = static_cast<const char*>(piece.data) + done;
    piece.size -= done;
    left -= done;
    if (piece.size == 0) ++fNextPiece;
  }
  return Written::kAll;
}

/// Ends the right to write until the poller reports room.
void MessageStream::xAwaitRoom() {
  std::vector<OutgoingMessage> dropped;
  const detail::MutexLock guard(fGuard);
  fWriting = false;
  if (fEnded) {
    dropped.swap(fBatch);
    return xCloseUnused();
  }
  fFull = true;
  xArm();
}

// ---- the end ----

void MessageStream::end(const std::string& pReason) {
  std::deque<OutgoingMessage> queue;
  std::vector<OutgoingMessage> batch;
  {
    const detail::MutexLock guard(fGuard);
    if (fEnded) return;
    fEnded = true;
    queue.swap(fQueue);
    if (!fWriting) batch.swap(fBatch);
    ::shutdown(fHandle, SHUT_RDWR);  // also ends the calls of those who read or write
    xCloseUnused();
  }
  onEnd(pReason);
}

/// Those who read or write use the socket without the guard.
void MessageStream::xCloseUnused() {
  if (!fEnded || fReading || fWriting || !fSocket.isOpen()) return;
  if (fNumber != 0) fPoller->remove(fHandle, fNumber);
  fSocket = OXDescriptor();
}

}  // namespace OX::wire
