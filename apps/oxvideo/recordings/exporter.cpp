// Damaged images are counted and left out, so that one bad frame doesn't cost the whole export.
#include "recordings/exporter.h"

#include <fmt/format.h>

#include <filesystem>

#include "media/picture.h"
#include "media/videoencoder.h"
#include "recordings/inputrecording.h"
#include "recordings/recordingreport.h"
#include "terminal/exitstatus.h"
#include "terminal/files.h"
#include "terminal/interrupt.h"

namespace OX::cli {

namespace {

namespace fs = std::filesystem;

/// Like cp: a folder that exists, or a name that can only be one.
bool isFolder(const std::string& pOutput) {
  std::error_code ignored;
  return pOutput.ends_with('/') || fs::is_directory(pOutput, ignored) ||
         !fs::path(pOutput).has_extension();
}

/// Calls pTake(image, number) for every readable image of the stream.
template <typename Take>
ExportResult forEachImage(OXInputRecording& pInput, int pStream,
                          const std::function<void(int)>& pOnFrame, Take pTake) {
  ExportResult result;
  for (int i = 0; i < pInput.images(pStream); ++i) {
    if (OXInterrupt::requested()) throw OXInterrupted();
    pOnFrame(i);
    const CameraImage image = pInput.image(i, pStream);
    if (!image.pixels) {
      ++result.unreadable;
      continue;
    }
    pTake(image, i);
    ++result.frames;
  }
  return result;
}

ExportResult exportPictures(OXInputRecording& pInput, const ExportOptions& pOptions,
                            const std::function<void(int)>& pOnFrame) {
  std::error_code error;
  fs::create_directories(pOptions.output, error);
  if (error) throw OXFailure(fmt::format("{}: {}", pOptions.output, error.message()));
  // writeFile() writes to it only if the name is "-", which no picture has.
  OXOutput out(1);
  return forEachImage(
      pInput, pOptions.stream, pOnFrame, [&](const CameraImage& pImage, int pNumber) {
        // Six digits keep the names in order for nine hours at 30 images a second.
        const std::string name = fmt::format("image-{:06}-{}.png", pNumber, pImage.timestampUs);
        writeFile((fs::path(pOptions.output) / name).string(), encodePng(toPicture(pImage)), out);
      });
}

ExportResult exportVideo(OXInputRecording& pInput, const ExportOptions& pOptions,
                         const std::function<void(int)>& pOnFrame) {
  // What an encoder must know before the first frame: format, mean rate and time of the start.
  const StreamReport stream =
      makeReport(pInput).streams.at(static_cast<std::size_t>(pOptions.stream));
  EncoderOptions options{pOptions.output, pOptions.codec};
  options.width = stream.format.fWidth;
  options.height = stream.format.fHeight;
  options.colorSpace = stream.format.fColorSpace;
  options.fps = stream.fps;
  options.usualIntervalUs = stream.usualIntervalUs;
  options.startUs = stream.firstUs;
  OXVideoEncoder encoder(options);
  ExportResult result = forEachImage(pInput, pOptions.stream, pOnFrame,
                                     [&](const CameraImage& pImage, int) { encoder.add(pImage); });
  encoder.finish();
  result.moved = encoder.moved();
  return result;
}

}  // namespace

ExportResult exportRecording(OXInputRecording& pInput, const ExportOptions& pOptions,
                             const std::function<void(int)>& pOnFrame) {
  pInput.requireStream(pOptions.stream);
  if (pInput.images(pOptions.stream) == 0)
    throw OXFailure(pInput.path() + ": the stream has no images");
  return isFolder(pOptions.output) ? exportPictures(pInput, pOptions, pOnFrame)
                                   : exportVideo(pInput, pOptions, pOnFrame);
}

}  // namespace OX::cli
