/// Locks and their scoped holders.
#pragma once

#include <boost/shared_ptr.hpp>
#include <mutex>
#include <vector>

#include <pthread.h>

#include "oxapi.h"

namespace OX {

/// Mutual exclusion; the thread that holds it may take it again.
class OX_API OXMutex {
 public:
  static boost::shared_ptr<OXMutex> createOXMutex();
  void lock() { fMutex.lock(); }
  void unlock() { fMutex.unlock(); }

 private:
  std::recursive_mutex fMutex;
};

/// Many readers or one writer, first come first served: nobody starves. It knows its holders:
///
///   this thread holds \ asks for | reading              | writing
///   nothing                      | waits for its turn   | waits for its turn
///   reading                      | at once, also while  | OXError at once: it would wait
///                                | a writer waits       | for itself
///   writing                      | at once              | at once, counted
///
/// What a thread takes it gives up as often, in any order; a writer that gives up writing while
/// it still reads goes on as a reader. Giving up what is not held throws OXError.
/// Taking and giving up allocate nothing once as many threads as ever read at once have read.
class OX_API OXMutexRW {
 public:
  static boost::shared_ptr<OXMutexRW> createOXMutexRW();
  OXMutexRW();
  ~OXMutexRW();
  OXMutexRW(const OXMutexRW&) = delete;
  OXMutexRW& operator=(const OXMutexRW&) = delete;

  void lockRead();
  void unlockRead();
  void lockWrite();
  void unlockWrite();

  /// Whether the calling thread holds it for writing.
  bool isHeldForWriting() const;

 private:
  struct Holder {
    pthread_t thread;
    int reads;
  };
  struct Waiter;

  Holder* xFindReader(pthread_t pThread);
  void xAddReader(pthread_t pThread);
  void xWait(std::unique_lock<std::mutex>& pGuard, bool pForWriting);
  void xGrant();

  mutable std::mutex fGuard;
  std::vector<Holder> fReaders;  ///< threads that read, the writer among them when it does both
  pthread_t fWriter{};
  int fWriteDepth = 0;
  Waiter* fFirstWaiter = nullptr;  ///< the queue lives on the stacks of those who wait
  Waiter* fLastWaiter = nullptr;
};

/// Scoped holders: take in the constructor, give up in the destructor.
class OX_API OXCriticalSection {
 public:
  explicit OXCriticalSection(boost::shared_ptr<OXMutex> pMutex) : fMutex(std::move(pMutex)) {
    fMutex->lock();
  }
  ~OXCriticalSection() { fMutex->unlock(); }
  OXCriticalSection(const OXCriticalSection&) = delete;
  OXCriticalSection& operator=(const OXCriticalSection&) = delete;

 private:
  boost::shared_ptr<OXMutex> fMutex;
};

class OX_API OXCriticalSectionRead {
 public:
  explicit OXCriticalSectionRead(boost::shared_ptr<OXMutexRW> pMutex) : fMutex(std::move(pMutex)) {
    fMutex->lockRead();
  }
  ~OXCriticalSectionRead() { fMutex->unlockRead(); }
  OXCriticalSectionRead(const OXCriticalSectionRead&) = delete;
  OXCriticalSectionRead& operator=(const OXCriticalSectionRead&) = delete;

 private:
  boost::shared_ptr<OXMutexRW> fMutex;
};

class OX_API OXCriticalSectionWrite {
 public:
  explicit OXCriticalSectionWrite(boost::shared_ptr<OXMutexRW> pMutex) : fMutex(std::move(pMutex)) {
    fMutex->lockWrite();
  }
  ~OXCriticalSectionWrite() { fMutex->unlockWrite(); }
  OXCriticalSectionWrite(const OXCriticalSectionWrite&) = delete;
  OXCriticalSectionWrite& operator=(const OXCriticalSectionWrite&) = delete;

 private:
  boost::shared_ptr<OXMutexRW> fMutex;
};

}  // namespace OX
