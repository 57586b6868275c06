// Reports what an export left out, scaled or moved; the exit status tells a script.
#include <fmt/format.h>

#include <memory>

#include "commands/commands.h"
#include "recordings/exporter.h"
#include "recordings/inputrecording.h"
#include "terminal/exitstatus.h"
#include "terminal/json.h"
#include "terminal/outputfile.h"
#include "terminal/progress.h"

namespace OX::cli {

namespace {

struct Options : ExportOptions {
  std::string input;
  bool asJson = false;
};

void printJson(Context& pContext, const Options& pOptions, const ExportResult& pResult) {
  pContext.out.line(OXJson({{"file", pOptions.output},
                            {"width", pResult.size.width},
                            {"height", pResult.size.height},
                            {"images", pResult.frames},
                            {"left_out", pResult.unreadable},
                            {"scaled", pResult.scaled},
                            {"moved", pResult.moved},
                            {"other_files", pResult.otherFiles}})
                        .text());
}

/// What is not as in the recording goes to standard error: a script that reads the result must not
/// parse it.
void printText(Context& pContext, const Options& pOptions, const ExportResult& pResult) {
  OXOutput& said = pOptions.output == "-" ? pContext.err : pContext.out;
  said.line(fmt::format("{}: {} of {}x{}", printable(pOptions.output),
                        counted(pResult.frames, "image"), pResult.size.width, pResult.size.height));
  const auto tell = [&](auto pNumber, const std::string& pWhat) {
    if (pNumber > 0) pContext.err.tryLine(fmt::format("{}: {}", pWhat, pNumber));
  };
  tell(pResult.scaled, fmt::format("images of another size, scaled to {}x{}", pResult.size.width,
                                   pResult.size.height));
  // Reported, but no loss: every image is in the file, one unit of the container's time later.
  tell(pResult.moved, "images not later than the one before, moved to just after it");
  tell(pResult.otherFiles, "other files in the folder, left as they were");
  tell(pResult.unreadable, "images left out, damaged or of an unknown size");
}

int runExport(Context& pContext, const Options& pOptions) {
  if (pOptions.output == "-" && pOptions.asJson)
    throw OXUsageError("--json and the output - cannot both use standard output");
  requireDifferentFiles(pOptions.input, pOptions.output);
  OXInputRecording recording(pOptions.input);
  // Before the bar asks for the stream's number of images.
  recording.requireStream(pOptions.stream);
  ExportResult result;
  {
    // In a block of its own: the bar must be cleared before the lines below are printed.
    OXProgress progress(pContext.err, "export", recording.images(pOptions.stream));
    result = exportRecording(recording, pOptions, pContext.out,
                             [&](int pDone) { progress.update(pDone, ""); });
  }
  if (pOptions.asJson)
    printJson(pContext, pOptions, result);
  else
    printText(pContext, pOptions, result);
  return result.unreadable == 0 ? kDone : kDoneWithLosses;
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
       "kept, relative to the first image; a PNG carries its own in its name, in microseconds.\n"
       "Images of another size than the recording's are scaled to it. Exits with 3 if images were\n"
       "left out."});
  const auto options = std::make_shared<Options>();
  verb.option("IN", options->input, "recording to read").required();
  verb.option("OUT", options->output,
              "video file or folder to write; - for standard output, as .mkv")
      .required();
  verb.option("--codec", options->codec, "ffv1 or h264 (default: by the file extension)")
      .oneOf({"ffv1", "h264"});
  verb.option("--stream", options->stream, "stream of the file (default 0)").notNegative();
  addOverwriteOption(verb, options->overwrite);
  verb.flag("--json", options->asJson, "print JSON on one line");
  verb.onRun([&pContext, options] { pContext.status = runExport(pContext, *options); });
}

}  // namespace OX::cli
