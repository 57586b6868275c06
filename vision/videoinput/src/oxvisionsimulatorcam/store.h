/// The frames of one simulated camera.
#pragma once

#include <atomic>
#include <boost/shared_ptr.hpp>
#include <vector>

#include <oxframework/oxlocks.h>
#include <oxframework/oxthreadsafety.h>
#include "oxvisionbuffer.h"

namespace OX {

/// Two sets of frames, all with storage for the largest format: what a simulator pushed (RGB), and
/// what was converted from it for subscribers (YUV422). fMutex guards writing to both. The read
/// counts in fDriverBuffers say how many subscribers a frame is lent to; a frame with none may be
/// overwritten. They change with fVisionModulesLock held for writing.
struct CameraDriverBuffer {
  CameraDriverBuffer();

  boost::shared_ptr<OXMutex> fMutex;
  std::vector<boost::shared_ptr<OXVisionBuffer>> fDriverBuffers;  ///< 4 converted frames
  std::vector<boost::shared_ptr<OXVisionBuffer>> fInputBuffers;   ///< 2 pushed frames
  /// The newest converted frame; -1: none yet.
  int fLastDriverBuffer OX_GUARDED_BY(fMutex) = -1;
  /// The resolution of pushed frames, whatever the camera's own is.
  int fInputResolution OX_GUARDED_BY(fMutex) = 0;
  /// The newest complete pushed frame; -1: none since the opening. Polled without fMutex.
  std::atomic<int> fLastInputBuffer{-1};
};

}  // namespace OX
