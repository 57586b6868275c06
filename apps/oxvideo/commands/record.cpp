// The device records a frame for each raw image requested. This verb paces the requests, one for
// each new frame, and leaves the file to the broker.
#include <fmt/format.h>

#include <chrono>
#include <filesystem>
#include <memory>

#include <oxframework/oxdefinitions.h>
#include <oxframework/oxerror.h>
#include "commands/commands.h"
#include "device/viewoptions.h"
#include "device/vocabulary.h"
#include "terminal/exitstatus.h"
#include "terminal/interrupt.h"
#include "terminal/progress.h"

namespace OX::cli {

namespace {

using Clock = std::chrono::steady_clock;

struct Options {
  std::string output;
  ViewOptions view;
  int frames = 0;
  int period = 1;
  int fps = 0;  ///< 0: the camera's current rate
  double timeoutSeconds = 10;
};

/// Records with one subscription and detects new frames with another, small one: the device records
/// a frame for each raw request, even if it is the same frame again.
class Recorder {
 public:
  Recorder(Context& pContext, const Options& pOptions);
  int run();

 private:
  bool xAwaitFrame();
  void xStop();

  const Options& fOptions;
  OXSession fSession;
  StreamRequest fStream;
  int fFps;
  OXSubscription fRecording;
  OXSubscription fPreview;
  Clock::duration fPoll;
  std::int64_t fNewestUs = 0;
  Clock::time_point fLastFrame;
  OXProgress fProgress;
};

int frameRate(const Options& pOptions, OXSession& pSession) {
  return pOptions.fps > 0 ? pOptions.fps
                          : pSession.device("getFrameRate", pOptions.view.camera).toInt();
}

Recorder::Recorder(Context& pContext, const Options& pOptions)
    : fOptions(pOptions),
      fSession(pContext.broker, "record"),
      fStream(streamRequest(pOptions.view, fSession)),
      fFps(frameRate(pOptions, fSession)),
      fRecording(fSession, fStream, fFps),
      // The smallest image there is, luma only: 19 KB for each of up to ten looks a period.
      fPreview(fSession, StreamRequest{fStream.camera, kQQVGA, kYuv}, fFps),
      fPoll(std::chrono::milliseconds(100) / std::max(fFps, 1)),
      fProgress(pContext.err, "record", pOptions.frames) {}

/// Waits for a frame that has not been recorded. False on timeout or signal.
bool Recorder::xAwaitFrame() {
  const auto limit = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                        std::chrono::duration<double>(fOptions.timeoutSeconds));
  while (Clock::now() < limit) {
    const auto image = fPreview.image();
    if (image && image->timestampUs > fNewestUs) return true;
    if (!OXInterrupt::waitUntil(Clock::now() + fPoll)) return false;
  }
  return false;
}

/// Stops the recording, so that the file is whole before this program ends.
void Recorder::xStop() {
  // Stopped before unsubscribing: the device only knows a subscriber's recording by its id.
  fSession.device("stopVideo", fRecording.id());
  fRecording.end();
  fPreview.end();
}

int Recorder::run() {
  // The broker opens the path and has another working directory.
  const std::string path = std::filesystem::absolute(fOptions.output).string();
  if (!fSession.device("recordVideo", fRecording.id(), path, fOptions.frames, fOptions.period)
           .toBool())
    throw OXFailure("the broker can't write " + printable(path));
  const std::int64_t requests = std::int64_t{fOptions.frames} * fOptions.period;
  std::int64_t done = 0;
  while (done < requests && !OXInterrupt::requested() && xAwaitFrame()) {
    // An empty reply recorded nothing and doesn't count towards the period.
    const auto image = fRecording.rawImage();
    if (!image) continue;
    fNewestUs = image->timestampUs;
    ++done;
    fProgress.update(done / fOptions.period, fmt::format("{} fps", fFps));
  }
  xStop();
  if (done == requests) return kDone;
  const std::int64_t recorded = done / fOptions.period;
  const std::string text =
      fmt::format("{} of {} frames recorded in {}", recorded, fOptions.frames, printable(path));
  if (OXInterrupt::requested()) throw OXInterrupted();
  throw OXFailure(
      fmt::format("{}; then no frame arrived for {:g} s", text, fOptions.timeoutSeconds));
}

}  // namespace

void addRecord(OXCommandLine& pLine, Context& pContext) {
  OXVerb verb =
      addVerb(pLine, pContext,
              {"record", "makes the broker record a camera's raw frames to an .oxv file",
               "oxvideo record drive.oxv --camera 0 --frames 300\n"
               "The broker writes the file, on its own machine. If a signal cuts the recording "
               "short (exit\n"
               "status 130 for SIGINT), the file is closed with the frames recorded so far."});
  const auto options = std::make_shared<Options>();
  verb.option("OUT", options->output, "file to write, on the broker's machine").required();
  verb.option("--camera", options->view.camera, "camera index (default 0)")
      .valueName("N")
      .range(0, 255);
  verb.option("--frames", options->frames, "number of frames to record")
      .required()
      .valueName("N")
      .positive();
  verb.option("--period", options->period, "record one frame out of P (default 1)")
      .valueName("P")
      .positive();
  verb.option("--resolution", options->view.resolution,
              "resolution to record at (default: the camera's current one)")
      .valueName("NAME");
  verb.option("--fps", options->fps,
              "frames per second, 5 to 30 (default: the camera's current rate)")
      .valueName("F")
      .range(1, 255);
  verb.option("--timeout", options->timeoutSeconds,
              "fail if no frame arrives for this long (default 10)")
      .valueName("SECONDS")
      .range(0.1, 86400.0);
  verb.onRun([&pContext, options] {
    checkNames(options->view);
    pContext.status = Recorder(pContext, *options).run();
  });
}

}  // namespace OX::cli
