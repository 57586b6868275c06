// Options measured with images on both kinds of socket; docs/performance.md has the numbers.
#include "socketoptions.h"

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

}  // namespace OX::wire
