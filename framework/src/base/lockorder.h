/// Tells the thread sanitizer who holds an OXMutexRW.
///
/// It knows std::mutex and can't see that OXMutexRW is a lock, so it would find no order of locks
/// with one in it that may end in a deadlock. Every call is made without the lock's guard, which
/// would otherwise be part of the order on both sides. What a thread acquires again is not told.
/// In other builds all of it is empty.
#pragma once

#if defined(__SANITIZE_THREAD__)
#include <sanitizer/tsan_interface.h>
#endif

namespace OX::lockorder {

#if defined(__SANITIZE_THREAD__)

constexpr bool kIsTold = true;

// The lock's own address is that of a member, and the sanitizer reads what it takes for a lock: it
// gets a place inside that is padding.
template <class Lock>
void* nameOf(Lock& pLock) {
  return reinterpret_cast<char*>(&pLock) + sizeof(void*);
}
inline unsigned kindOf(bool pForWriting) { return pForWriting ? 0 : __tsan_mutex_read_lock; }

template <class Lock>
void beforeLock(Lock& pLock, bool pForWriting) {
  __tsan_mutex_pre_lock(nameOf(pLock), kindOf(pForWriting));
}
template <class Lock>
void afterLock(Lock& pLock, bool pForWriting) {
  __tsan_mutex_post_lock(nameOf(pLock), kindOf(pForWriting), 0);
}
template <class Lock>
void beforeUnlock(Lock& pLock, bool pForWriting) {
  __tsan_mutex_pre_unlock(nameOf(pLock), kindOf(pForWriting));
}
template <class Lock>
void afterUnlock(Lock& pLock, bool pForWriting) {
  __tsan_mutex_post_unlock(nameOf(pLock), kindOf(pForWriting));
}
template <class Lock>
void end(Lock& pLock) {
  __tsan_mutex_destroy(nameOf(pLock), 0);
}

#else

constexpr bool kIsTold = false;

template <class Lock>
void beforeLock(Lock&, bool) {}
template <class Lock>
void afterLock(Lock&, bool) {}
template <class Lock>
void beforeUnlock(Lock&, bool) {}
template <class Lock>
void afterUnlock(Lock&, bool) {}
template <class Lock>
void end(Lock&) {}

#endif

}  // namespace OX::lockorder
