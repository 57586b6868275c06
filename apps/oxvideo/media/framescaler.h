/// Decoded frames of any pixel format as red, green, blue of the size wanted, upright.
#pragma once

#include <memory>
#include <vector>

#include "media/framesize.h"
#include "media/mediareader.h"

namespace OX::cli {

/// What to do with a frame whose sides are in another ratio than the target's.
enum class Fit {
  kPad,      ///< keep the shape, black bars beside it
  kStretch,  ///< fill the target
};

/// Where a frame comes to lie in the target.
struct Placement {
  int left = 0;
  int top = 0;
  FrameSize size;
};

/// pShape is the frame's shape once upright: pixels that aren't square are counted in.
Placement placeFrame(double pShapeWidth, double pShapeHeight, FrameSize pTarget, Fit pFit);

/// Keeps the scaler of the last kind of frame. One thread only.
class OXFrameScaler {
 public:
  OXFrameScaler();
  ~OXFrameScaler();
  OXFrameScaler(const OXFrameScaler&) = delete;
  OXFrameScaler& operator=(const OXFrameScaler&) = delete;

  /// Makes pTarget hold width * height * 3 bytes, rows top down without gaps. Honours the frame's
  /// colour matrix and range (BT.709 from 720 rows on where a video doesn't say) and its pixels'
  /// aspect ratio. Throws OXFailure for a format that can't be converted.
  void render(const AVFrame& pFrame, Orientation pOrientation, FrameSize pSize, Fit pFit,
              std::vector<unsigned char>& pTarget);

 private:
  struct Impl;
  std::unique_ptr<Impl> fImpl;
};

}  // namespace OX::cli
