// Accepting clients on TCP and Unix-domain sockets. A failure to accept pauses and never stops the
// listening: when descriptors run out, they come back as other connections end.
#include "listeningsocket.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ip/v6_only.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/enable_shared_from_this.hpp>
#include <boost/make_shared.hpp>
#include <new>
#include <thread>
#include <utility>
#include <vector>

#include <oxframework/oxerror.h>
#include <oxframework/oxlog.h>
#include "transport/socketoptions.h"

namespace OX::wire {
namespace {

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;
using boost::system::system_error;
using Local = asio::local::stream_protocol;

// Long enough not to spin while no descriptor is free.
constexpr std::chrono::milliseconds kPauseAfterFailure(100);

OXCaller describeClient(tcp::socket& pSocket, const std::string&) {
  const tcp::endpoint peer = pSocket.remote_endpoint();
  OXCaller client;
  client.address = Address{"", peer.address().to_string(), peer.port()}.toString();
  return client;
}

/// The clients of a Unix-domain socket have no address of their own; the system knows their
/// processes instead.
OXCaller describeClient(Local::socket& pSocket, const std::string& pOwn) {
  OXCaller client;
  client.address = pOwn;
  ucred process{};
  socklen_t size = sizeof process;
  if (::getsockopt(pSocket.native_handle(), SOL_SOCKET, SO_PEERCRED, &process, &size) == 0) {
    client.processId = process.pid;
    client.userId = static_cast<int>(process.uid);
  }
  return client;
}

/// Accepts clients until it is closed.
template <typename Protocol>
class BasicListeningSocket : public ListeningSocket,
                             public boost::enable_shared_from_this<BasicListeningSocket<Protocol>> {
 public:
  using Acceptor = typename Protocol::acceptor;

  BasicListeningSocket(Acceptor&& pAcceptor, const std::string& pName, AcceptHandler pHandler)
      : fAcceptor(std::move(pAcceptor)),
        fPause(fAcceptor.get_executor()),
        fName(pName),
        fHandler(std::move(pHandler)) {}

  /// Tried again without memory: nobody would accept any more.
  void accept() {
    for (;;) {
      try {
        return xAccept();
      } catch (const std::bad_alloc&) {
        std::this_thread::sleep_for(kPauseAfterFailure);
      }
    }
  }

  void close() override {
    error_code ignored;
    fAcceptor.close(ignored);
    fPause.cancel();
  }

 private:
  void xAccept() {
    fAcceptor.async_accept([self = this->shared_from_this()](const error_code& pError,
                                                             typename Protocol::socket pSocket) {
      if (!self->fAcceptor.is_open()) return;
      if (pError) return self->xFailed(pError.message());
      self->xAccepted(std::move(pSocket));
      self->accept();
    });
  }

  void xAccepted(typename Protocol::socket pSocket) {
    fFailing = false;
    try {
      setOptions(pSocket);
      const OXCaller client = describeClient(pSocket, fName);
      // Out of Asio's hands: it would be woken for every byte.
      fHandler(OXDescriptor(pSocket.release()), client);
    } catch (const std::exception& error) {  // it has disconnected, or memory ran out
      ki::log::LogStream(ki::log::kWarning, "ox.transport", "", "accept", __LINE__)
          << "Could not accept a client on " << fName << ": " << error.what();
    }
  }

  /// Logs only the first of several failures in a row: without descriptors there are ten a second.
  void xFailed(const std::string& pReason) {
    if (!std::exchange(fFailing, true))
      ki::log::LogStream(ki::log::kError, "ox.transport", "", "accept", __LINE__)
          << "Cannot accept clients on " << fName << " at the moment: " << pReason;
    fPause.expires_after(kPauseAfterFailure);
    fPause.async_wait([self = this->shared_from_this()](const error_code& pError) {
      if (!pError && self->fAcceptor.is_open()) self->accept();
    });
  }

  Acceptor fAcceptor;
  asio::steady_timer fPause;
  const std::string fName;
  AcceptHandler fHandler;
  bool fFailing = false;
};

/// Also owns the socket file.
class LocalListeningSocket : public BasicListeningSocket<Local> {
 public:
  LocalListeningSocket(Acceptor&& pAcceptor, const Address& pAddress, AcceptHandler pHandler)
      : BasicListeningSocket(std::move(pAcceptor), pAddress.toString(), std::move(pHandler)),
        fPath(pAddress.path) {
    ::stat(fPath.c_str(), &fFile);
  }

  void close() override {
    BasicListeningSocket::close();
    // Another broker may have replaced the file in the meantime.
    struct stat present {};
    const bool own = ::stat(fPath.c_str(), &present) == 0 && present.st_dev == fFile.st_dev &&
                     present.st_ino == fFile.st_ino;
    if (own) ::unlink(fPath.c_str());
  }

 private:
  const std::string fPath;
  struct stat fFile {};
};

bool isSocketFile(const std::string& pPath) {
  struct stat file {};
  return ::lstat(pPath.c_str(), &file) == 0 && S_ISSOCK(file.st_mode);
}

/// Removes a socket file that no process listens on: a broker that was killed leaves one, and no
/// other could bind to the path.
void removeDeadSocket(asio::io_context& pIo, const Local::endpoint& pEndpoint) {
  if (!isSocketFile(pEndpoint.path())) return;
  Local::socket probe(pIo, Local());
  probe.non_blocking(true);  // a full queue is also an answer
  error_code error;
  probe.connect(pEndpoint, error);
  if (error == asio::error::connection_refused) ::unlink(pEndpoint.path().c_str());
}

boost::shared_ptr<ListeningSocket> openLocal(asio::io_context& pIo, const Address& pAddress,
                                             ListeningSocket::AcceptHandler pHandler) {
  const Local::endpoint endpoint(pAddress.path);
  removeDeadSocket(pIo, endpoint);
  const auto listener = boost::make_shared<LocalListeningSocket>(
      Local::acceptor(pIo, endpoint, false), pAddress, std::move(pHandler));
  asio::post(pIo, [listener] { listener->accept(); });
  return listener;
}

/// IPv4 first: clients that use a number instead of a name mostly use the IPv4 one.
std::vector<tcp::endpoint> resolve(asio::io_context& pIo, const Address& pAddress) {
  const auto found = tcp::resolver(pIo).resolve(
      pAddress.resolvableHost(), std::to_string(pAddress.port), tcp::resolver::passive);
  std::vector<tcp::endpoint> endpoints;
  for (const auto& entry : found) endpoints.push_back(entry.endpoint());
  std::stable_partition(endpoints.begin(), endpoints.end(),
                        [](const tcp::endpoint& pOne) { return pOne.address().is_v4(); });
  return endpoints;
}

tcp::acceptor bindFirst(asio::io_context& pIo, const std::vector<tcp::endpoint>& pEndpoints) {
  for (std::size_t i = 0;; ++i) {
    try {
      return tcp::acceptor(pIo, pEndpoints.at(i), true);
    } catch (const system_error&) {
      if (i + 1 == pEndpoints.size()) throw;
    }
  }
}

boost::shared_ptr<ListeningSocket> openTcp(asio::io_context& pIo, Address& pAddress,
                                           ListeningSocket::AcceptHandler pHandler) {
  tcp::acceptor acceptor = bindFirst(pIo, resolve(pIo, pAddress));
  pAddress.port = acceptor.local_endpoint().port();
  const auto listener = boost::make_shared<BasicListeningSocket<tcp>>(
      std::move(acceptor), pAddress.toString(), std::move(pHandler));
  asio::post(pIo, [listener] { listener->accept(); });
  return listener;
}

}  // namespace

ListeningSocket::~ListeningSocket() = default;

boost::shared_ptr<ListeningSocket> ListeningSocket::open(asio::io_context& pIo, Address& pAddress,
                                                         AcceptHandler pHandler) {
  try {
    return pAddress.isUnix() ? openLocal(pIo, pAddress, std::move(pHandler))
                             : openTcp(pIo, pAddress, std::move(pHandler));
  } catch (const system_error& error) {
    raiseError("OXServer", "listen",
               "Cannot listen on " + pAddress.toString() + ": " + error.code().message());
  }
}

}  // namespace OX::wire
