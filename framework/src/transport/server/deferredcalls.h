/// The calls of one connection that are answered later.
#pragma once

#include <boost/enable_shared_from_this.hpp>
#include <boost/shared_ptr.hpp>
#include <boost/weak_ptr.hpp>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>

#include <oxframework/oxcompletion.h>
#include <oxframework/oxthreadsafety.h>

namespace OX::wire {

/// Thread-safe. Answers go to the connection, which is held weakly, through Answers.
class DeferredCalls : public boost::enable_shared_from_this<DeferredCalls> {
 public:
  /// What a connection does with the answer to a request, on any thread.
  class Answers {
   public:
    virtual ~Answers() = default;
    virtual void answer(std::uint32_t pRequest, OXValue&& pResult, OXDescriptor&& pDescriptor) = 0;
    virtual void fail(std::uint32_t pRequest, const OXError& pError) = 0;
    virtual bool takesDescriptor() const = 0;
    virtual void whenReady(std::function<void()> pReady) = 0;
  };

  DeferredCalls(boost::weak_ptr<Answers> pAnswers, int pLimit)
      : fAnswers(std::move(pAnswers)), fLimit(pLimit) {}

  /// The completion of a request; one that is over after the end. Throws OXError at the limit.
  OXCompletion defer(std::uint32_t pRequest);
  /// The caller is gone: nothing is answered any more.
  void cancelAll();
  /// Answers all that wait, and those to come.
  void failAll(const OXError& pError);

 private:
  class Sink;
  std::uint64_t xAdd();
  void xForget(std::uint64_t pNumber);

  struct Waiting {
    std::function<void()> cancel;
    std::function<void(const OXError&)> fail;
  };

  const boost::weak_ptr<Answers> fAnswers;
  const int fLimit;
  detail::Mutex fGuard;
  bool fEnded OX_GUARDED_BY(fGuard) = false;
  std::optional<OXError> fError OX_GUARDED_BY(fGuard);  ///< the answer to those that come after
  std::uint64_t fLast OX_GUARDED_BY(fGuard) = 0;
  std::map<std::uint64_t, Waiting> fWaiting OX_GUARDED_BY(fGuard);
};

}  // namespace OX::wire
