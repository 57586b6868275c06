/// A frame in shared memory before it is asked for.
#pragma once

#include <boost/shared_ptr.hpp>
#include <optional>
#include <utility>

#include <oxvision/frame.h>
#include "segment.h"

namespace OX {

/// A client that keeps up with its camera is about to ask for the frame that has just come: when it
/// does, the pixels are there. Has the slot until somebody takes it over. One thread only.
class AheadFrame {
 public:
  AheadFrame(boost::shared_ptr<Segment> pSegment, const Slots::Slot& pSlot)
      : fSegment(std::move(pSegment)), fSlot(pSlot) {}
  ~AheadFrame() {
    if (fSlot) fSegment->slots().putBack(*fSlot);
  }
  AheadFrame(const AheadFrame&) = delete;
  AheadFrame& operator=(const AheadFrame&) = delete;

  Frame& frame() { return fFrame; }
  FrameTarget target() const { return fSegment->target(fSlot->index); }
  Slots::Slot takeSlot() { return *std::exchange(fSlot, {}); }

 private:
  const boost::shared_ptr<Segment> fSegment;
  std::optional<Slots::Slot> fSlot;
  Frame fFrame;  ///< refers to the slot
};

}  // namespace OX
