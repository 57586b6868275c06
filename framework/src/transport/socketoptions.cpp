// Options measured with images on both kinds of socket; docs/performance.md has the numbers.
#include "socketoptions.h"

#include <netinet/tcp.h>

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

// A sender that has just recovered from segments out of order, as the loopback of a busy machine
// has them, sends a few at a time; an acknowledgement that is held back for 40 ms to travel with
// data then holds up the rest of an image.
void acknowledgeAtOnce(asio::generic::stream_protocol::socket& pSocket) {
  boost::system::error_code ignored;  // an image comes without it too
  pSocket.set_option(asio::detail::socket_option::boolean<IPPROTO_TCP, TCP_QUICKACK>(true),
                     ignored);
}

}  // namespace OX::wire
