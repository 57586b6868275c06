// One step forward in image-by-image replay.
#include "commands/commands.h"

namespace OX::cli {

void addNext(OXCommandLine& pLine, Context& pContext) {
  addFileCameraCall(
      pLine, pContext,
      {"next", "shows the next image, in mode 0, at the next request", "oxvideo next"},
      "nextImage");
}

}  // namespace OX::cli
