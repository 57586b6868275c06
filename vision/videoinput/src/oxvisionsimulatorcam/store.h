/// The frames of one simulated camera.
#pragma once

#include <array>
#include <atomic>
#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <vector>

#include <oxframework/oxclock.h>
#include <oxframework/oxlocks.h>
#include <oxframework/oxthreadsafety.h>
#include "oxvisionbuffer.h"
#include "status/framefeed.h"

namespace OX {

/// Two sets of frames, all with storage for the largest format: what a simulator pushed (RGB), and
/// what was converted from it for subscribers (YUV422).
///
/// fMutex guards the fields and the counts of the frames, for microseconds. Pixels are copied and
/// converted without it: a frame with a write count is being filled, and one with a read count is
/// being read, or lent to as many subscribers; neither is overwritten.
struct CameraDriverBuffer {
  CameraDriverBuffer();

  boost::shared_ptr<OXMutex> fMutex;
  std::vector<boost::shared_ptr<OXVisionBuffer>> fDriverBuffers;  ///< 4 converted frames
  /// Frames that left those while streams kept them, and will take the place of the next that do.
  std::array<boost::shared_ptr<OXVisionBuffer>, 4> fSpareFrames OX_GUARDED_BY(fMutex);
  /// 4 pushed frames. Two do, in turns, until a push comes while one of them is still converted.
  std::vector<boost::shared_ptr<OXVisionBuffer>> fInputBuffers;
  int fCamera = 0;  ///< its index
  /// The newest converted frame; -1: none yet.
  int fLastDriverBuffer OX_GUARDED_BY(fMutex) = -1;
  /// The resolution of pushed frames, whatever the camera's own is.
  int fInputResolution OX_GUARDED_BY(fMutex) = 0;
  /// Pushes so far, and the one that fLastInputBuffer shows: of two at once, the later one counts.
  std::uint64_t fPushCount OX_GUARDED_BY(fMutex) = 0;
  std::uint64_t fNewestPush OX_GUARDED_BY(fMutex) = 0;
  /// The newest complete pushed frame; -1: none since the opening. Also read without fMutex.
  std::atomic<int> fLastInputBuffer{-1};
  /// How often the camera was opened. What was converted before an opening is of the wrong size.
  std::atomic<std::uint64_t> fOpenings{0};
  FrameFeed fFeed OX_GUARDED_BY(fMutex);  ///< the pushes, for the status
  OXWakeup fChanged;                      ///< a push or a conversion has ended
};

}  // namespace OX
