// A completion is a call with one owner of its answer: whoever is the first to end it, by an
// answer, a failure, the caller's end or the destruction of the last copy.
#include <oxframework/oxcompletion.h>

#include <boost/make_shared.hpp>
#include <boost/weak_ptr.hpp>
#include <condition_variable>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include <oxframework/oxlog.h>
#include <oxframework/oxthreadsafety.h>
#include <oxvalue/detail/oxfunctor.h>

namespace OX {
namespace {

/// What was offered to the next call of the broker, and what the call under way may take.
thread_local OXDeferral* tOffered = nullptr;
thread_local OXDeferral* tUnderWay = nullptr;

}  // namespace

OXCompletion::Sink::~Sink() = default;

class OXCompletion::Call {
 public:
  explicit Call(std::unique_ptr<Sink> pSink) : fSink(std::move(pSink)) {}
  ~Call() {
    if (xEnd()) fSink->fail(OXError("OXBroker", "call", "The method ended without an answer"));
  }
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;

  void answer(OXValue&& pResult, OXDescriptor&& pDescriptor) {
    if (!xEnd()) return;
    if (!pDescriptor.isOpen() || fSink->takesDescriptor())
      fSink->answer(std::move(pResult), std::move(pDescriptor));
    else
      fSink->fail(OXError("OXBroker", "call",
                          "The answer has a file descriptor, which only a Unix-domain socket "
                          "can carry"));
  }

  void fail(const OXError& pError) {
    if (xEnd()) fSink->fail(pError);
  }

  void cancel() {
    std::function<void()> cancelled;
    {
      const detail::MutexLock hold(fGuard);
      if (fIsOver) return;
      fIsOver = fIsCancelled = true;
      cancelled.swap(fCancelled);
    }
    if (!cancelled) return;
    try {
      cancelled();
    } catch (const std::exception& error) {  // other calls are to be cancelled too
      ki::log::log(ki::log::kError, "framework.broker",
                   std::string("A cancelled call's module failed: ") + error.what(), "", "cancel",
                   0);
    }
  }

  void onCancel(std::function<void()>&& pCancelled) {
    {
      const detail::MutexLock hold(fGuard);
      if (!fIsCancelled) {
        // A call that is over otherwise has no use for it, and must not keep what it refers to.
        if (!fIsOver) fCancelled.swap(pCancelled);
        return;
      }
    }
    pCancelled();
  }

  bool isOver() const {
    const detail::MutexLock hold(fGuard);
    return fIsOver;
  }

  Sink& sink() { return *fSink; }

 private:
  /// Whether this is the end; false when it had ended before.
  bool xEnd() {
    std::function<void()> dropped;  // destroyed after the lock
    const detail::MutexLock hold(fGuard);
    dropped.swap(fCancelled);
    return !std::exchange(fIsOver, true);
  }

  const std::unique_ptr<Sink> fSink;
  mutable detail::Mutex fGuard;
  bool fIsOver OX_GUARDED_BY(fGuard) = false;
  bool fIsCancelled OX_GUARDED_BY(fGuard) = false;
  std::function<void()> fCancelled OX_GUARDED_BY(fGuard);
};

OXCompletion::OXCompletion(std::unique_ptr<Sink> pSink)
    : fCall(boost::make_shared<Call>(std::move(pSink))) {}

void OXCompletion::answer(OXValue pResult) const {
  fCall->answer(std::move(pResult), OXDescriptor());
}

void OXCompletion::answer(OXValue pResult, OXDescriptor pDescriptor) const {
  fCall->answer(std::move(pResult), std::move(pDescriptor));
}

void OXCompletion::fail(const OXError& pError) const { fCall->fail(pError); }

bool OXCompletion::isOver() const { return fCall->isOver(); }

bool OXCompletion::takesDescriptor() const { return fCall->sink().takesDescriptor(); }

void OXCompletion::onCancel(std::function<void()> pCancelled) const {
  fCall->onCancel(std::move(pCancelled));
}

void OXCompletion::whenReady(std::function<void()> pReady) const {
  fCall->sink().whenReady(std::move(pReady));
}

std::function<void()> OXCompletion::xCanceller() const {
  return [weak = boost::weak_ptr<Call>(fCall)] {
    if (const auto call = weak.lock()) call->cancel();
  };
}

std::function<void(const OXError&)> OXCompletion::xFailer() const {
  return [weak = boost::weak_ptr<Call>(fCall)](const OXError& pError) {
    if (const auto call = weak.lock()) call->fail(pError);
  };
}

// ---- deferral ----

OXDeferral::~OXDeferral() = default;

OXDeferral::Scope::Scope(OXDeferral* pDeferral) : fPrevious(std::exchange(tOffered, pDeferral)) {}

OXDeferral::Scope::~Scope() { tOffered = fPrevious; }

OXDeferral::Call::Call() : fPrevious(std::exchange(tUnderWay, std::exchange(tOffered, nullptr))) {}

OXDeferral::Call::~Call() { tUnderWay = fPrevious; }

namespace {

/// The wait of a caller in this process.
class LocalCall {
 public:
  void answer(OXValue&& pResult) {
    const detail::MutexLock hold(fGuard);
    fResult = std::move(pResult);
    fAnswered.notify_all();
  }
  void fail(const OXError& pError) {
    const detail::MutexLock hold(fGuard);
    fError = pError;
    fAnswered.notify_all();
  }
  OXValue get() {
    detail::MutexLock hold(fGuard);
    fAnswered.wait(hold.native(),
                   [this]() OX_REQUIRES(fGuard) { return fResult.has_value() || fError; });
    if (fError) throw OXError(*fError);
    return std::move(*fResult);
  }

 private:
  detail::Mutex fGuard;
  std::condition_variable fAnswered;
  std::optional<OXValue> fResult OX_GUARDED_BY(fGuard);
  std::optional<OXError> fError OX_GUARDED_BY(fGuard);
};

class LocalSink final : public OXCompletion::Sink {
 public:
  explicit LocalSink(boost::shared_ptr<LocalCall> pCall) : fCall(std::move(pCall)) {}
  void answer(OXValue&& pResult, OXDescriptor&&) override { fCall->answer(std::move(pResult)); }
  void fail(const OXError& pError) override { fCall->fail(pError); }
  bool takesDescriptor() const override { return false; }
  void whenReady(std::function<void()> pReady) override { pReady(); }

 private:
  const boost::shared_ptr<LocalCall> fCall;
};

/// A throwing method's own copy of the completion must not be the last one: that would answer
/// before what it throws can.
void run(const std::function<void(OXCompletion)>& pMethod, const OXCompletion& pCompletion) {
  try {
    pMethod(pCompletion);
  } catch (...) {
    pCompletion.fail(detail::currentError());
  }
}

}  // namespace

OXValue detail::callDeferred(const std::function<void(OXCompletion)>& pMethod) {
  // Taken once: the method's own calls have no part in it.
  if (OXDeferral* const deferral = std::exchange(tUnderWay, nullptr)) {
    run(pMethod, deferral->defer());
    return {};
  }
  const auto call = boost::make_shared<LocalCall>();
  run(pMethod, OXCompletion(std::make_unique<LocalSink>(call)));
  return call->get();
}

}  // namespace OX
