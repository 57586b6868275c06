// Opening a recording checks its headers; the checksums of the pixels are only checked by reading
// every frame, which this does.
#include "recordings/verifier.h"

#include <fmt/format.h>

#include "recordings/inputrecording.h"

namespace OX::cli {

VerifyResult verify(OXInputRecording& pRecording, const std::function<void(int)>& pOnFrame) {
  VerifyResult result;
  for (const OXVideoDamage& damage : pRecording.video().getDamage())
    result.faults.push_back(fmt::format("{}: at byte {}: {} ({} bytes)", pRecording.path(),
                                        damage.fOffset, damage.fText, damage.fBytes));
  for (int stream = 0; stream < pRecording.streams(); ++stream)
    for (int i = 0; i < pRecording.images(stream); ++i) {
      pOnFrame(result.frames++);
      if (!pRecording.bytes(i, stream))
        result.faults.push_back(
            fmt::format("{} (image {} of stream {})", pRecording.error(), i, stream));
    }
  return result;
}

}  // namespace OX::cli
