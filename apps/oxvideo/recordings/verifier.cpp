// Opening a recording checks its headers, and tells the sizes of its frames; the checksums of the
// pixels are only checked by reading every frame, which this does.
#include "recordings/verifier.h"

#include <fmt/format.h>

#include "recordings/inputrecording.h"
#include "recordings/recordingreport.h"

namespace OX::cli {

VerifyResult verify(OXInputRecording& pRecording, const std::function<void(int)>& pOnFrame) {
  VerifyResult result;
  const auto add = [&](int pFaults, const std::string& pText) {
    result.faults += pFaults;
    result.texts.push_back(pText);
  };
  for (const OXVideoDamage& damage : pRecording.video().getDamage())
    add(1, fmt::format("{}: at byte {}: {} ({} bytes)", pRecording.path(), damage.fOffset,
                       damage.fText, damage.fBytes));
  for (int stream = 0; stream < pRecording.streams(); ++stream) {
    const FrameSize size = pRecording.streamSize(stream);
    for (const OtherSize& other : findOtherSizes(pRecording, stream))
      add(other.images,
          fmt::format("{}: images of {} in stream {}, whose images are {}x{}: {}, the first is "
                      "image {}",
                      pRecording.path(), sizeText(other), stream, size.width, size.height,
                      other.images, other.firstImage));
    for (int i = 0; i < pRecording.images(stream); ++i) {
      pOnFrame(result.frames++);
      // One without a size is a fault already.
      if (pRecording.bytes(i, stream) || !pRecording.imageSize(i, stream)) continue;
      // Of another size and damaged is still one image.
      const bool isCounted = *pRecording.imageSize(i, stream) != size;
      add(isCounted ? 0 : 1,
          fmt::format("{} (image {} of stream {})", pRecording.error(), i, stream));
    }
  }
  return result;
}

}  // namespace OX::cli
