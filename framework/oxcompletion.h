/// Answers that come later: how a published method lets its caller wait without a thread.
#pragma once

#include <boost/shared_ptr.hpp>
#include <functional>
#include <memory>

#include "oxapi.h"
#include "oxdescriptor.h"
#include "oxerror.h"
#include "oxvalue.h"

namespace OX {

/// The answer to one call, given now or later, by any thread. A published method whose last
/// parameter is an OXCompletion keeps it and returns; callers don't see that parameter, and what
/// the method returns is the value that it completes with:
///
///   void Bell::wait(const int& pTimeoutMs, OXCompletion pCompletion);
///   {.name = "wait", .method = operation(&Bell::wait), .parameters = {{"timeoutMs", "..."}}}
///
/// A call from another process then waits on no thread. A call from the broker's own process waits
/// on its caller's until the completion is answered, so a method bounds every wait by a time limit.
/// What a method throws is the answer too.
///
/// Copies are the same completion; the first answer counts, later ones do nothing. When the last
/// copy is destroyed without an answer, the caller gets an error that says so. Thread-safe, and
/// may be used under locks of the owner, except as onCancel() and whenReady() say.
class OX_API OXCompletion {
 public:
  /// Where answers go; supplied by a transport.
  class OX_API Sink {
   public:
    virtual ~Sink();
    /// Called at most once in all, by any thread. pDescriptor is open only if the sink takes one.
    virtual void answer(OXValue&& pResult, OXDescriptor&& pDescriptor) = 0;
    virtual void fail(const OXError& pError) = 0;
    virtual bool takesDescriptor() const = 0;
    virtual void whenReady(std::function<void()> pReady) = 0;
  };

  explicit OXCompletion(std::unique_ptr<Sink> pSink);

  /// The call returns this. May write to the caller's socket on this thread, but never waits.
  void answer(OXValue pResult) const;
  /// The same with a descriptor, which the caller receives with the first byte of its answer. Only
  /// if takesDescriptor(); otherwise the call fails.
  void answer(OXValue pResult, OXDescriptor pDescriptor) const;
  /// The call throws this.
  void fail(const OXError& pError) const;

  /// Whether nobody waits any more: it was answered, or its caller is gone.
  bool isOver() const;
  /// Whether an answer may carry a descriptor: the caller is at the other end of a Unix-domain
  /// socket.
  bool takesDescriptor() const;

  /// Calls pCancelled once when the caller is gone before it was answered, on a thread of the
  /// transport and without its locks; at once if it is gone already. Replaces an earlier one. It
  /// must hold the completion weakly, or not at all: a completion keeps it until it is over. It
  /// must be brief, since the transport waits for it.
  void onCancel(std::function<void()> pCancelled) const;
  /// Calls pReady once when nothing waits any more to be sent to this caller, or it is gone; at
  /// once if that is so already. Large answers need it: one that is made before then only waits in
  /// a queue, grows old and takes memory.
  void whenReady(std::function<void()> pReady) const;

  /// For a transport: what cancels the call because its caller is gone, and what fails it. Both
  /// hold it weakly.
  std::function<void()> xCanceller() const;
  std::function<void(const OXError&)> xFailer() const;

 private:
  class Call;
  boost::shared_ptr<Call> fCall;
};

/// What a transport offers to the call that it makes: to be answered later.
class OX_API OXDeferral {
 public:
  virtual ~OXDeferral();
  /// The completion of the call, which the transport then doesn't answer when it returns. Throws
  /// OXError when too many calls of this caller are waiting. Called at most once.
  virtual OXCompletion defer() = 0;

  /// Offers a deferral, or none, to the next call of the broker that begins on this thread, within
  /// a scope. Calls that this one makes in turn have no part in it.
  class OX_API Scope {
   public:
    explicit Scope(OXDeferral* pDeferral);
    ~Scope();
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

   private:
    OXDeferral* fPrevious;
  };

  /// For the broker: what is offered becomes that of the call under way, for a scope.
  class OX_API Call {
   public:
    Call();
    ~Call();
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

   private:
    OXDeferral* fPrevious;
  };
};

namespace detail {

/// Calls a method that answers later, with the completion that the transport offers, or else one
/// that is waited for: the result then, or what it failed with as an OXError. Invalid when the
/// transport will answer. What pMethod throws is the answer.
OX_API OXValue callDeferred(const std::function<void(OXCompletion)>& pMethod);

}  // namespace detail
}  // namespace OX
