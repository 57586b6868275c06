/// A recording made into a video file or a folder of pictures.
#pragma once

#include <functional>
#include <string>

namespace OX::cli {

class OXRecordingFile;

struct ExportOptions {
  std::string output;
  std::string codec;  ///< as EncoderOptions has it
  int stream = 0;
};

struct ExportResult {
  int frames = 0;
  int unreadable = 0;  ///< left out
  int moved = 0;       ///< see OXVideoEncoder::moved()
};

/// A folder when the output ends with "/", is one, or has no ending: one PNG an image, named
/// image-000012-1700000000033333.png by its number and its time stamp in microseconds. Else a
/// video file. Throws OXFailure, OXInterrupted by a signal; an unfinished video file is taken away.
ExportResult exportRecording(OXRecordingFile& pInput, const ExportOptions& pOptions,
                             const std::function<void(int pDone)>& pOnFrame);

}  // namespace OX::cli
