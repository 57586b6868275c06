/// Reads the frames of a video, a stream, a camera or pictures in sequence.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "media/framesize.h"
#include "media/mediainput.h"

struct AVFrame;

namespace OX::cli {

/// How a stored frame is to be turned for display.
struct Orientation {
  int quarterTurns = 0;   ///< clockwise, 0 to 3, after mirroring
  bool mirrored = false;  ///< left and right exchanged
};

/// Reads whatever the FFmpeg libraries can. Every wait for a source is bounded. One
/// thread only, but for cancel() and damagedFrames().
class OXMediaReader {
 public:
  /// pSource: a video file, a picture, a folder or pattern of pictures (frames/*.png,
  /// frames/%04d.png), a camera (/dev/video0), a URL, "-" for standard input, "lavfi:" and a filter
  /// graph, or "test" for a moving test picture of pTestSize. Throws OXFailure that says why it
  /// can't be read, OXUsageError for a stream that it lacks and for an unknown format, and
  /// OXInterrupted, as next() does.
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
  /// What the user should know, such as that pictures have different sizes; empty when nothing.
  std::string remark() const;

  /// Makes next() throw OXInterrupted, now if it is under way and ever after.
  void cancel();

 private:
  struct Impl;
  std::unique_ptr<Impl> fImpl;
};

}  // namespace OX::cli
