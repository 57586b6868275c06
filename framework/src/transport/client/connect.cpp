// Connecting with a time limit. Asio's blocking calls have none, so TCP connects asynchronously on
// an io_context that runs here; a Unix-domain socket uses the system's own limit.
#include "connect.h"

#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <boost/asio/connect.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/system/system_error.hpp>
#include <utility>

#include <oxframework/oxerror.h>
#include "transport/address.h"
#include "transport/socketoptions.h"

namespace OX::wire {
namespace {

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;
using boost::system::system_error;
using Local = asio::local::stream_protocol;

/// Runs until the operation that sets pResult has ended; after pTimeout, pAbort ends it.
template <typename Abort>
void await(asio::io_context& pIo, std::chrono::milliseconds pTimeout, error_code& pResult,
           Abort pAbort) {
  pResult = asio::error::would_block;
  pIo.restart();
  pIo.run_for(pTimeout);
  if (pResult == asio::error::would_block) {
    pAbort();
    pIo.restart();
    pIo.run();
    pResult = asio::error::timed_out;
  }
  if (pResult) throw system_error(pResult);
}

/// Connecting can only wait for room in the server's queue of clients to accept; the socket's send
/// timeout limits that wait.
MessageStream::Socket connectLocal(asio::io_context& pIo, const Address& pAddress,
                                   std::chrono::milliseconds pTimeout) {
  const Local::endpoint endpoint(pAddress.path);
  Local::socket socket(pIo, Local());
  const auto limit = std::max<long>(pTimeout.count(), 1);  // 0 would mean no limit
  const timeval time{limit / 1000, limit % 1000 * 1000};
  ::setsockopt(socket.native_handle(), SOL_SOCKET, SO_SNDTIMEO, &time, sizeof time);
  error_code result;
  socket.connect(endpoint, result);
  // How Asio reports a queue without room.
  if (result == asio::error::no_buffer_space) result = asio::error::timed_out;
  if (result) throw system_error(result);
  setOptions(socket);
  return MessageStream::Socket(std::move(socket));
}

MessageStream::Socket connectTcp(asio::io_context& pIo, const Address& pAddress,
                                 std::chrono::milliseconds pTimeout) {
  const auto deadline = std::chrono::steady_clock::now() + pTimeout;
  error_code result;
  tcp::resolver resolver(pIo);
  tcp::resolver::results_type endpoints;
  resolver.async_resolve(pAddress.resolvableHost(), std::to_string(pAddress.port),
                         [&](const error_code& pError, tcp::resolver::results_type pFound) {
                           result = pError;
                           endpoints = std::move(pFound);
                         });
  await(pIo, pTimeout, result, [&] { resolver.cancel(); });

  tcp::socket socket(pIo);
  asio::async_connect(socket, endpoints,
                      [&](const error_code& pError, const tcp::endpoint&) { result = pError; });
  // One limit for both steps: what the resolver took is no longer available to connect.
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
      deadline - std::chrono::steady_clock::now());
  await(pIo, std::max(left, std::chrono::milliseconds(0)), result, [&] { socket.close(); });
  setOptions(socket);
  return MessageStream::Socket(std::move(socket));
}

}  // namespace

MessageStream::Socket connectTo(asio::io_context& pIo, const std::string& pAddress,
                                std::chrono::milliseconds pTimeout) {
  const Address address = parseAddress(pAddress, "OXRemoteBroker", "connect");
  try {
    return address.isUnix() ? connectLocal(pIo, address, pTimeout)
                            : connectTcp(pIo, address, pTimeout);
  } catch (const system_error& error) {
    raiseError("OXRemoteBroker", "connect",
               "No broker answers at " + address.toString() + ": " + error.code().message());
  }
}

}  // namespace OX::wire
