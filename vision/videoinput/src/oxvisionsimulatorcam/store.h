/// The frames of one simulated camera.
#pragma once

#include <atomic>
#include <boost/shared_ptr.hpp>
#include <vector>

#include <oxframework/oxlocks.h>
#include "oxvisionbuffer.h"

namespace OX {

/// Two sets of frames, all with storage for the largest format: what a simulator pushed (RGB), and
/// what was converted of it for subscribers (YUV422). fMutex guards the writing into both.
/// fDriverBuffers' read counts say how many subscribers a frame is lent to; a frame with none may
/// be rewritten. They change with fVisionModulesLock held for writing.
struct CameraDriverBuffer {
  CameraDriverBuffer();

  std::vector<boost::shared_ptr<OXVisionBuffer>> fDriverBuffers;  ///< 4 converted frames
  int fLastDriverBuffer = -1;  ///< the newest converted one; -1: none yet
  std::vector<boost::shared_ptr<OXVisionBuffer>> fInputBuffers;  ///< 2 pushed frames
  /// The newest complete pushed frame; -1: none since the opening. Polled without fMutex.
  std::atomic<int> fLastInputBuffer{-1};
  int fInputResolution = 0;  ///< of the frames that are pushed, whatever the camera's own is
  boost::shared_ptr<OXMutex> fMutex;
};

}  // namespace OX
