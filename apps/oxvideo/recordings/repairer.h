/// The check of every frame of a recording, and a new recording of those that stand.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace OX::cli {

class OXRecording;

/// Called before each frame with how many are done.
using OnFrame = std::function<void(int pDone)>;

struct Verdict {
  int frames = 0;                   ///< that were looked at
  std::vector<std::string> faults;  ///< frames that can't be read and places that opening found
};

/// Reads every frame and compares its checksum.
Verdict verify(OXRecording& pRecording, const OnFrame& pOnFrame);

struct Repair {
  int kept = 0;
  int lost = 0;  ///< frames that are gone, can't be read, or whose turn is incomplete
};

/// Writes a recording of all frames that stand, with stamps, cameras and angles, and an index. With
/// several streams a turn is kept whole or not at all, since a frame's stream is its place in its
/// turn. Throws OXFailure when pOutput can't be written.
Repair repair(OXRecording& pInput, const std::string& pOutput, const OnFrame& pOnFrame);

}  // namespace OX::cli
