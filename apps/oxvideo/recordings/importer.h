/// A video made into a recording that a file camera replays.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "media/framesize.h"

namespace OX::cli {

struct ImportOptions {
  std::string video;  ///< a file, a picture, or "test" for a moving test picture
  std::string output;
  std::optional<FrameSize> size;  ///< unset: by fittingSize()
  double fps = 0;                 ///< 0: every frame of the video at its own time
  int frames = 0;                 ///< at most; 0: all of them
};

struct ImportResult {
  int frames = 0;
  std::int64_t damaged = 0;  ///< frames of the video that could not be decoded
  FrameSize size;
};

/// The largest of the cameras' sizes that is not larger than pVideo; the smallest of all when all
/// are larger.
FrameSize fittingSize(FrameSize pVideo);

/// Writes frames in kYUV422, as cameras give them, with black bars where the shape differs. Time
/// stamps are those of the video from the moment on when its file was last changed.
/// pOnFrame gets the frames done and how many to expect, 0 when that isn't known.
/// Throws OXFailure, OXUsageError for a source that never ends, OXInterrupted by a signal; a
/// recording that was begun is then closed with the frames that it has.
ImportResult importVideo(const ImportOptions& pOptions,
                         const std::function<void(int pDone, int pExpected)>& pOnFrame);

}  // namespace OX::cli
