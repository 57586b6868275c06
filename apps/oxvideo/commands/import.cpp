// Sizes, rates and dates are parsed before the output is created: a typing error leaves no file.
#include <fmt/format.h>

#include <memory>

#include "commands/commands.h"
#include "device/vocabulary.h"
#include "recordings/datetime.h"
#include "recordings/importer.h"
#include "recordings/inputrecording.h"
#include "terminal/exitstatus.h"
#include "terminal/json.h"
#include "terminal/outputfile.h"
#include "terminal/progress.h"

namespace OX::cli {

namespace {

// Texts and not numbers: the parser's own complaints don't say which sizes, rates and dates there
// are.
struct Options : ImportOptions {
  std::string sizeText, fpsText, startText;
  bool asJson = false;
};

void print(Context& pContext, const Options& pOptions, const ImportResult& pResult) {
  if (pOptions.asJson) {
    pContext.out.line(OXJson({{"file", pOptions.output},
                              {"width", pResult.size.width},
                              {"height", pResult.size.height},
                              {"images", pResult.frames},
                              {"camera", pOptions.camera},
                              {"first_us", pResult.startUs},
                              {"damaged", pResult.damaged}})
                          .text());
    return;
  }
  OXOutput& said = pOptions.output == "-" ? pContext.err : pContext.out;
  said.line(fmt::format("{}: {} of {}x{}", printable(pOptions.output),
                        counted(pResult.frames, "image"), pResult.size.width, pResult.size.height));
  if (!pResult.remark.empty()) pContext.err.tryLine(pResult.remark);
  if (pResult.damaged > 0)
    pContext.err.tryLine(
        fmt::format("video frames that could not be decoded completely: {}", pResult.damaged));
}

int runImport(Context& pContext, const Options& pOptions) {
  if (pOptions.output == "-" && pOptions.asJson)
    throw OXUsageError("--json and the output - cannot both use standard output");
  requireDifferentFiles(pOptions.video, pOptions.output);
  requireExtension(pOptions.output, ".oxv");
  // Made at the first frame: the expected number is known only once the video is open.
  std::unique_ptr<OXProgress> progress;
  const ImportResult result = importVideo(pOptions, pContext.out, [&](int pDone, int pExpected) {
    if (!progress) progress = std::make_unique<OXProgress>(pContext.err, "import", pExpected);
    progress->update(pDone, "");
  });
  // Clears the bar before the result is printed.
  progress.reset();
  print(pContext, pOptions, result);
  return result.damaged == 0 ? kDone : kDoneWithLosses;
}

}  // namespace

void addImport(OXCommandLine& pLine, Context& pContext) {
  OXVerb verb = addVerb(
      pLine, pContext,
      {"import", "converts a video to an .oxv file that a file camera can replay",
       "oxvideo import clip.mp4 clip.oxv --size 640x480\n"
       "  oxvideo import clip.mp4 clip.oxv --camera 1 --start 2024-05-01T12:00:00Z\n"
       "  oxvideo import test test.oxv --frames 90\n"
       "Images are stored as kYUV422, the format of the cameras; other aspect ratios get black "
       "bars."});
  const auto options = std::make_shared<Options>();
  verb.option("VIDEO", options->video,
              "a video file, a picture, a folder of pictures, \"test\", or what else push takes")
      .required();
  verb.option("OUT", options->output, "recording to write; - for standard output").required();
  verb.option("--size", options->sizeText,
              "160x120, 320x240, 640x480 or 1280x960, or their names, as kVGA (default: the "
              "largest that the video fills)")
      .valueName("SIZE");
  verb.option("--fps", options->fpsText,
              "images per second (default: every frame of the video, at its own time)")
      .valueName("F");
  verb.option("--frames", options->frames, "stop after this many images").valueName("N").positive();
  verb.option("--camera", options->camera, "camera that the images are said to be of (default 0)")
      .valueName("N")
      .range(0, 127);
  verb.option("--start", options->startText,
              "time of the first image, as 2024-05-01T12:00:00Z (default: when the video file was "
              "last changed)")
      .valueName("TIME");
  verb.option("--stream", options->stream,
              "which of the file's video streams, from 0 (default: the best one)")
      .valueName("N")
      .notNegative();
  addOverwriteOption(verb, options->overwrite);
  verb.flag("--json", options->asJson, "print JSON on one line");
  verb.onRun([&pContext, options] {
    if (!options->sizeText.empty()) options->size = parseSize(options->sizeText);
    if (!options->fpsText.empty()) options->fps = parseFps(options->fpsText);
    if (!options->startText.empty()) options->startUs = parseDateTime(options->startText);
    pContext.status = runImport(pContext, *options);
  });
}

}  // namespace OX::cli
