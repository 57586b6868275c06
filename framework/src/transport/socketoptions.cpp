// Options measured with images on both kinds of socket; docs/performance.md has the numbers.
#include "socketoptions.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <algorithm>

namespace OX::wire {
namespace {

namespace asio = boost::asio;

// Several times the default; a larger one measured no faster.
constexpr int kSendBufferBytes = 1024 * 1024;

// TCP_RTO_MAX_MS of Linux 6.15, which older headers lack.
constexpr int kRetryAtLeastEveryMs = 44;

/// Without it a connection works too.
void setOption(int pSocket, int pOption, int pValue) {
  ::setsockopt(pSocket, IPPROTO_TCP, pOption, &pValue, sizeof pValue);
}

}  // namespace

void setOptions(asio::ip::tcp::socket& pSocket) {
  pSocket.set_option(asio::ip::tcp::no_delay(true));
  pSocket.set_option(asio::socket_base::keep_alive(true));
}

void setOptions(asio::local::stream_protocol::socket& pSocket) {
  pSocket.set_option(asio::socket_base::send_buffer_size(kSendBufferBytes));
}

bool isTcp(int pSocket) {
  int domain = AF_UNIX;
  socklen_t size = sizeof domain;
  ::getsockopt(pSocket, SOL_SOCKET, SO_DOMAIN, &domain, &size);
  return domain != AF_UNIX;
}

// The probes of an idle connection begin at half the time and come in quarters of it; that three of
// them are lost takes a little longer than the whole. Shorter times leave room for fewer.
void giveUpUnheard(int pSocket, int pSeconds) {
  if (pSeconds <= 0 || !isTcp(pSocket)) return;
  // What the system takes at most; longer than a day is for ever in practice.
  constexpr int kMostSeconds = 32767;
  const int seconds = std::min(pSeconds, kMostSeconds);
  setOption(pSocket, TCP_KEEPIDLE, std::max(1, seconds / 2));
  setOption(pSocket, TCP_KEEPINTVL, std::max(1, seconds / 4));
  setOption(pSocket, TCP_KEEPCNT, std::min(3, seconds));
  // A peer without room is asked ever more rarely, after a while every two minutes. Linux before
  // 6.15 leaves it at that: such a peer is then missed later.
  setOption(pSocket, kRetryAtLeastEveryMs, std::clamp(seconds * 1000 / 4, 1000, 120'000));
}

// A sender that has just recovered from segments out of order, as the loopback of a busy machine
// has them, sends a few at a time; an acknowledgement that is held back for 40 ms to travel with
// data then holds up the rest of an image.
void acknowledgeAtOnce(int pSocket) { setOption(pSocket, TCP_QUICKACK, 1); }

}  // namespace OX::wire
