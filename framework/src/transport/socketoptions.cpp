// Options measured with images on both kinds of socket; docs/performance.md has the numbers.
#include "socketoptions.h"

#include <netinet/tcp.h>

#include <algorithm>

namespace OX::wire {
namespace {

namespace asio = boost::asio;
using boost::system::error_code;

// Several times the default; a larger one measured no faster.
constexpr int kSendBufferBytes = 1024 * 1024;

// TCP_RTO_MAX_MS of Linux 6.15, which older headers lack.
constexpr int kRetryAtLeastEveryMs = 44;

}  // namespace

void setOptions(asio::ip::tcp::socket& pSocket) {
  pSocket.set_option(asio::ip::tcp::no_delay(true));
  pSocket.set_option(asio::socket_base::keep_alive(true));
}

void setOptions(asio::local::stream_protocol::socket& pSocket) {
  pSocket.set_option(asio::socket_base::send_buffer_size(kSendBufferBytes));
}

bool isTcp(const asio::generic::stream_protocol::socket& pSocket) {
  error_code ended;
  const auto endpoint = pSocket.local_endpoint(ended);
  return !ended && endpoint.protocol().family() != AF_UNIX;
}

// The probes of an idle connection begin at half the time and come in quarters of it; that three of
// them are lost takes a little longer than the whole. Shorter times leave room for fewer.
void giveUpUnheard(asio::generic::stream_protocol::socket& pSocket, int pSeconds) {
  if (pSeconds <= 0 || !isTcp(pSocket)) return;
  using asio::detail::socket_option::integer;
  // What the system takes at most; longer than a day is for ever in practice.
  constexpr int kMostSeconds = 32767;
  const int seconds = std::min(pSeconds, kMostSeconds);
  pSocket.set_option(integer<IPPROTO_TCP, TCP_KEEPIDLE>(std::max(1, seconds / 2)));
  pSocket.set_option(integer<IPPROTO_TCP, TCP_KEEPINTVL>(std::max(1, seconds / 4)));
  pSocket.set_option(integer<IPPROTO_TCP, TCP_KEEPCNT>(std::min(3, seconds)));
  // A peer without room is asked ever more rarely, after a while every two minutes. Linux before
  // 6.15 leaves it at that: such a peer is then missed later.
  error_code ignored;
  const int mostMs = std::clamp(seconds * 1000 / 4, 1000, 120'000);
  pSocket.set_option(integer<IPPROTO_TCP, kRetryAtLeastEveryMs>(mostMs), ignored);
}

// A sender that has just recovered from segments out of order, as the loopback of a busy machine
// has them, sends a few at a time; an acknowledgement that is held back for 40 ms to travel with
// data then holds up the rest of an image.
void acknowledgeAtOnce(asio::generic::stream_protocol::socket& pSocket) {
  error_code ignored;  // an image comes without it too
  pSocket.set_option(asio::detail::socket_option::boolean<IPPROTO_TCP, TCP_QUICKACK>(true),
                     ignored);
}

}  // namespace OX::wire
