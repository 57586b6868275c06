/// Converts decoded frames of any pixel format to upright RGB of a given size.
#pragma once

#include <memory>
#include <vector>

#include "media/framesize.h"
#include "media/mediareader.h"

namespace OX::cli {

/// The size in which a stored frame is shown.
FrameSize uprightSize(const AVFrame& pFrame, Orientation pOrientation);

/// How to fit a frame into a target of another aspect ratio.
enum class Fit {
  kPad,      ///< keep the aspect ratio, add black bars
  kStretch,  ///< fill the target
};

/// The rectangle of the target that a frame covers.
struct Placement {
  int left = 0;
  int top = 0;
  FrameSize size;
};

/// pShape is the upright frame in square pixels.
Placement placeFrame(double pShapeWidth, double pShapeHeight, FrameSize pTarget, Fit pFit);

/// Reuses the scaler while the kind of frame stays the same. One thread only.
class OXFrameScaler {
 public:
  OXFrameScaler();
  ~OXFrameScaler();
  OXFrameScaler(const OXFrameScaler&) = delete;
  OXFrameScaler& operator=(const OXFrameScaler&) = delete;

  /// Makes pTarget hold width * height * 3 bytes, rows top down without gaps. Honours the frame's
  /// colour matrix and range (default: BT.709 from 720 rows on, else BT.601) and its pixels'
  /// aspect ratio. Throws OXFailure for a format that can't be converted.
  void render(const AVFrame& pFrame, Orientation pOrientation, FrameSize pSize, Fit pFit,
              std::vector<unsigned char>& pTarget);

 private:
  struct Impl;
  std::unique_ptr<Impl> fImpl;
};

}  // namespace OX::cli
