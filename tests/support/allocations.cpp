// Replaces the program's operators, also for the libraries that it links.
#include "allocations.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {
std::atomic<long> count{0};
std::atomic<std::size_t> failingSize{0};
std::atomic<long> failing{0};  ///< 0 or less: none fails any more
}  // namespace

void* operator new(std::size_t pSize) {
  ++count;
  if (failing.load() > 0 && pSize >= failingSize.load() && --failing == 0) throw std::bad_alloc();
  if (void* memory = std::malloc(pSize)) return memory;
  throw std::bad_alloc();
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

namespace OX::test {

long allocations() { return count.load(); }

FailingAllocation::FailingAllocation(long pNumber, std::size_t pSize) {
  failingSize = pSize;
  failing = pNumber;
}

FailingAllocation::~FailingAllocation() { failing = 0; }

bool FailingAllocation::hasHappened() const { return failing.load() <= 0; }

}  // namespace OX::test
