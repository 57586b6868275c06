/// Rescues the readable frames of a damaged recording.
#pragma once

#include <functional>
#include <string>

namespace OX::cli {

class OXInputRecording;

struct RepairResult {
  int kept = 0;
  int lost = 0;  ///< frames that are missing, unreadable, or in an incomplete turn
};

/// Writes all readable frames to a new recording, with stamps, cameras and angles, and an index.
/// With several streams a turn is kept as a whole or not at all, since a frame's stream is its
/// position in its turn. Throws OXFailure when pOutput can't be written.
RepairResult repair(OXInputRecording& pInput, const std::string& pOutput,
                    const std::function<void(int pDone)>& pOnFrame);

}  // namespace OX::cli
