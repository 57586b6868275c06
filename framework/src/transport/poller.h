/// Waits for many sockets at once and wakes one thread for each that is ready.
#pragma once

#include <boost/shared_ptr.hpp>
#include <boost/weak_ptr.hpp>
#include <cstdint>
#include <unordered_map>

#include <oxframework/oxdescriptor.h>
#include <oxframework/oxthreadsafety.h>

namespace OX::wire {

class MessageStream;

/// A socket is waited for only after arm(), and until one thread has been told that it is ready:
/// that thread has it for itself and arms it again. Thread-safe.
class Poller {
 public:
  struct Ready {
    boost::shared_ptr<MessageStream> stream;  ///< null when the wait ended without one
    std::uint32_t events = 0;                 ///< EPOLLIN and so on
  };

  /// Throws std::system_error.
  Poller();

  /// Returns the number under which a socket is armed. Throws std::system_error or std::bad_alloc.
  std::uint64_t add(int pSocket, const boost::weak_ptr<MessageStream>& pStream);
  /// Replaces what the socket is waited for. Nothing: only its end, once.
  void arm(int pSocket, std::uint64_t pNumber, std::uint32_t pEvents) noexcept;
  /// Before the socket is closed.
  void remove(int pSocket, std::uint64_t pNumber) noexcept;

  /// Waits for a socket or wake(), for at most pTimeoutMs; -1 is for ever. May return without
  /// either.
  Ready wait(int pTimeoutMs);
  /// Ends the wait of one thread, or the next one.
  void wake() noexcept;

 private:
  const OXDescriptor fEpoll;
  const OXDescriptor fWake;
  detail::Mutex fGuard;
  /// A socket's number and not its address is known to the system, whose report may be on its way
  /// to a thread when the stream ends.
  std::unordered_map<std::uint64_t, boost::weak_ptr<MessageStream>> fStreams OX_GUARDED_BY(fGuard);
  std::uint64_t fLastNumber OX_GUARDED_BY(fGuard) = 0;
};

}  // namespace OX::wire
