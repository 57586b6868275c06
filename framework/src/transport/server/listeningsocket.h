/// A socket that listens on an address and hands accepted clients on.
#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/shared_ptr.hpp>
#include <functional>
#include <string>

#include <oxframework/oxbroker.h>
#include <oxframework/oxdescriptor.h>
#include "transport/address.h"

namespace OX::wire {

class ListeningSocket {
 public:
  /// Called on the io thread with a client's socket and what the socket knows of the client.
  using AcceptHandler = std::function<void(OXDescriptor pSocket, const OXCaller& pClient)>;

  virtual ~ListeningSocket();

  /// Starts to listen; clients are accepted while pIo runs. Writes the port that was chosen into
  /// pAddress. Throws OXError when it cannot listen there.
  static boost::shared_ptr<ListeningSocket> open(boost::asio::io_context& pIo, Address& pAddress,
                                                 AcceptHandler pHandler);

  /// On the io thread. Removes the file of a Unix-domain socket unless another process replaced it.
  virtual void close() = 0;
};

}  // namespace OX::wire
