// Both locks record their holders. Otherwise a thread that would wait for itself, or that releases
// a lock it does not hold, could not be refused with an error.
//
// OXMutexRW keeps a queue in the order of arrival, on the stacks of the threads that wait. The
// releasing thread passes the lock to the front of the queue before any waiter wakes, so none is
// overtaken and neither readers nor writers starve. While nobody writes or waits, readers take part
// in none of that: they count themselves and look at one flag.
#include <oxframework/oxlocks.h>

#include <algorithm>
#include <boost/make_shared.hpp>
#include <condition_variable>
#include <exception>
#include <iterator>
#include <vector>

#include <oxframework/oxerror.h>
#include <oxframework/oxlog.h>
#include "lockorder.h"

namespace OX {
namespace {

// A waiter looks for its turn this often, some microseconds, before it sleeps: most locks are held
// for less than it takes to fall asleep and wake.
constexpr int kSpins = 100;

void relax() {
#if defined(__x86_64__)
  __builtin_ia32_pause();
#endif
}

/// The locks that this thread reads. Few at once, so a search from the newest is short.
class ReadLocks {
 public:
  struct Entry {
    const void* lock;
    int reads;
  };

  Entry* find(const void* pLock) {
    for (std::size_t i = fCount; i > 0; --i)
      if (xAt(i - 1).lock == pLock) return &xAt(i - 1);
    return nullptr;
  }
  /// Makes room, so that add() can't fail.
  void reserve() {
    if (fCount >= kInPlace) fMore.reserve(fCount - kInPlace + 1);
  }
  void add(const void* pLock) {
    if (fCount >= kInPlace) fMore.emplace_back();
    xAt(fCount++) = {pLock, 1};
  }
  void remove(Entry& pEntry) {
    pEntry = xAt(--fCount);
    if (fCount >= kInPlace) fMore.pop_back();
  }

 private:
  static constexpr std::size_t kInPlace = 16;
  Entry& xAt(std::size_t pIndex) {
    return pIndex < kInPlace ? fInPlace[pIndex] : fMore[pIndex - kInPlace];
  }

  std::size_t fCount = 0;
  Entry fInPlace[kInPlace] = {};
  std::vector<Entry> fMore;
};

thread_local ReadLocks tReadLocks;

// Threads are numbered as they first read, so that few of those that run at once share a slot.
std::size_t numberOfThread() {
  static std::atomic<std::size_t> next{0};
  thread_local const std::size_t number = next++;
  return number;
}

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

/// One thread in the queue, on its own stack, which it may leave as soon as granted is set.
struct OXMutexRW::Waiter {
  pthread_t thread;
  Slot& slot;
  bool forWriting;
  bool sleeps = false;
  Waiter* next = nullptr;
  std::condition_variable wake{};
  std::atomic<bool> granted{false};
};

OXMutexRW::OXMutexRW() = default;
OXMutexRW::~OXMutexRW() { lockorder::end(*this); }

OXMutexRW::Slot& OXMutexRW::xOwnSlot() { return fSlots[numberOfThread() % kSlots]; }

bool OXMutexRW::xIsRead() const {
  return std::any_of(std::begin(fSlots), std::end(fSlots),
                     [](const Slot& pSlot) { return pSlot.readers.load() > 0; });
}

bool OXMutexRW::xIsWriter() const {
  return fWriteDepth > 0 && pthread_equal(fWriter, pthread_self());
}

// The last thing that an acquisition does. Not checked: it ends without the guard.
void OXMutexRW::xWait(detail::MutexLock& pGuard, bool pForWriting) OX_NO_THREAD_SAFETY_ANALYSIS {
  if (lockorder::kIsTold) {
    pGuard.unlock();
    lockorder::beforeLock(*this, pForWriting);
    pGuard.lock();
  }
  Waiter waiter{pthread_self(), xOwnSlot(), pForWriting};
  fIsContended.store(true);
  (fLastWaiter ? fLastWaiter->next : fFirstWaiter) = &waiter;
  fLastWaiter = &waiter;
  xServeQueue();
  pGuard.unlock();
  for (int i = 0; i < kSpins && !waiter.granted.load(std::memory_order_acquire); ++i) relax();
  if (!waiter.granted.load(std::memory_order_acquire)) {
    pGuard.lock();
    waiter.sleeps = true;
    waiter.wake.wait(pGuard.native(), [&] { return waiter.granted.load(); });
    pGuard.unlock();
  }
  lockorder::afterLock(*this, pForWriting);
}

// Serves the queue from its front: one writer when nobody holds the lock, or all the readers up to
// the next writer. The lock is theirs before they wake.
void OXMutexRW::xServeQueue() {
  while (fFirstWaiter && fWriteDepth == 0) {
    Waiter* const waiter = fFirstWaiter;
    if (waiter->forWriting) {
      if (xIsRead()) return;
      fWriter = waiter->thread;
      fWriteDepth = 1;
    } else {
      ++waiter->slot.readers;
    }
    fFirstWaiter = waiter->next;
    if (!fFirstWaiter) fLastWaiter = nullptr;
    if (waiter->sleeps) waiter->wake.notify_one();
    waiter->granted.store(true, std::memory_order_release);
  }
  fIsContended.store(fFirstWaiter || fWriteDepth > 0);
}

void OXMutexRW::lockRead() {
  ReadLocks& own = tReadLocks;
  if (ReadLocks::Entry* const entry = own.find(this)) {
    ++entry->reads;
    return;
  }
  own.reserve();
  Slot& slot = xOwnSlot();
  ++slot.readers;
  if (fIsContended.load()) {
    --slot.readers;
    detail::MutexLock guard(fGuard);
    if (xIsWriter())
      ++slot.readers;
    else
      xWait(guard, false);  // also serves a writer that has seen this thread in its slot
  } else {
    lockorder::beforeLock(*this, false);
    lockorder::afterLock(*this, false);
  }
  own.add(this);
}

void OXMutexRW::unlockRead() {
  ReadLocks::Entry* const entry = tReadLocks.find(this);
  if (!entry)
    raiseError("OXMutexRW", "unlockRead", "This thread does not hold the lock for reading");
  if (--entry->reads > 0) return;
  const bool isTold = lockorder::kIsTold && !isHeldForWriting();
  if (isTold) lockorder::beforeUnlock(*this, false);
  tReadLocks.remove(*entry);
  --xOwnSlot().readers;
  if (fIsContended.load()) {
    const detail::MutexLock guard(fGuard);
    xServeQueue();
  }
  if (isTold) lockorder::afterUnlock(*this, false);
}

void OXMutexRW::lockWrite() {
  detail::MutexLock guard(fGuard);
  if (xIsWriter()) {
    ++fWriteDepth;
    return;
  }
  if (tReadLocks.find(this))
    raiseError("OXMutexRW", "lockWrite",
               "This thread holds the lock for reading and would wait for itself; "
               "release it for reading before you ask to write");
  xWait(guard, true);
}

void OXMutexRW::unlockWrite() {
  detail::MutexLock guard(fGuard);
  if (!xIsWriter())
    raiseError("OXMutexRW", "unlockWrite", "This thread does not hold the lock for writing");
  if (fWriteDepth == 1)
    xEndWriting(guard);
  else
    --fWriteDepth;
}

int OXMutexRW::pauseWrite() {
  detail::MutexLock guard(fGuard);
  if (!xIsWriter())
    raiseError("OXMutexRW", "pauseWrite", "This thread does not hold the lock for writing");
  const int depth = fWriteDepth;
  xEndWriting(guard);
  return depth;
}

// The last thing that a release does. Not checked: it ends without the guard.
void OXMutexRW::xEndWriting(detail::MutexLock& pGuard) OX_NO_THREAD_SAFETY_ANALYSIS {
  if (lockorder::kIsTold) {
    pGuard.unlock();
    lockorder::beforeUnlock(*this, true);
    pGuard.lock();
  }
  fWriteDepth = 0;
  xServeQueue();
  pGuard.unlock();
  lockorder::afterUnlock(*this, true);
  if (!lockorder::kIsTold || !tReadLocks.find(this)) return;
  lockorder::beforeLock(*this, false);
  lockorder::afterLock(*this, false);
}

void OXMutexRW::resumeWrite(int pDepth) {
  lockWrite();
  if (pDepth == 1) return;
  const detail::MutexLock guard(fGuard);
  fWriteDepth = pDepth;
}

bool OXMutexRW::isHeldForWriting() const {
  const detail::MutexLock guard(fGuard);
  return xIsWriter();
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
