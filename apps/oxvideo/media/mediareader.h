/// Reads the frames of a video file, a picture or a generated test picture in sequence.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "media/framesize.h"

struct AVFrame;

namespace OX::cli {

/// How a stored frame is to be turned for display.
struct Orientation {
  int quarterTurns = 0;   ///< clockwise, 0 to 3, after mirroring
  bool mirrored = false;  ///< left and right exchanged
};

/// What of a source to read, and how.
struct MediaOptions {
  int stream = -1;  ///< of its video streams, from 0; -1: the one that the library thinks best
};

/// Reads whatever the FFmpeg libraries can. One thread only.
class OXMediaReader {
 public:
  /// pSource: a file, a URL, or "test" for a moving test picture of pTestSize.
  /// Throws OXFailure that says why it can't be read, OXUsageError for a stream that it lacks.
  OXMediaReader(const std::string& pSource, FrameSize pTestSize, const MediaOptions& pOptions = {});
  ~OXMediaReader();
  OXMediaReader(const OXMediaReader&) = delete;
  OXMediaReader& operator=(const OXMediaReader&) = delete;

  /// The next frame, valid until the next call; null at the end. Frames that can't be decoded are
  /// skipped and counted. Throws OXFailure when reading fails.
  const AVFrame* next();

  /// When the frame is shown, in seconds after the first one, and for how long. Never decreases.
  double time() const;
  double frameDuration() const;
  Orientation orientation() const;

  /// Length in seconds as stated by the file; 0 when unknown or endless.
  double duration() const;
  std::int64_t damagedFrames() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> fImpl;
};

}  // namespace OX::cli
