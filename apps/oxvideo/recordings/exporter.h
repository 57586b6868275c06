/// Converts a recording to a video file or a folder of pictures.
#pragma once

#include <cstddef>
#include <functional>
#include <string>

#include "media/framesize.h"
#include "terminal/output.h"

namespace OX::cli {

class OXInputRecording;

struct ExportOptions {
  std::string output;
  bool overwrite = false;
  std::string codec;  ///< see EncoderOptions
  int stream = 0;
};

struct ExportResult {
  int frames = 0;
  FrameSize size;
  int unreadable = 0;          ///< damaged images and those of an unknown size, left out
  int scaled = 0;              ///< images of another size than the stream's
  int moved = 0;               ///< see OXVideoEncoder::moved()
  std::size_t otherFiles = 0;  ///< that were in the folder of pictures before, and stay
};

/// Writes PNGs if the output ends with "/", is a folder or has no extension, each named by number
/// and time stamp in microseconds: image-000012-1700000000033333.png. Otherwise writes a video
/// file; to pOut for "-", as Matroska. All images have the size of the stream. Throws OXFailure, or
/// OXInterrupted after a signal; nothing has come into being then.
ExportResult exportRecording(OXInputRecording& pInput, const ExportOptions& pOptions,
                             OXOutput& pOut, const std::function<void(int pDone)>& pOnFrame);

}  // namespace OX::cli
