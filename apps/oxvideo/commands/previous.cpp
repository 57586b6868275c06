// One step back in image-by-image replay.
#include "commands/commands.h"

namespace OX::cli {

void addPrevious(OXCommandLine& pLine, Context& pContext) {
  addFileCameraCall(
      pLine, pContext,
      {"previous", "shows the previous image, in mode 0, at the next request", "oxvideo previous"},
      "previousImage");
}

}  // namespace OX::cli
