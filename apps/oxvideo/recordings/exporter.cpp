// Damaged images are counted and left out, so that one bad frame doesn't cost the whole export. A
// video has one size, and pictures that belong together too: images of another are scaled.
#include "recordings/exporter.h"

#include <fmt/format.h>

#include <filesystem>

#include "media/ffmpeg.h"
#include "media/framescaler.h"
#include "media/picture.h"
#include "media/videoencoder.h"
#include "recordings/inputrecording.h"
#include "recordings/recordingreport.h"
#include "terminal/exitstatus.h"
#include "terminal/interrupt.h"
#include "terminal/outputfile.h"
#include "terminal/text.h"

namespace OX::cli {

namespace {

namespace fs = std::filesystem;

/// Like cp: a folder that exists, or a name that can only be one.
bool isFolder(const std::string& pOutput) {
  std::error_code ignored;
  if (pOutput == "-" || fs::is_other(pOutput, ignored)) return false;
  return pOutput.ends_with('/') || fs::is_directory(pOutput, ignored) ||
         !fs::path(pOutput).has_extension();
}

/// The picture, scaled if it has another size.
Picture scaledPicture(Picture pPicture, FrameSize pSize, OXFrameScaler& pScaler) {
  if (pPicture.width == pSize.width && pPicture.height == pSize.height) return pPicture;
  // Copied to a frame of the library, whose scaler reads whole vectors past the end of a row.
  const FrameOwner frame(av_frame_alloc());
  if (!frame) throw OXFailure("out of memory");
  frame->format = AV_PIX_FMT_RGB24;
  frame->width = pPicture.width;
  frame->height = pPicture.height;
  if (av_frame_get_buffer(frame.get(), 0) < 0) throw OXFailure("out of memory");
  av_image_copy_plane(frame->data[0], frame->linesize[0], pPicture.rgb.data(), pPicture.width * 3,
                      pPicture.width * 3, pPicture.height);
  Picture result{pSize.width, pSize.height, {}};
  pScaler.render(*frame, {}, pSize, Fit::kStretch, result.rgb);
  return result;
}

/// Calls pTake(image, number) for every readable image of the stream.
template <typename Take>
ExportResult forEachImage(OXInputRecording& pInput, int pStream,
                          const std::function<void(int)>& pOnFrame, Take pTake) {
  ExportResult result;
  result.size = pInput.streamSize(pStream);
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
    if (FrameSize{image.width, image.height} != result.size) ++result.scaled;
  }
  if (result.frames == 0)
    throw OXFailure(fmt::format("{}: none of the {} images can be read\n  {}", pInput.path(),
                                result.unreadable, pInput.error()));
  return result;
}

ExportResult exportPictures(OXInputRecording& pInput, const ExportOptions& pOptions,
                            const std::function<void(int)>& pOnFrame) {
  if (!pOptions.codec.empty())
    throw OXUsageError("--codec is for video files, and " + printable(pOptions.output) +
                       " is a folder for pictures");
  // Folders on the way to it are made; what is wrong with them is found by the next line.
  std::error_code ignored;
  const fs::path path(pOptions.output);
  fs::create_directories((path.has_filename() ? path : path.parent_path()).parent_path(), ignored);
  OXOutputFolder folder(pOptions.output, pOptions.overwrite);
  const FrameSize size = pInput.streamSize(pOptions.stream);
  OXFrameScaler scaler;
  ExportResult result =
      forEachImage(pInput, pOptions.stream, pOnFrame, [&](const CameraImage& pImage, int pNumber) {
        // Six digits keep the names in order for nine hours at 30 images a second.
        folder.write(fmt::format("image-{:06}-{}.png", pNumber, pImage.timestampUs),
                     encodePng(scaledPicture(toPicture(pImage), size, scaler)));
      });
  result.otherFiles = folder.commit();
  return result;
}

ExportResult exportVideo(OXInputRecording& pInput, const ExportOptions& pOptions, OXOutput& pOut,
                         const std::function<void(int)>& pOnFrame) {
  // What an encoder must know before the first frame: format, mean rate and time of the start.
  const StreamReport stream =
      makeReport(pInput).streams.at(static_cast<std::size_t>(pOptions.stream));
  // A pipe has no extension to go by.
  std::error_code ignored;
  std::string name = pOptions.output == "-" ? "standard output" : pOptions.output;
  if (pOptions.output == "-" || fs::is_other(pOptions.output, ignored)) name += ".mkv";
  checkVideoFile(name, pOptions.codec);
  OXOutputFile file(pOptions.output, pOptions.overwrite, pOut);
  EncoderOptions options{name, file.temporaryPath(), pOptions.codec};
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
  file.commit();
  result.moved = encoder.moved();
  return result;
}

}  // namespace

ExportResult exportRecording(OXInputRecording& pInput, const ExportOptions& pOptions,
                             OXOutput& pOut, const std::function<void(int)>& pOnFrame) {
  pInput.requireStream(pOptions.stream);
  if (pInput.images(pOptions.stream) == 0)
    throw OXFailure(pInput.path() + ": the stream has no images");
  return isFolder(pOptions.output) ? exportPictures(pInput, pOptions, pOnFrame)
                                   : exportVideo(pInput, pOptions, pOut, pOnFrame);
}

}  // namespace OX::cli
