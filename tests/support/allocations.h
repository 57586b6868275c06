/// Counts how often this program has allocated memory, and lets allocations fail.
#pragma once

#include <cstddef>
#include <functional>

namespace OX::test {

/// How often this thread has allocated memory, with any form of new.
long allocations();

/// While it lives, one allocation fails, whichever thread makes it: the pNumber-th (from 1) of
/// those of at least pSize bytes. Every form of new counts and so does anonymous mmap(), from which
/// images have their pixels; a sanitizer has an mmap() of its own, so there it never fails.
///
///   const FailingAllocation failure(1, 1000000);
///   EXPECT_FALSE(camera.grab());
///   EXPECT_TRUE(failure.hasHappened());
class FailingAllocation {
 public:
  enum Of { kAnyThread, kThisThread };
  explicit FailingAllocation(long pNumber, std::size_t pSize = 1, Of pOf = kAnyThread);
  ~FailingAllocation();
  FailingAllocation(const FailingAllocation&) = delete;
  FailingAllocation& operator=(const FailingAllocation&) = delete;

  bool hasHappened() const;
};

/// Calls pCall in the middle of an operation: when this thread next allocates at least pSize bytes
/// with new. Once, and only while it lives.
class AtAllocation {
 public:
  AtAllocation(std::size_t pSize, std::function<void()> pCall);
  ~AtAllocation();
  AtAllocation(const AtAllocation&) = delete;
  AtAllocation& operator=(const AtAllocation&) = delete;

  bool hasHappened() const;
  void allocate(std::size_t pSize);  ///< called by new

 private:
  const std::size_t fSize;
  std::function<void()> fCall;
};

}  // namespace OX::test
