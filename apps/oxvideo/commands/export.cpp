// Reports what an export left out or moved; the exit status tells a script.
#include <fmt/format.h>

#include <memory>

#include "commands/commands.h"
#include "recordings/exporter.h"
#include "recordings/inputrecording.h"
#include "terminal/exitstatus.h"
#include "terminal/progress.h"

namespace OX::cli {

namespace {

int runExport(Context& pContext, const std::string& pInput, const ExportOptions& pOptions) {
  requireDifferentFiles(pInput, pOptions.output);
  OXInputRecording recording(pInput);
  // Before the bar asks for the stream's number of images.
  recording.requireStream(pOptions.stream);
  ExportResult result;
  {
    // In a block of its own: the bar must be cleared before the lines below are printed.
    OXProgress progress(pContext.err, "export", recording.images(pOptions.stream));
    result = exportRecording(recording, pOptions, [&](int pDone) { progress.update(pDone, ""); });
  }
  pContext.out.line(fmt::format("{}: {} images", printable(pOptions.output), result.frames));
  // Reported, but no loss: every image is in the file, one unit of the container's time later.
  if (result.moved > 0)
    pContext.err.tryLine(fmt::format(
        "images not later than the one before, moved to just after it: {}", result.moved));
  if (result.unreadable == 0) return kDone;
  pContext.err.tryLine(fmt::format("damaged images left out: {}", result.unreadable));
  return kDoneWithLosses;
}

}  // namespace

void addExport(OXCommandLine& pLine, Context& pContext) {
  OXVerb verb = addVerb(
      pLine, pContext,
      {"export", "converts an .oxv file to a video file or a folder of PNGs",
       "oxvideo export drive.oxv drive.mkv\n"
       "  oxvideo export drive.oxv drive.mp4\n"
       "  oxvideo export drive.oxv pictures/\n"
       ".mkv keeps every byte (FFV1) unless --codec h264 is given; .mp4 is H.264. Time stamps are\n"
       "kept, relative to the first image; a PNG carries its own in its name, in microseconds."});
  struct Options : ExportOptions {
    std::string input;
  };
  const auto options = std::make_shared<Options>();
  verb.option("IN", options->input, "recording to read").required();
  verb.option("OUT", options->output, "video file or folder to write").required();
  verb.option("--codec", options->codec, "ffv1 or h264 (default: by the file extension)")
      .oneOf({"ffv1", "h264"});
  verb.option("--stream", options->stream, "stream of the file (default 0)").notNegative();
  verb.onRun(
      [&pContext, options] { pContext.status = runExport(pContext, options->input, *options); });
}

}  // namespace OX::cli
