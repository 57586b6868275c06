/// The client's end of a connection: matches answers with the threads that wait for them.
#pragma once

#include <chrono>
#include <condition_variable>
#include <map>
#include <optional>
#include <string>

#include <oxframework/oxremotebroker.h>
#include <oxframework/oxthreadsafety.h>
#include "transport/messagestream.h"

namespace OX::wire {

/// call(), notify(), setListener() and isConnected() may be called from any thread.
class ClientStream : public MessageStream {
 public:
  ClientStream(boost::shared_ptr<boost::asio::io_context> pIo, Socket&& pSocket,
               std::string pAddress);
  ~ClientStream() override;

  /// Takes at most pTimeout, also when the request has to wait until it can be sent.
  OXValue call(const std::string& pModule, const std::string& pMethod, const OXValue& pArguments,
               std::chrono::milliseconds pTimeout);
  /// Waits at most pTimeout while too much is queued. Throws OXError when the connection has ended.
  void notify(const std::string& pModule, const std::string& pMethod, const OXValue& pArguments,
              std::chrono::milliseconds pTimeout);
  void setListener(OXRemoteBroker::Listener pListener);
  bool isConnected() const;

 private:
  /// A call under way, on the stack of the thread that waits.
  struct Waiting {
    std::optional<IncomingMessage> answer;
    std::condition_variable answered;
  };

  void onMessage(IncomingMessage&& pMessage) override;
  void onWritten() override;
  void onEnd(const std::string& pReason) override;
  bool mayTakeMessage() const override { return true; }
  std::string getPeer() const override { return fAddress; }

  void xSend(OutgoingMessage&& pMessage, const std::string& pFunction,
             std::chrono::steady_clock::time_point pDeadline);
  void xDispatchEvent(const IncomingMessage& pEvent);

  const std::string fAddress;
  mutable detail::Mutex fGuard;
  std::condition_variable fRoom;  ///< there may be room for further messages
  /// By message id. A call's record is written under the guard too.
  std::map<std::uint32_t, Waiting*> fWaiting OX_GUARDED_BY(fGuard);
  std::uint32_t fLastId OX_GUARDED_BY(fGuard) = 0;
  /// Set once, when the connection has ended.
  std::optional<std::string> fEndReason OX_GUARDED_BY(fGuard);
  boost::shared_ptr<const OXRemoteBroker::Listener> fListener OX_GUARDED_BY(fGuard);
};

}  // namespace OX::wire
