/// The memory that a stream shares with its client.
#pragma once

#include <cstddef>
#include <cstdint>

#include <oxframework/oxdescriptor.h>
#include <oxvision/iframesource.h>
#include "slots.h"

namespace OX {

/// Slots for images of any format, one behind the other from page to page. A client can only read
/// them: the seals keep it from writing, and from changing the size under the broker's feet. Pages
/// are taken from the system when they are first written. Thread-safe but for takeDescriptor().
class Segment {
 public:
  static constexpr int kMinSlots = 2;
  static constexpr int kMaxSlots = 32;

  /// Throws OXError when the system refuses it.
  explicit Segment(int pSlots);
  ~Segment();
  Segment(const Segment&) = delete;
  Segment& operator=(const Segment&) = delete;

  static std::int64_t bytesOf(int pSlots);
  static std::int64_t bytesOfSlot();

  /// What a client maps; ours no longer.
  OXDescriptor takeDescriptor() { return std::move(fDescriptor); }
  Slots& slots() { return fSlots; }
  int count() const { return fCount; }
  std::int64_t offsetOf(int pSlot) const { return pSlot * bytesOfSlot(); }
  FrameTarget target(int pSlot) const;

 private:
  const int fCount;
  Slots fSlots;
  OXDescriptor fDescriptor;
  void* fData = nullptr;
};

}  // namespace OX
