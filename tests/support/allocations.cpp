#include "allocations.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {
std::atomic<long> count{0};
}

// Replaces the program's operators, also for the libraries that it links.
void* operator new(std::size_t pSize) {
  ++count;
  if (void* memory = std::malloc(pSize)) return memory;
  throw std::bad_alloc();
}
void operator delete(void* pMemory) noexcept { std::free(pMemory); }
void operator delete(void* pMemory, std::size_t) noexcept { std::free(pMemory); }

namespace OX::test {
long allocations() { return count.load(); }
}  // namespace OX::test
