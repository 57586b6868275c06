/// A file descriptor with an owner.
#pragma once

#include <utility>

#include "oxapi.h"

namespace OX {

/// Closes the descriptor that it owns. Movable; one thread only.
class OX_API OXDescriptor {
 public:
  OXDescriptor() = default;
  /// Takes pNumber over; negative: owns none.
  explicit OXDescriptor(int pNumber) : fNumber(pNumber < 0 ? -1 : pNumber) {}
  OXDescriptor(OXDescriptor&& pOther) noexcept : fNumber(pOther.release()) {}
  OXDescriptor& operator=(OXDescriptor&& pOther) noexcept {
    std::swap(fNumber, pOther.fNumber);
    return *this;
  }
  OXDescriptor(const OXDescriptor&) = delete;
  OXDescriptor& operator=(const OXDescriptor&) = delete;
  ~OXDescriptor();

  bool isOpen() const { return fNumber >= 0; }
  /// Borrowed; -1 when it owns none.
  int number() const { return fNumber; }
  /// Gives the ownership up.
  int release() { return std::exchange(fNumber, -1); }

 private:
  int fNumber = -1;
};

}  // namespace OX
