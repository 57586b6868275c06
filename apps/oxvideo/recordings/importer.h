/// Converts a video to a recording that a file camera can replay.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "media/framesize.h"
#include "terminal/output.h"

namespace OX::cli {

struct ImportOptions {
  std::string video;  ///< a file, a picture, or "test" for a moving test picture
  std::string output;
  std::optional<FrameSize> size;  ///< unset: by fittingSize()
  double fps = 0;                 ///< 0: every frame of the video at its own time
  int frames = 0;                 ///< at most; 0: all of them
  bool overwrite = false;
  int camera = 0;                       ///< stored with each image
  int stream = -1;                      ///< see MediaOptions
  std::optional<std::int64_t> startUs;  ///< time of the first image, since 1970; unset: see below
};

struct ImportResult {
  int frames = 0;
  std::int64_t damaged = 0;  ///< frames of the video that could not be decoded
  FrameSize size;
  std::int64_t startUs = 0;
  std::string remark;  ///< see OXMediaReader::remark()
};

/// The largest camera size that fits into pVideo, or the smallest one if none does.
FrameSize fittingSize(FrameSize pVideo);

/// Writes kYUV422 frames with black bars where the aspect ratio differs. Time stamps are those of
/// the video, counted from the given start, else from the modification time of its file. pOut is
/// standard output, for the output "-". pOnFrame receives the number of frames done and of those
/// expected, 0 if unknown. Throws OXFailure, OXUsageError for a source without an end, or
/// OXInterrupted after a signal; no recording has come into being then.
ImportResult importVideo(const ImportOptions& pOptions, OXOutput& pOut,
                         const std::function<void(int pDone, int pExpected)>& pOnFrame);

}  // namespace OX::cli
