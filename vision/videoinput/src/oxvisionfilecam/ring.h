/// One slot of the file camera's ring of frames.
#pragma once

#include <atomic>

#include <oxframework/oxdefinitions.h>
#include <oxframework/oximage.h>

namespace OX {

/// Starts as 640 x 480 RGB with room for the largest frame there is, so that a recording of any
/// format is read into it without a new allocation.
struct CamBuffer {
  CamBuffer() : fImage(k4VGA, kYUV, false, 0.f, 0.f, 0.f, 0.f) {
    fImage.setResolution(kVGA);
    fImage.setColorSpace(kRGB);
  }

  std::atomic<int> fLockCount{0};  ///< subscribers that hold this frame: it is not read into then
  OXImage fImage;
};

}  // namespace OX
