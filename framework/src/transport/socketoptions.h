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

/// False for a socket of another kind.
bool isTcp(int pSocket);

/// Ends an idle TCP connection whose peer has not been heard for so many seconds, within twice
/// that. While data waits to be sent the system does not look: Silence does. Does nothing to a
/// socket of another kind, or for 0.
void giveUpUnheard(int pSocket, int pSeconds);

/// Lets a TCP socket acknowledge what it receives next at once; does nothing to a socket of another
/// kind. The system forgets it after a while, so it is asked for again in the midst of each large
/// message.
void acknowledgeAtOnce(int pSocket);

}  // namespace OX::wire
