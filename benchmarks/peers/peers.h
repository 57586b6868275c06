/// Other libraries at the job nearest to one of ours. None produces our bytes: they use other
/// coefficients, rounding or pixels; docs/performance.md says which.
/// Each function prepares what it can and returns the part to repeat; an empty one means that the
/// library has nothing equivalent. Buffers stay the caller's and must outlive the function.
#pragma once

#include <functional>

namespace OX::benchmarks {

/// A conversion. Sizes are those of the frames, in pixels; rows have no gaps.
struct Job {
  enum Kind {
    kToRGB,    ///< raw YUV422 to 24-bit RGB
    kToBGR,    ///< raw YUV422 to 24-bit BGR
    kToLuma,   ///< raw YUV422 to 8-bit gray
    kToYUV,    ///< raw YUV422 to packed 24-bit 4:4:4
    kToHue,    ///< raw YUV422 to hue, saturation and lightness
    kFromRGB,  ///< 24-bit RGB to raw YUV422
  };
  Kind kind;
  int sourceWidth, sourceHeight;
  int width, height;
  const unsigned char* source;
  unsigned char* destination;

  bool resizes() const { return width != sourceWidth; }
};

using Run = std::function<void()>;

Run libyuvRun(const Job& pJob);
Run opencvRun(const Job& pJob);
Run swscaleRun(const Job& pJob);
Run gstreamerRun(const Job& pJob);

}  // namespace OX::benchmarks
