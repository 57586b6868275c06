/// Frames as the values that callers receive.
#pragma once

#include <span>
#include <vector>

#include <oxframework/oxvalue.h>
#include <oxvision/frame.h>
#include "memory/slots.h"

namespace OX {

class Segment;

/// The array of 12 elements of OXImage::toOXValue(). The value keeps the frame, whose pixels are
/// not copied.
OXValue lentReply(Frame&& pFrame);
/// The same with a copy of the pixels, for callers that may keep the value.
OXValue copiedReply(const Frame& pFrame);
/// One array of 12 elements a frame, with an empty array in place of its pixels, and invalid for an
/// empty frame; then one binary with the pixels of all, in the same order.
OXValue joinedReply(std::span<const Frame> pFrames);
/// The 12 elements with [slot, offset, bytes, generation] in place of the pixels.
OXValue sharedReply(const Frame& pFrame, const Segment& pSegment, const Slots::Slot& pSlot);

}  // namespace OX
