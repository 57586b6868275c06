/// Converts a recording to a video file or a folder of pictures.
#pragma once

#include <functional>
#include <string>

namespace OX::cli {

class OXInputRecording;

struct ExportOptions {
  std::string output;
  std::string codec;  ///< see EncoderOptions
  int stream = 0;
};

struct ExportResult {
  int frames = 0;
  int unreadable = 0;  ///< damaged images, left out
  int moved = 0;       ///< see OXVideoEncoder::moved()
};

/// Writes PNGs if the output ends with "/", is a folder or has no extension, each named by number
/// and time stamp in microseconds: image-000012-1700000000033333.png. Otherwise writes a video
/// file. Throws OXFailure, or OXInterrupted after a signal; an unfinished video file is removed.
ExportResult exportRecording(OXInputRecording& pInput, const ExportOptions& pOptions,
                             const std::function<void(int pDone)>& pOnFrame);

}  // namespace OX::cli
