#include <oxframework/oxlocks.h>

#include <algorithm>
#include <boost/make_shared.hpp>
#include <condition_variable>

#include <oxframework/oxerror.h>

namespace OX {
namespace {

constexpr std::size_t kExpectedReaders = 64;

[[noreturn]] void fail(const char* pFunction, const char* pText) {
  throw OXError("OXMutexRW", pFunction, pText, "framework/src/oxlocks", __LINE__);
}

}  // namespace

boost::shared_ptr<OXMutex> OXMutex::createOXMutex() { return boost::make_shared<OXMutex>(); }

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

void OXMutexRW::xWait(std::unique_lock<std::mutex>& pGuard, bool pForWriting) {
  Waiter waiter{pthread_self(), pForWriting};
  (fLastWaiter ? fLastWaiter->next : fFirstWaiter) = &waiter;
  fLastWaiter = &waiter;
  xGrant();
  waiter.wake.wait(pGuard, [&] { return waiter.granted; });
}

// Serves the queue from its front: one writer when nobody holds the lock, or all the readers that
// stand in a row. The lock is theirs when they wake, so nobody can overtake them.
void OXMutexRW::xGrant() {
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
  std::unique_lock guard(fGuard);
  const pthread_t self = pthread_self();
  if (xFindReader(self) || (fWriteDepth > 0 && pthread_equal(fWriter, self)))
    xAddReader(self);
  else
    xWait(guard, false);
}

void OXMutexRW::unlockRead() {
  const std::lock_guard guard(fGuard);
  Holder* const holder = xFindReader(pthread_self());
  if (!holder) fail("unlockRead", "This thread does not hold the lock for reading");
  if (--holder->reads > 0) return;
  *holder = fReaders.back();
  fReaders.pop_back();
  xGrant();
}

void OXMutexRW::lockWrite() {
  std::unique_lock guard(fGuard);
  const pthread_t self = pthread_self();
  if (fWriteDepth > 0 && pthread_equal(fWriter, self)) {
    ++fWriteDepth;
    return;
  }
  if (xFindReader(self))
    fail("lockWrite",
         "This thread holds the lock for reading and would wait for itself; "
         "give up reading before asking to write");
  xWait(guard, true);
}

void OXMutexRW::unlockWrite() {
  const std::lock_guard guard(fGuard);
  if (fWriteDepth == 0 || !pthread_equal(fWriter, pthread_self()))
    fail("unlockWrite", "This thread does not hold the lock for writing");
  if (--fWriteDepth == 0) xGrant();
}

bool OXMutexRW::isHeldForWriting() const {
  const std::lock_guard guard(fGuard);
  return fWriteDepth > 0 && pthread_equal(fWriter, pthread_self());
}

}  // namespace OX
