/// One slot of the file camera's ring of frames.
#pragma once

#include <atomic>
#include <cstdint>

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
  /// Streams that read it. It leaves the ring then and is not read into either, but the replay goes
  /// on as if it were free: no client of theirs may keep others from an image.
  std::atomic<int> fLentCount{0};
  OXImage fImage;
  // For the numbers of frames, in the turn of the replay.
  bool fIsUnshown = false;   ///< it was read, and has not been the current image since
  bool fBeginsPass = false;  ///< it is the first image of another pass of the loop
  int fIndex = -1;           ///< of the image, as the reader counts
};

}  // namespace OX
