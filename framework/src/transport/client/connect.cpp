// Connecting with a time limit. Asio's blocking calls have none, so TCP connects asynchronously on
// an io_context that runs here; a Unix-domain socket uses the system's own limit. Names are
// resolved on a thread that is left behind when the limit comes first: the system's resolver can't
// be interrupted, and Asio's own would keep the io_context waiting for it.
#include "connect.h"

#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <boost/asio/connect.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/system/system_error.hpp>
#include <future>
#include <system_error>
#include <thread>
#include <utility>

#include <oxframework/oxerror.h>
#include "deadline.h"
#include "transport/address.h"
#include "transport/socketoptions.h"

namespace OX::wire {
namespace {

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;
using boost::system::system_error;
using Local = asio::local::stream_protocol;
using Endpoints = tcp::resolver::results_type;

/// The addresses of a host, found by the system before pDeadline.
Endpoints resolve(const Address& pAddress, std::chrono::steady_clock::time_point pDeadline) {
  const std::string host = pAddress.resolvableHost();
  const auto port = static_cast<unsigned short>(pAddress.port);
  error_code notNumeric;
  const asio::ip::address numeric = asio::ip::make_address(host, notNumeric);
  if (!notNumeric) return Endpoints::create(tcp::endpoint(numeric, port), host, "");

  struct Found {
    Endpoints endpoints;
    error_code result;
  };
  // The task owns all that it uses, since it may outlive this call.
  std::packaged_task<Found()> task([host, port] {
    asio::io_context io;
    Found found;
    found.endpoints = tcp::resolver(io).resolve(host, std::to_string(port), found.result);
    return found;
  });
  std::future<Found> future = task.get_future();
  std::thread(std::move(task)).detach();
  if (future.wait_until(pDeadline) != std::future_status::ready)
    throw system_error(asio::error::timed_out);
  Found found = future.get();
  if (found.result) throw system_error(found.result);
  return found.endpoints;
}

/// Connecting can only wait for room in the server's queue of clients to accept; the socket's send
/// timeout limits that wait.
OXDescriptor connectLocal(const Address& pAddress, std::chrono::milliseconds pTimeout) {
  asio::io_context io;
  const Local::endpoint endpoint(pAddress.path);
  Local::socket socket(io, Local());
  const auto limit = std::max<long>(pTimeout.count(), 1);  // 0 would mean no limit
  const timeval time{limit / 1000, limit % 1000 * 1000};
  ::setsockopt(socket.native_handle(), SOL_SOCKET, SO_SNDTIMEO, &time, sizeof time);
  error_code result;
  socket.connect(endpoint, result);
  // How Asio reports a queue without room.
  if (result == asio::error::no_buffer_space) result = asio::error::timed_out;
  if (result) throw system_error(result);
  setOptions(socket);
  return OXDescriptor(socket.release());
}

OXDescriptor connectTcp(const Address& pAddress, std::chrono::milliseconds pTimeout) {
  // One limit for both steps: what the resolver takes is no longer available to connect.
  const auto deadline = deadlineAfter(pTimeout);
  const Endpoints endpoints = resolve(pAddress, deadline);
  asio::io_context io;
  tcp::socket socket(io);
  error_code result = asio::error::would_block;
  asio::async_connect(socket, endpoints,
                      [&](const error_code& pError, const tcp::endpoint&) { result = pError; });
  io.run_until(deadline);
  if (result == asio::error::would_block) {
    socket.close();
    io.restart();
    io.run();
    result = asio::error::timed_out;
  }
  if (result) throw system_error(result);
  setOptions(socket);
  return OXDescriptor(socket.release());
}

}  // namespace

OXDescriptor connectTo(const std::string& pAddress, std::chrono::milliseconds pTimeout) {
  const Address address = parseAddress(pAddress, "OXRemoteBroker", "connect");
  try {
    return address.isUnix() ? connectLocal(address, pTimeout) : connectTcp(address, pTimeout);
  } catch (const system_error& error) {
    raiseError("OXRemoteBroker", "connect",
               "No broker answers at " + address.toString() + ": " + error.code().message());
  } catch (const std::system_error& error) {  // no thread for the resolver
    raiseError("OXRemoteBroker", "connect",
               "Cannot resolve " + address.toString() + ": " + error.code().message());
  }
}

}  // namespace OX::wire
