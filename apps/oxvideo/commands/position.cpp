// The number of the replayed image, for scripts that step through a file.
#include "commands/commands.h"

namespace OX::cli {

void addPosition(OXCommandLine& pLine, Context& pContext) {
  addFileCameraCall(
      pLine, pContext,
      {"position", "prints the number of the current image",
       "oxvideo position\nThe device must be a file camera: see oxvideo play --help."},
      "getCurrentImageNumber");
}

}  // namespace OX::cli
