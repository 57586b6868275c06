/// Notices that the peer of a TCP socket is gone while data waits for it.
#pragma once

#include <chrono>
#include <optional>

namespace OX::wire {

/// TCP_USER_TIMEOUT would need no looking, but it also gives up a peer that answers and has no
/// room: a client that is stopped in a debugger. Here a peer is silent when the system has asked it
/// for a sign since it was last heard, by sending data again or by a probe, and none came. One
/// thread only.
class Silence {
 public:
  /// How long the peer has not answered; 0 when it has, when nothing waits for it, and for a socket
  /// of another kind. Has the accuracy of the time between two calls.
  std::chrono::milliseconds look(int pSocket);

 private:
  using Clock = std::chrono::steady_clock;

  std::optional<Clock::time_point> fAsked;  ///< and not heard since
  Clock::time_point fLooked = Clock::now();
  unsigned fSentAgain = 0;  ///< segments, when the peer was last heard
};

}  // namespace OX::wire
