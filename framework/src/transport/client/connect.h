/// Connects to a server within a time limit.
#pragma once

#include <boost/asio/io_context.hpp>
#include <chrono>
#include <string>

#include "transport/messagestream.h"

namespace OX::wire {

/// Returns a socket connected to an address. pIo must not be running: this function runs it.
/// Throws OXError that names the address and the reason of the failure.
MessageStream::Socket connectTo(boost::asio::io_context& pIo, const std::string& pAddress,
                                std::chrono::milliseconds pTimeout);

}  // namespace OX::wire
