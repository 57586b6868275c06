// A video becomes a recording; what is asked for in words is checked before a file is made.
#include <fmt/format.h>

#include <memory>

#include "commands/commands.h"
#include "device/vocabulary.h"
#include "recordings/importer.h"
#include "recordings/recordingfile.h"
#include "terminal/exitstatus.h"
#include "terminal/progress.h"

namespace OX::cli {

namespace {

int runImport(Context& pContext, const ImportWishes& pWishes) {
  needDifferentFiles(pWishes.video, pWishes.output);
  std::unique_ptr<OXProgress> progress;
  const Import result = importVideo(pWishes, [&](int pDone, int pExpected) {
    if (!progress) progress = std::make_unique<OXProgress>(pContext.err, "import", pExpected);
    progress->update(pDone, "");
  });
  progress.reset();
  pContext.out.line(fmt::format("{}: {} images of {}x{}", printable(pWishes.output), result.frames,
                                result.size.width, result.size.height));
  if (result.damaged == 0) return kDone;
  pContext.err.note(
      fmt::format("frames of the video that could not be decoded whole: {}", result.damaged));
  return kDoneWithLosses;
}

}  // namespace

void addImport(OXCommandLine& pLine, Context& pContext) {
  OXVerb verb = addVerb(pLine, pContext,
                        {"import", "makes an .oxv file of a video, for a file camera to replay",
                         "oxvideo import clip.mp4 clip.oxv --size 640x480\n"
                         "  oxvideo import test test.oxv --frames 90\n"
                         "Images are kYUV422, as cameras give them; other shapes get black bars."});
  struct Options {
    ImportWishes wishes;
    std::string size, fps;
  };
  const auto options = std::make_shared<Options>();
  verb.option("VIDEO", options->wishes.video, "a video file, a picture, or test").required();
  verb.option("OUT", options->wishes.output, "the recording").required();
  verb.option("--size", options->size,
              "160x120, 320x240, 640x480 or 1280x960 (default: the largest that the video "
              "fills)")
      .valueName("SIZE");
  verb.option("--fps", options->fps,
              "images a second (default: every frame of the video, at its own time)")
      .valueName("F");
  verb.option("--frames", options->wishes.frames, "no more than this many")
      .valueName("N")
      .positive();
  verb.onRun([&pContext, options] {
    if (!options->size.empty()) options->wishes.size = parseSize(options->size);
    if (!options->fps.empty()) options->wishes.fps = parseFps(options->fps);
    pContext.status = runImport(pContext, options->wishes);
  });
}

}  // namespace OX::cli
