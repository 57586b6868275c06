/// Rescues the readable frames of a damaged recording, and parts the sizes of a mixed one.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "media/framesize.h"
#include "terminal/output.h"

namespace OX::cli {

class OXInputRecording;

struct RepairOptions {
  std::string output;
  bool overwrite = false;
};

/// A file that a repair has written.
struct RepairedFile {
  std::string path;
  std::vector<FrameSize> sizes;  ///< of each stream
  int frames = 0;
};

struct RepairResult {
  std::vector<RepairedFile> files;
  int kept = 0;
  int lost = 0;  ///< frames that are missing, unreadable, of no size, or in an incomplete turn
};

/// Writes all readable frames to new recordings, with stamps, cameras and angles, and an index. The
/// sizes of the streams' headers go to the output, or if nothing has them, those that come first;
/// what has other sizes goes to NAME-2.oxv, NAME-3.oxv and so on. What is written passes verify().
/// With several streams a turn is kept as a whole or not at all, since a frame's stream is its
/// position in its turn.
/// Throws OXFailure when a file can't be written, OXUsageError for standard output ("-", with
/// pOut) and more than one file, and whatever pOnFrame throws. Then no file has come into being,
/// unless the files could not all be renamed.
RepairResult repair(OXInputRecording& pInput, const RepairOptions& pOptions, OXOutput& pOut,
                    const std::function<void(int pDone)>& pOnFrame);

}  // namespace OX::cli
