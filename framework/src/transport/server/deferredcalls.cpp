// Each call is noted by a number of its own, since a client chooses its request numbers and may use
// one twice.
#include "deferredcalls.h"

#include <memory>
#include <string>
#include <utility>

#include <oxframework/oxerror.h>

namespace OX::wire {

class DeferredCalls::Sink final : public OXCompletion::Sink {
 public:
  Sink(boost::shared_ptr<DeferredCalls> pCalls, std::uint64_t pNumber, std::uint32_t pRequest)
      : fCalls(std::move(pCalls)), fNumber(pNumber), fRequest(pRequest) {}
  ~Sink() override { fCalls->xForget(fNumber); }

  void answer(OXValue&& pResult, OXDescriptor&& pDescriptor) override {
    if (const auto answers = fCalls->fAnswers.lock())
      answers->answer(fRequest, std::move(pResult), std::move(pDescriptor));
  }
  void fail(const OXError& pError) override {
    if (const auto answers = fCalls->fAnswers.lock()) answers->fail(fRequest, pError);
  }
  bool takesDescriptor() const override {
    const auto answers = fCalls->fAnswers.lock();
    return answers && answers->takesDescriptor();
  }
  void whenReady(std::function<void()> pReady) override {
    if (const auto answers = fCalls->fAnswers.lock())
      answers->whenReady(std::move(pReady));
    else
      pReady();
  }

 private:
  const boost::shared_ptr<DeferredCalls> fCalls;
  const std::uint64_t fNumber;
  const std::uint32_t fRequest;
};

std::uint64_t DeferredCalls::xAdd() {
  const detail::MutexLock hold(fGuard);
  if (fWaiting.size() >= static_cast<std::size_t>(fLimit))
    raiseError("OXServer", "call",
               "This connection has " + std::to_string(fLimit) +
                   " calls waiting already, which is the limit: wait for an answer first");
  fWaiting.emplace(fLast + 1, Waiting{});
  return ++fLast;
}

OXCompletion DeferredCalls::defer(std::uint32_t pRequest) {
  const std::uint64_t number = xAdd();
  std::unique_ptr<Sink> sink;
  try {
    sink = std::make_unique<Sink>(shared_from_this(), number, pRequest);
  } catch (...) {
    xForget(number);
    throw;
  }
  OXCompletion completion(std::move(sink));
  Waiting waiting{completion.xCanceller(), completion.xFailer()};
  std::optional<OXError> error;
  {
    const detail::MutexLock hold(fGuard);
    if (!fEnded) {
      fWaiting[number] = std::move(waiting);
      return completion;
    }
    error = fError;
  }
  if (error)
    waiting.fail(*error);
  else
    waiting.cancel();
  return completion;
}

void DeferredCalls::xForget(std::uint64_t pNumber) {
  const detail::MutexLock hold(fGuard);
  fWaiting.erase(pNumber);
}

void DeferredCalls::cancelAll() {
  std::map<std::uint64_t, Waiting> waiting;  // called without the lock
  {
    const detail::MutexLock hold(fGuard);
    fEnded = true;
    fError.reset();
    waiting.swap(fWaiting);
  }
  // One that begins just now has none of these yet, and finds that all has ended.
  for (const auto& [number, call] : waiting)
    if (call.cancel) call.cancel();
}

void DeferredCalls::failAll(const OXError& pError) {
  std::map<std::uint64_t, Waiting> waiting;
  {
    const detail::MutexLock hold(fGuard);
    fEnded = true;
    fError = pError;
    waiting = fWaiting;
  }
  for (const auto& [number, call] : waiting)
    if (call.fail) call.fail(pError);
}

}  // namespace OX::wire
