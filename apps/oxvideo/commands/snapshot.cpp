// Waits for a real image: the camera may only start with this subscription, and its feeder learns
// of a larger size later than the camera does.
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>

#include "commands/commands.h"
#include "device/arrivals.h"
#include "device/frames.h"
#include "device/viewoptions.h"
#include "device/vocabulary.h"
#include "media/picture.h"
#include "terminal/exitstatus.h"
#include "terminal/interrupt.h"
#include "terminal/json.h"
#include "terminal/outputfile.h"

namespace OX::cli {

namespace {

using Clock = std::chrono::steady_clock;
// Without a service that says when there is a frame: long enough to leave a refusing device alone,
// short against the 200 ms of the lowest rate.
constexpr std::chrono::milliseconds kLookAgain{20};
constexpr std::chrono::milliseconds kAwaitFrame{200};

struct Options {
  ViewOptions view;
  std::string output;
  double timeoutSeconds = 5;
  double maxAgeSeconds = 2;
  bool asJson = false;
  bool overwrite = false;
};

struct Judged {
  CameraImage image;
  OXArrivals::Verdict verdict;
};

[[noreturn]] void failWithoutImage(const Context& pContext, const Options& pOptions,
                                   const std::string& pWhy, const std::optional<double>& pOldest) {
  const std::string what =
      pOldest
          ? fmt::format("the newest image of camera {} is {:.1f} s old, more than --max-age {:g}",
                        pOptions.view.camera, *pOldest, pOptions.maxAgeSeconds)
          : fmt::format("no frame from camera {} within {:g} s", pOptions.view.camera,
                        pOptions.timeoutSeconds);
  throw OXFailure(fmt::format(
      "{}{}{}{}", what, pWhy.empty() ? "" : ": ", pWhy,
      pWhy.ends_with("not delivered")
          ? ""
          : fmt::format(
                "\n  is anything feeding it? try: oxvideo --broker {} push test --camera {}",
                shellWord(pContext.broker), pOptions.view.camera)));
}

/// The image that the camera has, the first time; then what comes after it.
std::optional<CameraImage> look(OXFrames& pFrames, bool pIsFirst, Clock::time_point pLimit) {
  if (pIsFirst) return pFrames.newest();
  if (!pFrames.areAnnounced()) {
    OXInterrupt::waitUntil(std::min(pLimit, Clock::now() + kLookAgain));
    return pFrames.newest();
  }
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(pLimit - Clock::now());
  return pFrames.next(std::clamp(left, std::chrono::milliseconds(0), kAwaitFrame));
}

/// Requests images until there is a young one of which no pixel was made up; an enlarged one is
/// better than none. The device waits up to a second for each.
Judged waitForImage(const Context& pContext, OXFrames& pFrames, OXArrivals& pArrivals,
                    const Options& pOptions) {
  const auto limit = OXInterrupt::momentAfter(pOptions.timeoutSeconds);
  std::optional<Judged> enlarged;
  std::optional<double> tooOld;
  for (bool isFirst = true; !OXInterrupt::requested(); isFirst = false) {
    // Asked before the time is checked, so that --timeout 0 still makes one request.
    auto image = look(pFrames, isFirst, limit);
    pArrivals.look();
    if (image) {
      OXArrivals::Verdict verdict = pArrivals.judge(*image);
      const bool isYoung = !verdict.ageSeconds || *verdict.ageSeconds <= pOptions.maxAgeSeconds;
      tooOld = isYoung ? std::nullopt : verdict.ageSeconds;
      if (isYoung && !verdict.isMisfit) {
        if (!verdict.enlargedFrom) return {std::move(*image), std::move(verdict)};
        enlarged = {std::move(*image), std::move(verdict)};
      }
    }
    if (Clock::now() >= limit) {
      if (enlarged) return std::move(*enlarged);
      failWithoutImage(pContext, pOptions, pArrivals.whyNothing(pOptions.view.camera), tooOld);
    }
  }
  throw OXInterrupted();
}

void report(Context& pContext, const Options& pOptions, const Judged& pJudged) {
  const CameraImage& image = pJudged.image;
  pContext.err.tryLine(printable(pOptions.output) + ": " + describe(image, pJudged.verdict));
  if (!pOptions.asJson) return;
  OXJson json = {{"file", pOptions.output},
                 {"width", image.width},
                 {"height", image.height},
                 {"layers", image.layers},
                 {"colorspace", colorSpaceName(image.colorSpace)},
                 {"camera", image.camera},
                 {"timestamp_us", std::to_string(image.timestampUs)}};
  addVerdict(json, pJudged.verdict);
  pContext.out.line(json.text());
}

void run(Context& pContext, const Options& pOptions) {
  // Usage errors first: they must not depend on a broker.
  checkNames(pOptions.view);
  if (pOptions.asJson && pOptions.output == "-")
    throw OXUsageError("--json and -o - cannot both use standard output");
  requireExtension(pOptions.output, ".png");
  OXOutputFile file(pOptions.output, pOptions.overwrite, pContext.out);
  OXSession session(pContext.broker, "snapshot");
  const StreamRequest stream = streamRequest(pOptions.view, session);
  OXArrivals arrivals(session);
  arrivals.look();
  const auto frames = OXFrames::open(session, stream, lookRate(pOptions.view.rate));
  settleRate(session, frames->id(), {stream}, pOptions.view.rate, pContext.err);
  const Judged judged = waitForImage(pContext, *frames, arrivals, pOptions);
  // Before encoding, which takes longer than the camera should stay subscribed.
  frames->end();
  noteFormat(stream, judged.image, pContext.err);
  file.write(encodePng(toPicture(judged.image)));
  file.commit();
  report(pContext, pOptions, judged);
}

}  // namespace

void addSnapshot(OXCommandLine& pLine, Context& pContext) {
  OXVerb verb = addVerb(pLine, pContext,
                        {"snapshot", "saves one image of a camera as PNG",
                         "oxvideo snapshot -o a.png --camera 0 --resolution kVGA\n"
                         "  oxvideo snapshot -o - --colorspace kHSY > hue.png"});
  const auto options = std::make_shared<Options>();
  verb.option("-o,--output", options->output, "PNG file to write; - for standard output")
      .required()
      .valueName("FILE");
  addViewOptions(verb, options->view);
  addLookRate(verb, options->view.rate);
  verb.option("--timeout", options->timeoutSeconds, "how long to wait for a frame (default 5)")
      .valueName("SECONDS")
      .range(0.0, 3600.0);
  verb.option("--max-age", options->maxAgeSeconds,
              "refuse an image older than this (default 2; not of a replay)")
      .valueName("SECONDS")
      .range(0.0, 1e9);
  addOverwriteOption(verb, options->overwrite);
  verb.flag("--json", options->asJson, "print what was written as JSON");
  verb.onRun([&pContext, options] { run(pContext, *options); });
}

}  // namespace OX::cli
