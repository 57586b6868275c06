/// How long the stages of a delivery take.
#pragma once

#include <oxframework/oxdurations.h>

namespace OX {

/// Of all streams. Thread-safe.
struct StreamDurations {
  OXDurations wake;  ///< from a frame's arrival to the beginning of its delivery to who waits
  OXDurations join;  ///< the copy of the pixels of several cameras, or for a caller in process
  OXDurations send;  ///< of an answer: its encoding, and the writing of what a socket takes at once
};

}  // namespace OX
