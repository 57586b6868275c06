/// What every connection's socket is set to, on both sides.
#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/local/stream_protocol.hpp>

namespace OX::wire {

/// Messages leave at once, and a peer that is gone is noticed.
void setOptions(boost::asio::ip::tcp::socket& pSocket);

/// Large pieces of an image are on their way at once, as far as the system allows it: else the two
/// sides take turns with the small buffer that such a socket has.
void setOptions(boost::asio::local::stream_protocol::socket& pSocket);

}  // namespace OX::wire
