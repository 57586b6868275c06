/// An address that is listened on, and what to do about a client that comes.
#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/shared_ptr.hpp>
#include <functional>
#include <string>

#include "transport/address.h"
#include "transport/stream.h"

namespace OX::wire {

class Listener {
 public:
  /// Called on the io thread with the connection and a text that tells who it is.
  using AcceptHandler = std::function<void(Stream::Socket&&, const std::string& pPeer)>;

  virtual ~Listener();

  /// Listens from now on; clients are handed on while pIo runs. Writes the port that it is into
  /// pAddress. Throws OXError when the address can't be had.
  static boost::shared_ptr<Listener> open(boost::asio::io_context& pIo, Address& pAddress,
                                          AcceptHandler pHandler);

  /// On the io thread. Takes the file of a Unix-domain socket away, if it is still the own one.
  virtual void close() = 0;
};

}  // namespace OX::wire
