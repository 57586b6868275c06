/// A new recording of the frames of a damaged one that can still be read.
#pragma once

#include <functional>
#include <string>

namespace OX::cli {

class OXRecordingFile;

struct RepairResult {
  int kept = 0;
  int lost = 0;  ///< frames that are gone, can't be read, or whose turn is incomplete
};

/// Writes a recording of all frames that stand, with stamps, cameras and angles, and an index. With
/// several streams a turn is kept whole or not at all, since a frame's stream is its place in its
/// turn. Throws OXFailure when pOutput can't be written.
RepairResult repair(OXRecordingFile& pInput, const std::string& pOutput,
                    const std::function<void(int pDone)>& pOnFrame);

}  // namespace OX::cli
