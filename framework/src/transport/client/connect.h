/// The way to a server: a connected socket, within a time limit.
#pragma once

#include <boost/asio/io_context.hpp>
#include <chrono>
#include <string>

#include "transport/stream.h"

namespace OX::wire {

/// Connects to an address. pIo must not be running: it runs here for as long as it takes.
/// Throws OXError that names the address and says why it did not answer.
Stream::Socket connectTo(boost::asio::io_context& pIo, const std::string& pAddress,
                         std::chrono::milliseconds pTimeout);

}  // namespace OX::wire
