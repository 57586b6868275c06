#include "recordings/exporter.h"

#include <fmt/format.h>

#include <filesystem>

#include "media/picture.h"
#include "media/videoencoder.h"
#include "recordings/recordingfile.h"
#include "recordings/recordingreport.h"
#include "terminal/exitstatus.h"
#include "terminal/files.h"
#include "terminal/interrupt.h"

namespace OX::cli {

namespace {

namespace fs = std::filesystem;

bool isFolder(const std::string& pOutput) {
  std::error_code ignored;
  return pOutput.ends_with('/') || fs::is_directory(pOutput, ignored) ||
         !fs::path(pOutput).has_extension();
}

/// Hands every readable image of the stream to pTake, with its number.
template <typename Take>
Export eachImage(OXRecording& pInput, int pStream, const std::function<void(int)>& pOnFrame,
                 Take pTake) {
  Export result;
  for (int i = 0; i < pInput.images(pStream); ++i) {
    if (OXInterrupt::requested()) throw OXInterrupted();
    pOnFrame(i);
    const ImageReply image = pInput.image(i, pStream);
    if (!image.pixels) {
      ++result.unreadable;
      continue;
    }
    pTake(image, i);
    ++result.frames;
  }
  return result;
}

Export exportPictures(OXRecording& pInput, const ExportWishes& pWishes,
                      const std::function<void(int)>& pOnFrame) {
  std::error_code error;
  fs::create_directories(pWishes.output, error);
  if (error) throw OXFailure(fmt::format("{}: {}", pWishes.output, error.message()));
  OXOutput out(1);
  return eachImage(pInput, pWishes.stream, pOnFrame, [&](const ImageReply& pImage, int pNumber) {
    const std::string name = fmt::format("image-{:06}-{}.png", pNumber, pImage.timestampUs);
    writeFile((fs::path(pWishes.output) / name).string(), encodePng(toPicture(pImage)), out);
  });
}

Export exportVideo(OXRecording& pInput, const ExportWishes& pWishes,
                   const std::function<void(int)>& pOnFrame) {
  const StreamReport stream = reportOn(pInput).streams.at(static_cast<std::size_t>(pWishes.stream));
  EncoderWishes wishes{pWishes.output, pWishes.codec};
  wishes.width = stream.format.fWidth;
  wishes.height = stream.format.fHeight;
  wishes.colorSpace = stream.format.fColorSpace;
  wishes.fps = stream.fps;
  wishes.usualIntervalUs = stream.usualIntervalUs;
  wishes.startUs = stream.firstUs;
  OXVideoEncoder encoder(wishes);
  Export result = eachImage(pInput, pWishes.stream, pOnFrame,
                            [&](const ImageReply& pImage, int) { encoder.add(pImage); });
  encoder.finish();
  result.moved = encoder.moved();
  return result;
}

}  // namespace

Export exportRecording(OXRecording& pInput, const ExportWishes& pWishes,
                       const std::function<void(int)>& pOnFrame) {
  pInput.needStream(pWishes.stream);
  if (pInput.images(pWishes.stream) == 0)
    throw OXFailure(pInput.path() + ": the stream has no image");
  return isFolder(pWishes.output) ? exportPictures(pInput, pWishes, pOnFrame)
                                  : exportVideo(pInput, pWishes, pOnFrame);
}

}  // namespace OX::cli
