// OXServer: the io thread, the listening sockets and the set of connections. The set is touched on
// the io thread only; close() therefore posts the closing there and waits for the thread to end.
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/make_shared.hpp>
#include <set>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include <oxframework/oxerror.h>
#include <oxframework/oxlog.h>
#include <oxframework/oxserver.h>
#include <oxframework/oxthreadsafety.h>
#include "connection.h"
#include "listeningsocket.h"
#include "transport/socketoptions.h"

namespace OX {
namespace {

namespace asio = boost::asio;

// How long the end of a server waits at most until clients have taken the answers to their calls,
// and how often it looks.
constexpr std::chrono::milliseconds kFlushLimit(500);
constexpr std::chrono::milliseconds kFlushPause(5);

/// Runs until nothing is left to do. A handler that throws is logged and does not end the others.
void runUntilDone(asio::io_context& pIo) {
  for (;;) {
    try {
      pIo.run();
      return;
    } catch (const std::exception& error) {
      ki::log::LogStream(ki::log::kError, "ox.transport", "", "run", __LINE__)
          << "Unexpected failure: " << error.what();
    }
  }
}

void checkLimits(const OXWireLimits& pLimits) {
  const bool sensible = pLimits.maxMessageBytes > 0 && pLimits.maxNesting > 1 &&
                        pLimits.maxArrayElements > 3 && pLimits.maxConnections > 0 &&
                        pLimits.maxRequestsUnderWay > 0 && pLimits.maxRequestsWaiting > 0;
  if (!sensible)
    raiseError("OXServer", "OXServer",
               "The limits leave no room for a call: each must be above 0, nesting at least 2 "
               "and array elements at least 4");
  if (pLimits.keepAliveSeconds < 0)
    raiseError("OXServer", "OXServer", "The time after which clients are given up is negative");
}

}  // namespace

class OXServer::Impl {
 public:
  Impl(const boost::shared_ptr<OXBroker>& pBroker, const OXWireLimits& pLimits)
      : fCore(boost::make_shared<wire::ServerCore>(pBroker, pLimits)),
        fWork(asio::make_work_guard(fCore->io)),
        fLook(fCore->io),
        fThread([core = fCore] { runUntilDone(core->io); }) {}

  ~Impl() { close(); }

  std::string listen(const std::string& pAddress) {
    wire::Address address = wire::parseAddress(pAddress, "OXServer", "listen");
    const detail::MutexLock guard(fGuard);
    if (fClosed) raiseError("OXServer", "listen", "The server is closed");
    fSockets.push_back(wire::ListeningSocket::open(
        fCore->io, address, [this](OXDescriptor pSocket, const OXCaller& pClient) {
          xAccepted(std::move(pSocket), pClient);
        }));
    return address.toString();
  }

  void close() {
    const detail::MutexLock guard(fGuard);
    if (std::exchange(fClosed, true)) return;
    asio::post(fCore->io, [this, sockets = std::exchange(fSockets, {})] {
      for (const auto& socket : sockets) socket->close();
      fIsClosing = true;
      for (const auto& connection : xAll()) connection->failWaiting();
      xEndAll(std::chrono::steady_clock::now() + kFlushLimit);
    });
    fWork.reset();
    // Under the guard, which the io thread never takes.
    fThread.join();
    fCore->threads.stop();
  }

 private:
  /// On the io thread, as everything that touches fConnections.
  void xAccepted(OXDescriptor pSocket, const OXCaller& pClient) {
    const auto limit = static_cast<std::size_t>(fCore->limits.maxConnections);
    // Those that are cleaned up after have as much room again: no client can end faster for ever
    // than what it leaves.
    if (fConnections.size() >= limit || fEnding.size() >= limit) {
      // Logged once until there is room again: a client may try again all the time.
      if (!std::exchange(fFull, true))
        ki::log::LogStream(ki::log::kWarning, "ox.transport", "", "accept", __LINE__)
            << pClient.address << " and further clients were refused: "
            << wire::overLimit(std::to_string(limit + 1) + " connections", limit);
      return;
    }
    fFull = false;
    if (!fCore->threads.ensureWaiting())
      throw std::runtime_error("no thread could be started for it");
    wire::giveUpUnheard(pSocket.number(), fCore->limits.keepAliveSeconds);
    const auto connection = boost::make_shared<wire::Connection>(
        fCore, std::move(pSocket), pClient,
        wire::Connection::Handlers{[this](const auto& pEnded) {
                                     // Allocates nothing, and so can't fail.
                                     fEnding.insert(fConnections.extract(pEnded));
                                   },
                                   [this](const auto& pForgotten) { fEnding.erase(pForgotten); }});
    fConnections.insert(connection);
    try {
      if (fConnections.size() == 1) xLookForSilent();
      connection->begin();
    } catch (...) {  // without memory nothing is left of it
      fConnections.erase(connection);
      throw;
    }
  }

  /// A copy: those that end move to fEnding, and from there they leave.
  std::vector<boost::shared_ptr<wire::Connection>> xAll() const {
    std::vector<boost::shared_ptr<wire::Connection>> all(fConnections.begin(), fConnections.end());
    all.insert(all.end(), fEnding.begin(), fEnding.end());
    return all;
  }

  /// Ends each connection when its client has taken what was sent to it, at the latest at pLimit.
  void xEndAll(std::chrono::steady_clock::time_point pLimit) {
    const bool isOver = std::chrono::steady_clock::now() >= pLimit;
    bool waits = false;
    for (const auto& connection : xAll()) {
      if (isOver || connection->isWritten())
        connection->endWithServer();
      else
        waits = true;
    }
    fLook.cancel();
    if (!waits) return;
    fLook.expires_after(kFlushPause);
    fLook.async_wait([this, pLimit](const boost::system::error_code&) { xEndAll(pLimit); });
  }

  /// Ends connections whose clients are not heard while data waits for them; the system does it for
  /// idle ones. Looks from time to time, for as long as there are connections.
  void xLookForSilent() {
    const std::chrono::seconds limit(fCore->limits.keepAliveSeconds);
    if (limit.count() == 0) return;
    fLook.expires_after(std::chrono::milliseconds(limit) / 4);
    fLook.async_wait([this, limit](const boost::system::error_code& pError) {
      if (pError || fIsClosing) return;
      // A copy: those that end leave.
      for (const auto& connection : std::vector(fConnections.begin(), fConnections.end()))
        connection->endIfSilent(limit);
      if (!fConnections.empty()) xLookForSilent();
    });
  }

  const boost::shared_ptr<wire::ServerCore> fCore;
  // Keeps the io thread running while there is neither a socket nor a connection.
  asio::executor_work_guard<asio::io_context::executor_type> fWork;
  detail::Mutex fGuard;
  std::vector<boost::shared_ptr<wire::ListeningSocket>> fSockets OX_GUARDED_BY(fGuard);
  bool fClosed OX_GUARDED_BY(fGuard) = false;
  // On the io thread only.
  std::set<boost::shared_ptr<wire::Connection>> fConnections;
  /// Those that have ended and are being cleaned up after.
  std::set<boost::shared_ptr<wire::Connection>> fEnding;
  asio::steady_timer fLook;
  bool fIsClosing = false;
  bool fFull = false;  ///< further clients are refused, which has been logged
  std::thread fThread;
};

OXServer::OXServer(const boost::shared_ptr<OXBroker>& pBroker, const OXWireLimits& pLimits) {
  checkLimits(pLimits);
  fImpl = std::make_unique<Impl>(pBroker, pLimits);
}

OXServer::~OXServer() = default;

std::string OXServer::listen(const std::string& pAddress) { return fImpl->listen(pAddress); }

void OXServer::close() { fImpl->close(); }

}  // namespace OX
