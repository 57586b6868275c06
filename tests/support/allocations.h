/// Counts how often this program has allocated memory with new, and lets allocations fail.
#pragma once

#include <cstddef>

namespace OX::test {

long allocations();

/// While it lives, one allocation fails with std::bad_alloc, whichever thread makes it: the
/// pNumber-th (from 1) of those of at least pSize bytes.
///
///   const FailingAllocation failure(1, 1000000);
///   EXPECT_FALSE(camera.grab());
///   EXPECT_TRUE(failure.hasHappened());
class FailingAllocation {
 public:
  explicit FailingAllocation(long pNumber, std::size_t pSize = 1);
  ~FailingAllocation();
  FailingAllocation(const FailingAllocation&) = delete;
  FailingAllocation& operator=(const FailingAllocation&) = delete;

  bool hasHappened() const;
};

}  // namespace OX::test
