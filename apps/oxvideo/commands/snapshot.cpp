// Waits for a fresh image, since the camera may only start with this subscription.
#include <fmt/format.h>

#include <chrono>
#include <memory>

#include "commands/commands.h"
#include "device/viewoptions.h"
#include "device/vocabulary.h"
#include "media/picture.h"
#include "terminal/exitstatus.h"
#include "terminal/files.h"
#include "terminal/interrupt.h"
#include "terminal/json.h"

namespace OX::cli {

namespace {

using Clock = std::chrono::steady_clock;
constexpr int kLowestFps = 5;  // a higher rate could speed up the camera for everybody

struct Options {
  ViewOptions view;
  std::string output;
  double timeoutSeconds = 5;
  bool asJson = false;
};

/// Requests images until there is one; the device waits up to a second for each.
CameraImage waitForImage(OXSubscription& pSubscription, const Options& pOptions) {
  const auto limit = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                        std::chrono::duration<double>(pOptions.timeoutSeconds));
  while (!OXInterrupt::requested()) {
    // Asked before the time is checked, so that --timeout 0 still makes one request.
    if (auto image = pSubscription.image()) return std::move(*image);
    if (Clock::now() >= limit)
      throw OXFailure(
          fmt::format("no frame from camera {0} within {1:g} s\n"
                      "  is anything feeding it? try: oxvideo push test --camera {0}",
                      pOptions.view.camera, pOptions.timeoutSeconds));
  }
  throw OXInterrupted();
}

void report(Context& pContext, const Options& pOptions, const CameraImage& pImage) {
  const std::string what =
      fmt::format("{}x{} {} of camera {}, {:.0f} ms old", pImage.width, pImage.height,
                  colorSpaceName(pImage.colorSpace), pImage.camera,
                  static_cast<double>(wallClockUs() - pImage.timestampUs) / 1000);
  pContext.err.tryLine(pOptions.output + ": " + what);
  if (!pOptions.asJson) return;
  pContext.out.line(OXJson({{"file", pOptions.output},
                            {"width", pImage.width},
                            {"height", pImage.height},
                            {"layers", pImage.layers},
                            {"colorspace", colorSpaceName(pImage.colorSpace)},
                            {"camera", pImage.camera},
                            {"timestamp_us", std::to_string(pImage.timestampUs)}})
                        .text());
}

void run(Context& pContext, const Options& pOptions) {
  // Usage errors first: they must not depend on a broker.
  checkNames(pOptions.view);
  if (pOptions.asJson && pOptions.output == "-")
    throw OXUsageError("--json and -o - cannot both use standard output");
  OXSession session(pContext.broker, "snapshot");
  OXSubscription subscription(session, streamRequest(pOptions.view, session), kLowestFps);
  const CameraImage image = waitForImage(subscription, pOptions);
  // Before encoding, which takes longer than the camera should stay subscribed.
  subscription.end();
  writeFile(pOptions.output, encodePng(toPicture(image)), pContext.out);
  report(pContext, pOptions, image);
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
  verb.option("--timeout", options->timeoutSeconds, "how long to wait for a frame (default 5)")
      .valueName("SECONDS")
      .range(0.0, 3600.0);
  verb.flag("--json", options->asJson, "print what was written as JSON");
  verb.onRun([&pContext, options] { run(pContext, *options); });
}

}  // namespace OX::cli
