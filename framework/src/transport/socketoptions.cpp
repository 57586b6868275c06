// Options measured with images on both kinds of socket; docs/performance.md has the numbers.
#include "socketoptions.h"

#include <netinet/tcp.h>

#include <algorithm>

namespace OX::wire {
namespace {

namespace asio = boost::asio;

// Several times the default; a larger one measured no faster.
constexpr int kSendBufferBytes = 1024 * 1024;

}  // namespace

void setOptions(asio::ip::tcp::socket& pSocket) {
  pSocket.set_option(asio::ip::tcp::no_delay(true));
  pSocket.set_option(asio::socket_base::keep_alive(true));
}

void setOptions(asio::local::stream_protocol::socket& pSocket) {
  pSocket.set_option(asio::socket_base::send_buffer_size(kSendBufferBytes));
}

// The probes of an idle connection begin at half the time, so that a peer that lives has been heard
// before it is over; the system gives up at the first probe after it. Data that is not
// acknowledged, or finds no room at the peer, has the same bound: TCP_USER_TIMEOUT.
void giveUpUnheard(asio::generic::stream_protocol::socket& pSocket, int pSeconds) {
  if (pSeconds <= 0 || pSocket.local_endpoint().protocol().family() == AF_UNIX) return;
  using asio::detail::socket_option::integer;
  // What the system takes at most; longer than a day is for ever in practice.
  constexpr int kMostSeconds = 32767;
  const int seconds = std::min(pSeconds, kMostSeconds);
  pSocket.set_option(integer<IPPROTO_TCP, TCP_KEEPIDLE>(std::max(1, seconds / 2)));
  pSocket.set_option(integer<IPPROTO_TCP, TCP_KEEPINTVL>(std::max(1, seconds / 4)));
  pSocket.set_option(integer<IPPROTO_TCP, TCP_USER_TIMEOUT>(seconds * 1000));
}

// A sender that has just recovered from segments out of order, as the loopback of a busy machine
// has them, sends a few at a time; an acknowledgement that is held back for 40 ms to travel with
// data then holds up the rest of an image.
void acknowledgeAtOnce(asio::generic::stream_protocol::socket& pSocket) {
  boost::system::error_code ignored;  // an image comes without it too
  pSocket.set_option(asio::detail::socket_option::boolean<IPPROTO_TCP, TCP_QUICKACK>(true),
                     ignored);
}

}  // namespace OX::wire
