// One step forward in image-by-image replay.
#include "commands/commands.h"

namespace OX::cli {

void addNext(OXCommandLine& pLine, Context& pContext) {
  addFileCameraCall(
      pLine, pContext,
      {"next", "moves on to the next image (mode 0)",
       "oxvideo next\nThe step is made by the next request for an image: oxvideo position tells it "
       "only then.\nThe device must be a file camera: see oxvideo play --help."},
      "nextImage");
}

}  // namespace OX::cli
