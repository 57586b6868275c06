// Both locks record their holders. Otherwise a thread that would wait for itself, or that releases
// a lock it does not hold, could not be refused with an error.
//
// OXMutexRW keeps a queue in the order of arrival, on the stacks of the threads that wait. The
// releasing thread passes the lock to the front of the queue before any waiter wakes, so none is
// overtaken and neither readers nor writers starve.
#include <oxframework/oxlocks.h>

#include <algorithm>
#include <boost/make_shared.hpp>
#include <condition_variable>
#include <exception>
#include <utility>

#include <oxframework/oxerror.h>
#include <oxframework/oxlog.h>

namespace OX {
namespace {

// Up to as many readers at once, taking the lock allocates nothing.
constexpr std::size_t kExpectedReaders = 64;

// Called by destructors, so it swallows everything, even the failure to log.
template <class Lock>
void releaseQuietly(Lock& pLock, void (Lock::*pRelease)(), const char* pHolder) noexcept {
  try {
    (pLock.*pRelease)();
  } catch (const std::exception& error) {
    try {
      ki::log::log(ki::log::kError, "framework.locks",
                   std::string("The lock was already released: ") + error.what(), "", pHolder, 0);
    } catch (...) {
    }
  }
}

}  // namespace

boost::shared_ptr<OXMutex> OXMutex::createOXMutex() { return boost::make_shared<OXMutex>(); }

// Only the holder itself can find its own id here, so the comparison needs no lock.
void OXMutex::lock() {
  const std::thread::id self = std::this_thread::get_id();
  if (fHolder.load(std::memory_order_relaxed) != self) {
    fMutex.lock();
    fHolder.store(self, std::memory_order_relaxed);
  }
  ++fDepth;
}

void OXMutex::unlock() {
  if (fHolder.load(std::memory_order_relaxed) != std::this_thread::get_id())
    raiseError("OXMutex", "unlock", "This thread does not hold the lock");
  if (--fDepth > 0) return;
  fHolder.store(std::thread::id(), std::memory_order_relaxed);
  fMutex.unlock();
}

boost::shared_ptr<OXMutexRW> OXMutexRW::createOXMutexRW() {
  return boost::make_shared<OXMutexRW>();
}

/// One thread in the queue, on its own stack.
struct OXMutexRW::Waiter {
  pthread_t thread;
  bool forWriting;
  bool granted = false;
  Waiter* next = nullptr;
  std::condition_variable wake{};
};

OXMutexRW::OXMutexRW() { fReaders.reserve(kExpectedReaders); }
OXMutexRW::~OXMutexRW() = default;

OXMutexRW::Holder* OXMutexRW::xFindReader(pthread_t pThread) {
  for (Holder& holder : fReaders)
    if (pthread_equal(holder.thread, pThread)) return &holder;
  return nullptr;
}

void OXMutexRW::xAddReader(pthread_t pThread) {
  if (Holder* holder = xFindReader(pThread))
    ++holder->reads;
  else
    fReaders.push_back({pThread, 1});
}

void OXMutexRW::xWait(detail::MutexLock& pGuard, bool pForWriting) {
  Waiter waiter{pthread_self(), pForWriting};
  (fLastWaiter ? fLastWaiter->next : fFirstWaiter) = &waiter;
  fLastWaiter = &waiter;
  xServeQueue();
  waiter.wake.wait(pGuard.native(), [&] { return waiter.granted; });
}

// Serves the queue from its front: one writer when nobody holds the lock, or all the readers up to
// the next writer. The lock is theirs before they wake.
void OXMutexRW::xServeQueue() {
  while (fFirstWaiter && fWriteDepth == 0) {
    Waiter* const waiter = fFirstWaiter;
    if (waiter->forWriting && !fReaders.empty()) return;
    if (waiter->forWriting) {
      fWriter = waiter->thread;
      fWriteDepth = 1;
    } else {
      xAddReader(waiter->thread);
    }
    fFirstWaiter = waiter->next;
    if (!fFirstWaiter) fLastWaiter = nullptr;
    waiter->granted = true;
    waiter->wake.notify_one();
  }
}

void OXMutexRW::lockRead() {
  detail::MutexLock guard(fGuard);
  const pthread_t self = pthread_self();
  if (xFindReader(self) || (fWriteDepth > 0 && pthread_equal(fWriter, self)))
    xAddReader(self);
  else
    xWait(guard, false);
}

void OXMutexRW::unlockRead() {
  const detail::MutexLock guard(fGuard);
  Holder* const holder = xFindReader(pthread_self());
  if (!holder)
    raiseError("OXMutexRW", "unlockRead", "This thread does not hold the lock for reading");
  if (--holder->reads > 0) return;
  *holder = fReaders.back();
  fReaders.pop_back();
  xServeQueue();
}

void OXMutexRW::lockWrite() {
  detail::MutexLock guard(fGuard);
  const pthread_t self = pthread_self();
  if (fWriteDepth > 0 && pthread_equal(fWriter, self)) {
    ++fWriteDepth;
    return;
  }
  if (xFindReader(self))
    raiseError("OXMutexRW", "lockWrite",
               "This thread holds the lock for reading and would wait for itself; "
               "release it for reading before you ask to write");
  xWait(guard, true);
}

void OXMutexRW::unlockWrite() {
  const detail::MutexLock guard(fGuard);
  if (fWriteDepth == 0 || !pthread_equal(fWriter, pthread_self()))
    raiseError("OXMutexRW", "unlockWrite", "This thread does not hold the lock for writing");
  if (--fWriteDepth == 0) xServeQueue();
}

int OXMutexRW::pauseWrite() {
  const detail::MutexLock guard(fGuard);
  if (fWriteDepth == 0 || !pthread_equal(fWriter, pthread_self()))
    raiseError("OXMutexRW", "pauseWrite", "This thread does not hold the lock for writing");
  const int depth = std::exchange(fWriteDepth, 0);
  xServeQueue();
  return depth;
}

void OXMutexRW::resumeWrite(int pDepth) {
  lockWrite();
  const detail::MutexLock guard(fGuard);
  fWriteDepth = pDepth;
}

bool OXMutexRW::isHeldForWriting() const {
  const detail::MutexLock guard(fGuard);
  return fWriteDepth > 0 && pthread_equal(fWriter, pthread_self());
}

OXCriticalSection::OXCriticalSection(const boost::shared_ptr<OXMutex>& pMutex) : fMutex(pMutex) {
  fMutex->lock();
}

OXCriticalSection::~OXCriticalSection() {
  releaseQuietly(*fMutex, &OXMutex::unlock, "OXCriticalSection");
}

OXCriticalSectionRead::OXCriticalSectionRead(const boost::shared_ptr<OXMutexRW>& pMutex)
    : fMutex(pMutex) {
  fMutex->lockRead();
}

OXCriticalSectionRead::~OXCriticalSectionRead() {
  releaseQuietly(*fMutex, &OXMutexRW::unlockRead, "OXCriticalSectionRead");
}

OXCriticalSectionWrite::OXCriticalSectionWrite(const boost::shared_ptr<OXMutexRW>& pMutex)
    : fMutex(pMutex) {
  fMutex->lockWrite();
}

OXCriticalSectionWrite::~OXCriticalSectionWrite() {
  releaseQuietly(*fMutex, &OXMutexRW::unlockWrite, "OXCriticalSectionWrite");
}

OXCriticalSectionPause::OXCriticalSectionPause(const boost::shared_ptr<OXMutexRW>& pMutex)
    : fMutex(pMutex), fDepth(pMutex->pauseWrite()) {}

OXCriticalSectionPause::~OXCriticalSectionPause() { fMutex->resumeWrite(fDepth); }

}  // namespace OX
