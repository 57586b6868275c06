/// The right to work on something for as long as that takes, while no lock is held.
///
/// Bookkeeping is done with fVisionModulesLock held, for microseconds. What takes longer (a wait, a
/// conversion, a copy, a file) is done while that lock is paused; what keeps two threads from doing
/// it to the same thing at once is the turn of that thing. Only calls that need the very same thing
/// wait for its turn: two calls of one subscriber, two changes of the cameras, two reads of the
/// replay.
#pragma once

#include <atomic>
#include <boost/shared_ptr.hpp>
#include <chrono>
#include <thread>

#include <oxframework/oxclock.h>
#include <oxframework/oxlocks.h>
#include <oxframework/oxthreadsafety.h>

namespace OX {

/// Its fields are guarded by the lock that take() and end() are called with. The thread that has
/// the turn may take it again and ends it as often.
class OX_CAPABILITY("turn") Turn {
 public:
  /// pWhat names the work in the error: "call of a subscriber".
  explicit Turn(const char* pWhat) : fWhat(pWhat) {}
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;

  /// Called with pLock held for writing, which is paused while another thread has the turn. That
  /// thread works and waits for nobody, so real time counts, also on the clock of a test; after
  /// 10 s of it, OXError.
  void take(const boost::shared_ptr<OXMutexRW>& pLock) OX_ACQUIRE() OX_REQUIRES(pLock);
  /// The same with a bound of its own, and false, without a record, when that has passed.
  bool tryTake(const boost::shared_ptr<OXMutexRW>& pLock, std::chrono::microseconds pBound)
      OX_REQUIRES(pLock);
  /// Called with the same lock held for writing.
  void end() OX_RELEASE();

  /// For work that never pauses the lock, which is held for reading: takes the turn if nobody has
  /// it. Such a turn ends with endShort(), under the same lock.
  bool tryTakeShort() {
    int free = 0;
    return fDepth.compare_exchange_strong(free, 1);
  }
  void endShort() { fDepth.store(0); }

 private:
  friend class DeviceProbe;  ///< through which tests see that no turn is left over

  const char* fWhat;
  std::thread::id fHolder;
  std::atomic<int> fDepth{0};
  OXWakeup fEnded;
};

/// Has a turn for a scope, at both ends of which pLock is held for writing.
class OX_SCOPED_CAPABILITY TurnScope {
 public:
  // Not checked: the analysis would take pLock, too, for released at the end of the scope.
  TurnScope(Turn& pTurn, const boost::shared_ptr<OXMutexRW>& pLock)
      OX_ACQUIRE(pTurn) OX_NO_THREAD_SAFETY_ANALYSIS : fTurn(pTurn) {
    fTurn.take(pLock);
  }
  ~TurnScope() OX_RELEASE() { fTurn.end(); }
  TurnScope(const TurnScope&) = delete;
  TurnScope& operator=(const TurnScope&) = delete;

 private:
  Turn& fTurn;
};

/// Has a turn for a scope, as TurnScope, if it can be had within a bound.
class BoundedTurn {
 public:
  // Not checked: the analysis knows no scope that may come without what it takes.
  BoundedTurn(Turn& pTurn, const boost::shared_ptr<OXMutexRW>& pLock,
              std::chrono::microseconds pBound) OX_NO_THREAD_SAFETY_ANALYSIS
      : fTurn(pTurn.tryTake(pLock, pBound) ? &pTurn : nullptr) {}
  ~BoundedTurn() OX_NO_THREAD_SAFETY_ANALYSIS {
    if (fTurn) fTurn->end();
  }
  BoundedTurn(const BoundedTurn&) = delete;
  BoundedTurn& operator=(const BoundedTurn&) = delete;

  bool isTaken() const { return fTurn != nullptr; }

 private:
  Turn* fTurn;
};

/// Has a turn for a scope in which the lock is held for reading and never paused, if it is free.
class ShortTurn {
 public:
  explicit ShortTurn(Turn& pTurn) : fTurn(pTurn.tryTakeShort() ? &pTurn : nullptr) {}
  ~ShortTurn() {
    if (fTurn) fTurn->endShort();
  }
  ShortTurn(const ShortTurn&) = delete;
  ShortTurn& operator=(const ShortTurn&) = delete;

  bool isTaken() const { return fTurn != nullptr; }

 private:
  Turn* fTurn;
};

}  // namespace OX
