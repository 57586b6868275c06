#include "recordings/verbs.h"

#include <fmt/format.h>

#include <memory>

#include "recordings/exporter.h"
#include "recordings/importer.h"
#include "recordings/recordingfile.h"
#include "recordings/recordingreport.h"
#include "recordings/repairer.h"
#include "terminal/exitstatus.h"
#include "terminal/interrupt.h"
#include "terminal/progress.h"

namespace OX::cli {

namespace {

/// Draws the bar and lets a signal end the work.
OnFrame withProgress(OXProgress& pProgress) {
  return [&pProgress](int pDone) {
    if (OXInterrupt::requested()) throw OXInterrupted();
    pProgress.update(pDone, "");
  };
}

void addInfo(OXCommandLine& pLine, Context& pContext) {
  OXVerb verb = addVerb(
      pLine, pContext,
      {"info", "says what an .oxv file holds: streams, images, rates, gaps, damage",
       "oxvideo info drive.oxv\nReads no pixels; oxvideo verify does. Status 3 when damaged."});
  struct Options {
    std::string file;
    bool asJson = false;
  };
  const auto options = std::make_shared<Options>();
  verb.option("FILE", options->file, "the recording").required();
  verb.flag("--json", options->asJson, "one line of JSON");
  verb.onRun([&pContext, options] {
    const RecordingReport report = reportOn(OXRecording(options->file));
    if (options->asJson)
      pContext.out.line(jsonOf(report));
    else
      pContext.out.write(textOf(report, pContext.paint()));
    if (!report.damage.empty()) pContext.status = kDoneWithLosses;
  });
}

int runVerify(Context& pContext, const std::string& pFile) {
  OXRecording recording(pFile);
  OXProgress progress(pContext.err, "verify", recording.allImages());
  const Verdict verdict = verify(recording, withProgress(progress));
  for (const std::string& fault : verdict.faults) pContext.out.line(printable(fault));
  const bool whole = verdict.faults.empty();
  pContext.out.line(fmt::format(
      "{}: {} images, {}", printable(pFile), verdict.frames,
      whole ? "all as they were recorded" : fmt::format("faults: {}", verdict.faults.size())));
  if (whole && !recording.video().hasIndex())
    pContext.out.line("  its recorder did not close it: oxvideo repair adds the index");
  return whole ? kDone : kFailed;
}

void addVerify(OXCommandLine& pLine, Context& pContext) {
  OXVerb verb = addVerb(pLine, pContext,
                        {"verify", "reads every image of an .oxv file and checks it",
                         "oxvideo verify drive.oxv\nStatus 1 when anything is damaged."});
  const auto file = std::make_shared<std::string>();
  verb.option("FILE", *file, "the recording").required();
  verb.onRun([&pContext, file] { pContext.status = runVerify(pContext, *file); });
}

int runRepair(Context& pContext, const std::string& pInput, const std::string& pOutput) {
  needDifferentFiles(pInput, pOutput);
  OXRecording recording(pInput);
  OXProgress progress(pContext.err, "repair", recording.allImages());
  const Repair result = repair(recording, pOutput, withProgress(progress));
  const auto& damage = recording.video().getDamage();
  pContext.out.line(fmt::format("{}: {} images kept, lost: {}, damaged places: {}",
                                printable(pOutput), result.kept, result.lost, damage.size()));
  return result.lost == 0 ? kDone : kDoneWithLosses;
}

void addRepair(OXCommandLine& pLine, Context& pContext) {
  OXVerb verb =
      addVerb(pLine, pContext,
              {"repair", "writes a new .oxv file of every image that can still be read",
               "oxvideo repair cut.oxv whole.oxv\nThe file that is read stays as it is. Status 3 "
               "when images were lost."});
  const auto files = std::make_shared<std::pair<std::string, std::string>>();
  verb.option("IN", files->first, "the damaged recording").required();
  verb.option("OUT", files->second, "the new one").required();
  verb.onRun(
      [&pContext, files] { pContext.status = runRepair(pContext, files->first, files->second); });
}

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

int runExport(Context& pContext, const std::string& pInput, const ExportWishes& pWishes) {
  needDifferentFiles(pInput, pWishes.output);
  OXRecording recording(pInput);
  recording.needStream(pWishes.stream);
  Export result;
  {
    OXProgress progress(pContext.err, "export", recording.images(pWishes.stream));
    result = exportRecording(recording, pWishes, [&](int pDone) { progress.update(pDone, ""); });
  }
  pContext.out.line(fmt::format("{}: {} images", printable(pWishes.output), result.frames));
  if (result.moved > 0)
    pContext.err.note(fmt::format(
        "not later than the image before, and shown a moment after it: {}", result.moved));
  if (result.unreadable == 0) return kDone;
  pContext.err.note(fmt::format("left out as damaged: {}", result.unreadable));
  return kDoneWithLosses;
}

void addExport(OXCommandLine& pLine, Context& pContext) {
  OXVerb verb = addVerb(
      pLine, pContext,
      {"export", "makes a video file or a folder of PNGs of an .oxv file",
       "oxvideo export drive.oxv drive.mkv\n"
       "  oxvideo export drive.oxv drive.mp4\n"
       "  oxvideo export drive.oxv pictures/\n"
       ".mkv keeps every byte (FFV1) unless --codec h264 is given; .mp4 is H.264. Time stamps are\n"
       "kept, counted from the first image; a PNG has its own in its name, in microseconds."});
  struct Options {
    std::string input;
    ExportWishes wishes;
  };
  const auto options = std::make_shared<Options>();
  verb.option("IN", options->input, "the recording").required();
  verb.option("OUT", options->wishes.output, "the video file, or a folder").required();
  verb.option("--codec", options->wishes.codec, "ffv1 or h264 (default: by the ending)")
      .oneOf({"ffv1", "h264"});
  verb.option("--stream", options->wishes.stream, "which stream of the file (default 0)")
      .notNegative();
  verb.onRun([&pContext, options] {
    pContext.status = runExport(pContext, options->input, options->wishes);
  });
}

}  // namespace

void addInspection(OXCommandLine& pLine, Context& pContext) {
  addInfo(pLine, pContext);
  addVerify(pLine, pContext);
  addRepair(pLine, pContext);
}

void addExchange(OXCommandLine& pLine, Context& pContext) {
  addImport(pLine, pContext);
  addExport(pLine, pContext);
}

}  // namespace OX::cli
