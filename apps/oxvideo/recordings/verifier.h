/// The check of every frame of a recording.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace OX::cli {

class OXRecordingFile;

struct VerifyResult {
  int frames = 0;                   ///< that were looked at
  std::vector<std::string> faults;  ///< frames that can't be read and places that opening found
};

/// Reads every frame and compares its checksum. pOnFrame is called before each one with how many
/// are done.
VerifyResult verify(OXRecordingFile& pRecording, const std::function<void(int pDone)>& pOnFrame);

}  // namespace OX::cli
