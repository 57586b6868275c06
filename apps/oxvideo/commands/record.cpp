// The device records a frame for each raw image requested. This verb paces the requests, one for
// each new frame, and leaves the file to the broker.
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <utility>

#include <oxframework/oxdefinitions.h>
#include <oxframework/oxerror.h>
#include "commands/commands.h"
#include "device/arrivals.h"
#include "device/recordingsummary.h"
#include "device/viewoptions.h"
#include "device/vocabulary.h"
#include "terminal/exitstatus.h"
#include "terminal/interrupt.h"
#include "terminal/json.h"
#include "terminal/outputfile.h"
#include "terminal/progress.h"

namespace OX::cli {

namespace {

using Clock = std::chrono::steady_clock;
// A full disk is noticed within this time; the broker is asked for nothing but its counters.
constexpr std::chrono::milliseconds kLookAgain{250};

struct Options {
  std::string output;
  ViewOptions view;
  int frames = 0;
  int period = 1;
  double timeoutSeconds = 10;
  bool asJson = false;
  bool overwrite = false;
};

/// Records with one subscription and detects new frames with another, small one: the device records
/// a frame for each raw request, even if it is the same frame again.
class Recorder {
 public:
  Recorder(Context& pContext, const Options& pOptions);
  int run();

 private:
  bool xAwaitFrame();
  void xSay(const std::string& pText);
  void xSayThatItWaits();
  void xBegin();
  void xRecordAll();
  void xNoteSize(const CameraImage& pImage);
  void xLook();
  bool xHasFailed() const { return fStatus && fStatus->state == "failed"; }
  RecordingSummary xSummary() const;
  void xReport(const RecordingSummary& pSummary, const std::string& pReason);
  std::string xWhyShort() const;

  // In the order of construction: the subscriptions need the session and end before it.
  Context& fContext;
  const Options& fOptions;
  /// The broker opens the path and has another working directory.
  const std::string fPath;
  OXSession fSession;
  StreamRequest fStream;
  int fFps;
  OXSubscription fRecording;
  OXSubscription fPreview;
  Clock::duration fPoll;
  std::int64_t fNewestUs = 0;
  std::int64_t fRequests = 0;              ///< images that were lent, of which one in P is recorded
  std::optional<RecordingStatus> fStatus;  ///< as it was last known
  Clock::time_point fNextLook;
  FrameSize fSize;  ///< of the image before; 0x0: none yet
  bool fSizeChanged = false;
  bool fIsMisfit = false;  ///< the device scales its frames for another camera's size
  bool fSaidThatItWaits = false;
  std::optional<OXProgress> fProgress;
};

Recorder::Recorder(Context& pContext, const Options& pOptions)
    : fContext(pContext),
      fOptions(pOptions),
      fPath(std::filesystem::absolute(pOptions.output).string()),
      fSession(pContext.broker, "record"),
      fStream(streamRequest(pOptions.view, fSession)),
      fFps(rateToRunAt(pOptions.view, fSession)),
      fRecording(fSession, fStream, fFps),
      // The smallest image there is, luma only: 19 KB for each of up to ten looks a period.
      fPreview(fSession, StreamRequest{fStream.camera, kQQVGA, kYuv}, fFps),
      fPoll(std::chrono::milliseconds(100) / std::max(fFps, 1)),
      fProgress(std::in_place, pContext.err, "record", pOptions.frames) {}

/// On a line of its own: the bar is drawn again after it.
void Recorder::xSay(const std::string& pText) {
  fProgress.reset();
  fContext.err.tryLine(pText);
  fProgress.emplace(fContext.err, "record", fOptions.frames);
}

void Recorder::xSayThatItWaits() {
  if (std::exchange(fSaidThatItWaits, true)) return;
  OXArrivals arrivals(fSession);
  arrivals.look();
  const std::string why = arrivals.whyNothing(fStream.camera);
  xSay(fmt::format("waiting for a first image of camera {}{}{}", fStream.camera,
                   why.empty() ? "" : ": ", why));
}

/// Waits for a frame that has not been recorded. False on timeout or signal, and when the recording
/// has failed.
bool Recorder::xAwaitFrame() {
  const auto limit = OXInterrupt::momentAfter(fOptions.timeoutSeconds);
  while (Clock::now() < limit) {
    const auto image = fPreview.image();
    if (image && image->timestampUs > fNewestUs) return true;
    if (!image && fNewestUs == 0) xSayThatItWaits();
    if (!OXInterrupt::waitUntil(Clock::now() + fPoll)) return false;
  }
  return false;
}

void Recorder::xLook() {
  fNextLook = Clock::now() + kLookAgain;
  if (auto status = queryRecording(fSession, fRecording.id())) fStatus = std::move(status);
}

void Recorder::xBegin() {
  if (fSession.isLocal() && std::filesystem::exists(std::filesystem::symlink_status(fPath)))
    requireWritable(fPath, fOptions.overwrite);
  // Both: the rate of a camera is the highest that anybody asks for.
  settleRate(fSession, fRecording.id(), {fStream}, fOptions.view.rate, fContext.err);
  fFps = std::max(fSession.device("getFrameRate", fRecording.id()).toInt(), 1);
  if (fOptions.view.rate.force) fSession.device("setFrameRate", fPreview.id(), fFps);
  if (fSession.device("recordVideo", fRecording.id(), fPath, fOptions.frames, fOptions.period)
          .toBool())
    return;
  xLook();
  throw OXFailure("the broker can't write " + printable(fPath) +
                  (xHasFailed() ? "\n  " + printable(fStatus->reason) : ""));
}

void Recorder::xNoteSize(const CameraImage& pImage) {
  const FrameSize size{pImage.width, pImage.height};
  if (fSize == FrameSize{}) {
    // What is recorded is raw, whatever the colour space of a subscription.
    StreamRequest asked = fStream;
    asked.colorSpace = pImage.colorSpace;
    if (!fOptions.view.resolution.empty()) noteFormat(asked, pImage, fContext.err);
    const std::string misfit = whyMisfit(fSession, pImage);
    if (!misfit.empty()) xSay(misfit);
    fIsMisfit = !misfit.empty();
  } else if (size != fSize) {
    fSizeChanged = true;
    xSay(fmt::format("image {}: {} and no longer {}, since another subscriber changed camera {}",
                     fRequests / fOptions.period, sizeText(size), sizeText(fSize), fStream.camera));
  }
  fSize = size;
}

void Recorder::xRecordAll() {
  const std::int64_t requests = std::int64_t{fOptions.frames} * fOptions.period;
  while (fRequests < requests && !OXInterrupt::requested() && !xHasFailed() && xAwaitFrame()) {
    // An empty reply recorded nothing and doesn't count towards the period.
    const auto image = fRecording.rawImage();
    if (image) {
      fNewestUs = image->timestampUs;
      xNoteSize(*image);
      ++fRequests;
    }
    if (Clock::now() >= fNextLook) xLook();
    fProgress->update(fRequests / fOptions.period, fmt::format("{} fps", fFps));
  }
  // Stopped before unsubscribing: the device only knows a subscriber's recording by its id.
  fSession.device("stopVideo", fRecording.id());
  xLook();
  fRecording.end();
  fPreview.end();
}

/// What the broker told last; the file when it is here and the broker, being gone or older, tells
/// nothing; else what was asked for.
RecordingSummary Recorder::xSummary() const {
  const bool isTold = fStatus && fStatus->state != "recording";
  if (!isTold && fSession.isLocal())
    if (const auto file = summarizeFile(fPath, fFps, fOptions.period)) return *file;
  if (fStatus) return summarize(*fStatus);
  RecordingSummary summary;
  summary.images = fRequests / fOptions.period;
  return summary;
}

void Recorder::xReport(const RecordingSummary& pSummary, const std::string& pReason) {
  fProgress.reset();
  fContext.err.tryLine(printable(fOptions.output) + ": " + pSummary.text());
  if (!fOptions.asJson) return;
  OXJson json = {{"file", fPath}, {"wanted", fOptions.frames}};
  pSummary.addTo(json);
  json.add("size_changed", fSizeChanged);
  json.add("reason", pReason);
  fContext.out.line(json.text());
}

/// Empty when every image that was asked for is there.
std::string Recorder::xWhyShort() const {
  if (xHasFailed()) return fStatus->reason;
  const std::int64_t done = fRequests / fOptions.period;
  if (done >= fOptions.frames && (!fStatus || fStatus->images >= fOptions.frames)) return "";
  if (OXInterrupt::requested()) return "interrupted";
  if (fStatus && fStatus->state != "recording" && fStatus->images < done)
    return fStatus->reason.empty() ? "the recording ended" : fStatus->reason;
  return fmt::format("no frame arrived for {:g} s", fOptions.timeoutSeconds);
}

int Recorder::run() {
  xBegin();
  try {
    xRecordAll();
  } catch (const OXError& error) {
    const RecordingSummary summary = xSummary();
    xReport(summary, error.what());
    throw;
  }
  const std::string why = xWhyShort();
  const RecordingSummary summary = xSummary();
  xReport(summary, why);
  if (OXInterrupt::requested() && !why.empty()) throw OXInterrupted();
  if (!why.empty())
    throw OXFailure(fmt::format("the recording ended after {} of {} frames: {}", summary.images,
                                fOptions.frames, printable(why)));
  return summary.missing > 0 || fSizeChanged || fIsMisfit ? kDoneWithLosses : kDone;
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
  verb.option("--fps", options->view.rate.fps,
              "frames per second, 5 to 30 (default: the camera's current rate)")
      .valueName("F")
      .range(1, 255);
  addForceFps(verb, options->view.rate);
  verb.option("--timeout", options->timeoutSeconds,
              "fail if no frame arrives for this long (default 10)")
      .valueName("SECONDS")
      .range(0.1, 86400.0);
  addOverwriteOption(verb, options->overwrite);
  verb.flag("--json", options->asJson, "print what was recorded as JSON at the end");
  verb.onRun([&pContext, options] {
    checkNames(options->view);
    requireExtension(options->output, ".oxv");
    pContext.status = Recorder(pContext, *options).run();
  });
}

}  // namespace OX::cli
