/// Annotations by which a compiler checks what each lock protects, and a mutex that carries them.
///
/// Clang's -Wthread-safety reads them: an access to a member without its lock, a lock that is not
/// released on some path, or a call without the lock that it needs is a warning, an error in this
/// project's own clang build. For every other compiler they are empty.
///
///   mutable detail::Mutex fGuard;
///   std::vector<Entry> fEntries OX_GUARDED_BY(fGuard);
///   void xRemove(const std::string& pName) OX_REQUIRES(fGuard);
///
/// A lock may also be named by the smart pointer that holds it:
/// `OX_GUARDED_BY(fVisionModulesLock)` where that is a boost::shared_ptr<OXMutexRW>.
///
/// The analysis looks at one function at a time and skips constructors and destructors. A lambda is
/// a function of its own: annotate it, `[this]() OX_REQUIRES(fGuard) { ... }`. It knows nothing of
/// re-entrance either: a function that holds a lock and takes it again calls another one for that,
/// or is exempted with the reason.
#pragma once

#include <mutex>

#if defined(__clang__)
#define OX_THREAD_ATTRIBUTE(pAttribute) __attribute__((pAttribute))
#else
#define OX_THREAD_ATTRIBUTE(pAttribute)
#endif

/// A class that is a lock; the text is what messages call it ("mutex").
#define OX_CAPABILITY(pName) OX_THREAD_ATTRIBUTE(capability(pName))
/// A class that acquires a lock in its constructor and releases it in its destructor.
#define OX_SCOPED_CAPABILITY OX_THREAD_ATTRIBUTE(scoped_lockable)

/// A member that is read with this lock held at least for reading, written with it held for
/// writing.
#define OX_GUARDED_BY(pLock) OX_THREAD_ATTRIBUTE(guarded_by(pLock))
/// The same for what a pointer or smart pointer points to; the pointer itself is free.
#define OX_PT_GUARDED_BY(pLock) OX_THREAD_ATTRIBUTE(pt_guarded_by(pLock))

/// A function that is called with these locks held for writing, or at least for reading.
#define OX_REQUIRES(...) OX_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define OX_REQUIRES_SHARED(...) OX_THREAD_ATTRIBUTE(requires_shared_capability(__VA_ARGS__))
/// A function that is called with these locks not held, because it takes them itself.
#define OX_EXCLUDES(...) OX_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))

/// A function that acquires these locks, and returns with them held. Without an argument: this.
#define OX_ACQUIRE(...) OX_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define OX_ACQUIRE_SHARED(...) OX_THREAD_ATTRIBUTE(acquire_shared_capability(__VA_ARGS__))
/// A function that releases these locks: held for writing, for reading, or either.
#define OX_RELEASE(...) OX_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define OX_RELEASE_SHARED(...) OX_THREAD_ATTRIBUTE(release_shared_capability(__VA_ARGS__))
#define OX_RELEASE_GENERIC(...) OX_THREAD_ATTRIBUTE(release_generic_capability(__VA_ARGS__))

/// A function that returns only when the calling thread holds the lock: tells the analysis what it
/// can't see.
#define OX_ASSERT_CAPABILITY(pLock) OX_THREAD_ATTRIBUTE(assert_capability(pLock))
/// A function whose body is not checked. A comment beside it says why it is right nevertheless.
#define OX_NO_THREAD_SAFETY_ANALYSIS OX_THREAD_ATTRIBUTE(no_thread_safety_analysis)

namespace OX::detail {

/// std::mutex under the annotations, which libstdc++'s own lacks. For the members of one class; a
/// lock that modules share is an OXMutex or an OXMutexRW (oxlocks.h).
class OX_CAPABILITY("mutex") Mutex {
 public:
  Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  void lock() OX_ACQUIRE() { fMutex.lock(); }
  void unlock() OX_RELEASE() { fMutex.unlock(); }

 private:
  friend class MutexLock;
  std::mutex fMutex;
};

/// Holds a Mutex for a scope. One thread only.
class OX_SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& pMutex) OX_ACQUIRE(pMutex) : fLock(pMutex.fMutex) {}
  ~MutexLock() OX_RELEASE() {}
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

  /// Releases the mutex before the scope ends, and acquires it again.
  void unlock() OX_RELEASE() { fLock.unlock(); }
  void lock() OX_ACQUIRE() { fLock.lock(); }

  /// For the wait of a std::condition_variable, which returns with the mutex held as before.
  std::unique_lock<std::mutex>& native() { return fLock; }

 private:
  std::unique_lock<std::mutex> fLock;
};

}  // namespace OX::detail
