/// Locks that modules share, and their scoped holders.
///
/// Held by boost::shared_ptr, since a scoped holder keeps its lock alive. Both kinds know their
/// holders, so misuse is an OXError and never undefined. What a lock protects is declared with the
/// annotations of oxthreadsafety.h, which clang checks.
#pragma once

#include <atomic>
#include <boost/shared_ptr.hpp>
#include <cstddef>
#include <thread>

#include <pthread.h>

#include "oxapi.h"
#include "oxthreadsafety.h"

namespace OX {

/// Mutual exclusion. The thread that holds it may acquire it again and releases it as often.
/// Thread-safe. lock() waits without a limit; unlock() by a thread that does not hold it throws
/// OXError and changes nothing.
class OX_API OX_CAPABILITY("mutex") OXMutex {
 public:
  static boost::shared_ptr<OXMutex> createOXMutex();
  OXMutex() = default;
  OXMutex(const OXMutex&) = delete;
  OXMutex& operator=(const OXMutex&) = delete;

  void lock() OX_ACQUIRE();
  void unlock() OX_RELEASE();

 private:
  std::mutex fMutex;
  std::atomic<std::thread::id> fHolder{};  ///< no thread when it is free
  int fDepth = 0;                          ///< the holder's own
};

/// Many readers or one writer, first come first served, so that nobody starves. It knows its
/// holders:
///
///   this thread holds \ asks for | reading              | writing
///   nothing                      | waits for its turn   | waits for its turn
///   reading                      | at once, also while  | OXError at once: it would wait
///                                | a writer waits       | for itself
///   writing                      | at once              | at once, counted
///
/// A thread releases what it acquired as often, in any order; a writer that releases writing while
/// it still reads continues as a reader. Releasing what is not held throws OXError and changes
/// nothing. Thread-safe. Waits have no limit. Acquiring and releasing allocate nothing, unless a
/// thread reads more than 16 locks at once. Readers do not slow each other down.
class OX_API OX_CAPABILITY("mutex") OXMutexRW {
 public:
  static boost::shared_ptr<OXMutexRW> createOXMutexRW();
  OXMutexRW();
  ~OXMutexRW();
  OXMutexRW(const OXMutexRW&) = delete;
  OXMutexRW& operator=(const OXMutexRW&) = delete;

  void lockRead() OX_ACQUIRE_SHARED();
  void unlockRead() OX_RELEASE_SHARED();
  void lockWrite() OX_ACQUIRE();
  void unlockWrite() OX_RELEASE();

  /// Whether the calling thread holds it for writing.
  bool isHeldForWriting() const;

  /// Releases writing however often this thread acquired it, and returns how often that was; the
  /// same number makes resumeWrite() wait for its turn and hold it as often again. Throws OXError
  /// as unlockWrite() does.
  int pauseWrite() OX_RELEASE();
  void resumeWrite(int pDepth) OX_ACQUIRE();

 private:
  struct Waiter;
  /// Readers are counted in the slot of their thread, each on a cache line of its own: threads on
  /// different processors read without writing to memory that they share.
  static constexpr std::size_t kSlots = 16;
  struct alignas(64) Slot {
    std::atomic<int> readers{0};
  };

  Slot& xOwnSlot();
  bool xIsRead() const;
  bool xIsWriter() const OX_REQUIRES(fGuard);
  void xWait(detail::MutexLock& pGuard, bool pForWriting) OX_REQUIRES(fGuard);
  void xEndWriting(detail::MutexLock& pGuard) OX_REQUIRES(fGuard);
  void xServeQueue() OX_REQUIRES(fGuard);

  Slot fSlots[kSlots];
  /// Whether somebody writes or waits: readers then ask under fGuard. A reader raises its slot and
  /// then looks here; a writer sets this and then looks at the slots. One of the two sees the
  /// other.
  std::atomic<bool> fIsContended{false};
  mutable detail::Mutex fGuard;
  pthread_t fWriter OX_GUARDED_BY(fGuard){};
  int fWriteDepth OX_GUARDED_BY(fGuard) = 0;
  /// The queue lives on the stacks of the threads that wait.
  Waiter* fFirstWaiter OX_GUARDED_BY(fGuard) = nullptr;
  Waiter* fLastWaiter OX_GUARDED_BY(fGuard) = nullptr;
};

/// Scoped holders: acquire in the constructor, release in the destructor.
/// The constructor throws what the lock throws. The destructor never throws: a lock that was
/// already released by hand stays as it is, with one record of the log at error level.
class OX_API OX_SCOPED_CAPABILITY OXCriticalSection {
 public:
  explicit OXCriticalSection(const boost::shared_ptr<OXMutex>& pMutex) OX_ACQUIRE(pMutex);
  ~OXCriticalSection() OX_RELEASE();
  OXCriticalSection(const OXCriticalSection&) = delete;
  OXCriticalSection& operator=(const OXCriticalSection&) = delete;

 private:
  const boost::shared_ptr<OXMutex> fMutex;
};

/// Holds an OXMutexRW for reading.
class OX_API OX_SCOPED_CAPABILITY OXCriticalSectionRead {
 public:
  explicit OXCriticalSectionRead(const boost::shared_ptr<OXMutexRW>& pMutex)
      OX_ACQUIRE_SHARED(pMutex);
  ~OXCriticalSectionRead() OX_RELEASE_GENERIC();
  OXCriticalSectionRead(const OXCriticalSectionRead&) = delete;
  OXCriticalSectionRead& operator=(const OXCriticalSectionRead&) = delete;

 private:
  const boost::shared_ptr<OXMutexRW> fMutex;
};

/// Holds an OXMutexRW for writing.
class OX_API OX_SCOPED_CAPABILITY OXCriticalSectionWrite {
 public:
  explicit OXCriticalSectionWrite(const boost::shared_ptr<OXMutexRW>& pMutex) OX_ACQUIRE(pMutex);
  ~OXCriticalSectionWrite() OX_RELEASE();
  OXCriticalSectionWrite(const OXCriticalSectionWrite&) = delete;
  OXCriticalSectionWrite& operator=(const OXCriticalSectionWrite&) = delete;

 private:
  const boost::shared_ptr<OXMutexRW> fMutex;
};

/// Releases, for a scope, an OXMutexRW that this thread holds for writing, so that others go on
/// while it works or waits. What the lock guards may have changed afterwards.
class OX_API OX_SCOPED_CAPABILITY OXCriticalSectionPause {
 public:
  explicit OXCriticalSectionPause(const boost::shared_ptr<OXMutexRW>& pMutex) OX_RELEASE(pMutex);
  ~OXCriticalSectionPause() OX_RELEASE();  // the end of the scope: acquires it again
  OXCriticalSectionPause(const OXCriticalSectionPause&) = delete;
  OXCriticalSectionPause& operator=(const OXCriticalSectionPause&) = delete;

 private:
  const boost::shared_ptr<OXMutexRW> fMutex;
  const int fDepth;
};

}  // namespace OX
