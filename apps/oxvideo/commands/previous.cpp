// One step back in image-by-image replay.
#include "commands/commands.h"

namespace OX::cli {

void addPrevious(OXCommandLine& pLine, Context& pContext) {
  addFileCameraCall(
      pLine, pContext,
      {"previous", "moves back to the previous image (mode 0)",
       "oxvideo previous\nThe step is made by the next request for an image: oxvideo position "
       "tells it only then.\nThe device must be a file camera: see oxvideo play --help."},
      "previousImage");
}

}  // namespace OX::cli
