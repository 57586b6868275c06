/// Frames of a video file, a picture or a generated test picture, one after the other.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "media/framesize.h"

struct AVFrame;

namespace OX::cli {

/// How the rows and columns of a stored frame are to be shown.
struct Orientation {
  int quarterTurns = 0;   ///< clockwise, 0 to 3, after mirroring
  bool mirrored = false;  ///< left and right exchanged
};

/// Reads with the FFmpeg libraries whatever they can read. One thread only.
class OXMediaReader {
 public:
  /// pSource: a file, a URL, or "test" for a moving test picture of pTestSize.
  /// Throws OXFailure that says why it can't be read.
  OXMediaReader(const std::string& pSource, FrameSize pTestSize);
  ~OXMediaReader();
  OXMediaReader(const OXMediaReader&) = delete;
  OXMediaReader& operator=(const OXMediaReader&) = delete;

  /// The next frame, valid until the next call; null at the end. Frames that can't be decoded are
  /// skipped and counted. Throws OXFailure when reading fails.
  const AVFrame* next();

  /// When the frame is shown and for how long, in seconds from the first one. Never goes back.
  double time() const;
  double frameDuration() const;
  Orientation orientation() const;

  /// Seconds of the whole, as the file says it; 0 when it doesn't or when there is no end.
  double duration() const;
  std::int64_t damagedFrames() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> fImpl;
};

}  // namespace OX::cli
