/// The options of every connection's socket, on both sides.
#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/local/stream_protocol.hpp>

namespace OX::wire {

/// Sends messages at once, and detects a peer that has vanished.
void setOptions(boost::asio::ip::tcp::socket& pSocket);

/// Enlarges the send buffer as far as the system allows: with the small default the two sides would
/// take turns for every part of an image.
void setOptions(boost::asio::local::stream_protocol::socket& pSocket);

}  // namespace OX::wire
