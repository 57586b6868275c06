// Sizes and rates are parsed before the output is created: a typing error leaves no file.
#include <fmt/format.h>

#include <memory>

#include "commands/commands.h"
#include "device/vocabulary.h"
#include "recordings/importer.h"
#include "recordings/inputrecording.h"
#include "terminal/exitstatus.h"
#include "terminal/progress.h"

namespace OX::cli {

namespace {

int runImport(Context& pContext, const ImportOptions& pOptions) {
  requireDifferentFiles(pOptions.video, pOptions.output);
  // Made at the first frame: the expected number is known only once the video is open.
  std::unique_ptr<OXProgress> progress;
  const ImportResult result = importVideo(pOptions, [&](int pDone, int pExpected) {
    if (!progress) progress = std::make_unique<OXProgress>(pContext.err, "import", pExpected);
    progress->update(pDone, "");
  });
  // Clears the bar before the result is printed.
  progress.reset();
  pContext.out.line(fmt::format("{}: {} images of {}x{}", printable(pOptions.output), result.frames,
                                result.size.width, result.size.height));
  if (result.damaged == 0) return kDone;
  pContext.err.tryLine(
      fmt::format("video frames that could not be decoded completely: {}", result.damaged));
  return kDoneWithLosses;
}

}  // namespace

void addImport(OXCommandLine& pLine, Context& pContext) {
  OXVerb verb = addVerb(pLine, pContext,
                        {"import", "converts a video to an .oxv file that a file camera can replay",
                         "oxvideo import clip.mp4 clip.oxv --size 640x480\n"
                         "  oxvideo import test test.oxv --frames 90\n"
                         "Images are stored as kYUV422, the format of the cameras; other aspect "
                         "ratios get black bars."});
  // Texts and not numbers: the parser's own complaints don't say which sizes and rates a camera
  // has.
  struct Options : ImportOptions {
    std::string sizeText, fpsText;
  };
  const auto options = std::make_shared<Options>();
  verb.option("VIDEO", options->video, "a video file, a picture, or \"test\"").required();
  verb.option("OUT", options->output, "recording to write").required();
  verb.option("--size", options->sizeText,
              "160x120, 320x240, 640x480 or 1280x960 (default: the largest that the video "
              "fills)")
      .valueName("SIZE");
  verb.option("--fps", options->fpsText,
              "images per second (default: every frame of the video, at its own time)")
      .valueName("F");
  verb.option("--frames", options->frames, "stop after this many images").valueName("N").positive();
  verb.onRun([&pContext, options] {
    if (!options->sizeText.empty()) options->size = parseSize(options->sizeText);
    if (!options->fpsText.empty()) options->fps = parseFps(options->fpsText);
    pContext.status = runImport(pContext, *options);
  });
}

}  // namespace OX::cli
