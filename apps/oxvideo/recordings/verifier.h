/// Checks every frame of a recording.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace OX::cli {

class OXInputRecording;

struct VerifyResult {
  int frames = 0;                   ///< checked
  std::vector<std::string> faults;  ///< unreadable frames, and damage found on opening
};

/// Reads every frame and compares its checksum. pOnFrame is called before each one with the
/// number done.
VerifyResult verify(OXInputRecording& pRecording, const std::function<void(int pDone)>& pOnFrame);

}  // namespace OX::cli
