/// Checks every frame of a recording.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace OX::cli {

class OXInputRecording;

struct VerifyResult {
  int frames = 0;  ///< checked
  int faults = 0;  ///< damaged places, unreadable frames, and frames of another size
  /// The faults in words: frames of another size are one line for each size.
  std::vector<std::string> texts;
};

/// Reads every frame and compares its checksum, and its size with that of its stream. pOnFrame is
/// called before each one with the number done.
VerifyResult verify(OXInputRecording& pRecording, const std::function<void(int pDone)>& pOnFrame);

}  // namespace OX::cli
