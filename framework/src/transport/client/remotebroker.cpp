// OXRemoteBroker: one connection and the thread that serves it. The thread ends with the
// connection; the last owner may release the broker on that very thread, which then must not join
// itself.
#include <atomic>
#include <boost/make_shared.hpp>
#include <thread>
#include <utility>

#include <oxframework/oxproxies.h>
#include <oxframework/oxremotebroker.h>
#include <oxframework/oxthreadsafety.h>
#include "clientstream.h"
#include "connect.h"
#include "deadline.h"

namespace OX {
namespace {

constexpr std::chrono::milliseconds kDefaultTimeout(30000);

/// A module of the remote broker.
class RemoteProxy : public OXProxy {
 public:
  RemoteProxy(boost::shared_ptr<OXRemoteBroker> pBroker, const std::string& pName)
      : fBroker(std::move(pBroker)), fName(pName) {}

  const std::string& getModuleName() const override { return fName; }
  OXValue callArray(const std::string& pMethod, const OXValue& pArguments) override {
    return fBroker->call(fName, pMethod, pArguments);
  }

 private:
  const boost::shared_ptr<OXRemoteBroker> fBroker;
  const std::string fName;
};

}  // namespace

class OXRemoteBroker::Impl {
 public:
  Impl(const std::string& pAddress, std::chrono::milliseconds pTimeout)
      : fStream(boost::make_shared<wire::ClientStream>(
            boost::make_shared<wire::Poller>(), wire::connectTo(pAddress, pTimeout), pAddress)) {
    fStream->start();
    // The thread ends with the connection.
    fThread = std::thread([stream = fStream] { stream->serve(); });
  }

  ~Impl() { close(); }

  void close() {
    fStream->close();
    const detail::MutexLock guard(fThreadGuard);
    if (!fThread.joinable()) return;
    // The last owner may release this within the listener.
    if (fThread.get_id() == std::this_thread::get_id())
      fThread.detach();
    else
      fThread.join();
  }

  wire::ClientStream& stream() { return *fStream; }
  std::atomic<std::chrono::milliseconds> fTimeout{kDefaultTimeout};

 private:
  const boost::shared_ptr<wire::ClientStream> fStream;
  detail::Mutex fThreadGuard;
  std::thread fThread OX_GUARDED_BY(fThreadGuard);
};

OXRemoteBroker::OXRemoteBroker(std::unique_ptr<Impl> pImpl) : fImpl(std::move(pImpl)) {}
OXRemoteBroker::~OXRemoteBroker() = default;

boost::shared_ptr<OXRemoteBroker> OXRemoteBroker::connect(const std::string& pAddress,
                                                          std::chrono::milliseconds pTimeout) {
  return boost::shared_ptr<OXRemoteBroker>(
      new OXRemoteBroker(std::make_unique<Impl>(pAddress, pTimeout)));
}

OXValue OXRemoteBroker::call(const std::string& pModule, const std::string& pMethod,
                             const OXValue& pArguments) {
  return call(pModule, pMethod, pArguments, std::chrono::milliseconds(0));
}

OXValue OXRemoteBroker::call(const std::string& pModule, const std::string& pMethod,
                             const OXValue& pArguments, std::chrono::milliseconds pLonger) {
  OXDescriptor ignored;
  return call(pModule, pMethod, pArguments, ignored, pLonger);
}

OXValue OXRemoteBroker::call(const std::string& pModule, const std::string& pMethod,
                             const OXValue& pArguments, OXDescriptor& pDescriptor,
                             std::chrono::milliseconds pLonger) {
  wire::ClientStream::Answer answer = fImpl->stream().call(
      pModule, pMethod, pArguments, wire::sumOf(fImpl->fTimeout.load(), pLonger));
  pDescriptor = std::move(answer.descriptor);
  return std::move(answer.value);
}

void OXRemoteBroker::setTimeout(std::chrono::milliseconds pTimeout) { fImpl->fTimeout = pTimeout; }

void OXRemoteBroker::notify(const std::string& pModule, const std::string& pMethod,
                            const OXValue& pArguments) {
  fImpl->stream().notify(pModule, pMethod, pArguments, fImpl->fTimeout.load());
}

void OXRemoteBroker::setListener(Listener pListener) {
  fImpl->stream().setListener(std::move(pListener));
}

boost::shared_ptr<OXProxy> OXRemoteBroker::getProxy(const std::string& pName) {
  return boost::make_shared<RemoteProxy>(shared_from_this(), pName);
}

bool OXRemoteBroker::isConnected() const { return fImpl->stream().isConnected(); }

void OXRemoteBroker::close() { fImpl->close(); }

}  // namespace OX
