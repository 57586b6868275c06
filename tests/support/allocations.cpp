// Replaces the program's operators, also for the libraries that it links. The forms for arrays and
// those of the library that throw nothing end in the ones below.
#include "allocations.h"

#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <new>
#include <utility>

namespace {

thread_local long count = 0;
std::atomic<std::size_t> failingSize{0};
std::atomic<long> failing{0};  ///< 0 or less: none fails any more
std::atomic<const void*> failingThread{nullptr};
thread_local const char thisThread = 0;  ///< its address tells the threads apart

thread_local OX::test::AtAllocation* atAllocation = nullptr;

bool isToFail(std::size_t pSize) {
  if (failing.load() <= 0 || pSize < failingSize.load()) return false;
  const void* const thread = failingThread.load();
  return (!thread || thread == &thisThread) && --failing == 0;
}

void* allocate(std::size_t pSize, std::size_t pAlignment) {
  ++count;
  if (atAllocation) atAllocation->allocate(pSize);
  void* memory = nullptr;
  if (!isToFail(pSize) && ::posix_memalign(&memory, pAlignment, std::max(pSize, pAlignment)) == 0)
    return memory;
  throw std::bad_alloc();
}

}  // namespace

void* operator new(std::size_t pSize) { return allocate(pSize, alignof(std::max_align_t)); }
void* operator new(std::size_t pSize, std::align_val_t pAlignment) {
  return allocate(pSize, std::max(static_cast<std::size_t>(pAlignment), sizeof(void*)));
}
// The standard library asks for temporary buffers in this way and frees them as below.
void* operator new(std::size_t pSize, const std::nothrow_t&) noexcept {
  try {
    return operator new(pSize);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}
void operator delete(void* pMemory) noexcept { std::free(pMemory); }
void operator delete(void* pMemory, std::size_t) noexcept { std::free(pMemory); }
void operator delete(void* pMemory, std::align_val_t) noexcept { std::free(pMemory); }
void operator delete(void* pMemory, std::size_t, std::align_val_t) noexcept { std::free(pMemory); }

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
extern "C" void* mmap(void* pAddress, std::size_t pSize, int pProtection, int pFlags, int pFile,
                      off_t pOffset) noexcept {
  if ((pFlags & MAP_ANONYMOUS) && isToFail(pSize)) {
    errno = ENOMEM;
    return MAP_FAILED;
  }
  return reinterpret_cast<void*>(
      ::syscall(SYS_mmap, pAddress, pSize, pProtection, pFlags, pFile, pOffset));
}
#endif

namespace OX::test {

long allocations() { return count; }

FailingAllocation::FailingAllocation(long pNumber, std::size_t pSize, Of pOf) {
  failingSize = pSize;
  failingThread = pOf == kThisThread ? &thisThread : nullptr;
  failing = pNumber;
}

FailingAllocation::~FailingAllocation() { failing = 0; }

bool FailingAllocation::hasHappened() const { return failing.load() <= 0; }

AtAllocation::AtAllocation(std::size_t pSize, std::function<void()> pCall)
    : fSize(pSize), fCall(std::move(pCall)) {
  atAllocation = this;
}

AtAllocation::~AtAllocation() { atAllocation = nullptr; }

bool AtAllocation::hasHappened() const { return atAllocation == nullptr; }

// The call may well allocate as much itself.
void AtAllocation::allocate(std::size_t pSize) {
  if (pSize < fSize) return;
  atAllocation = nullptr;
  fCall();
}

}  // namespace OX::test
