// One request for all cameras: their images belong to the same moment, which several snapshots'
// don't.
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>

#include <oxframework/oxerror.h>
#include "commands/commands.h"
#include "device/arrivals.h"
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
constexpr std::chrono::milliseconds kLookAgain{20};

struct Options {
  std::string output;
  std::vector<int> cameras;
  std::vector<std::string> resolutions;
  std::vector<std::string> colorSpaces;
  RateWish rate;
  double timeoutSeconds = 5;
  bool asJson = false;
  bool overwrite = false;
};

using Images = std::vector<std::optional<CameraImage>>;

/// A single word applies to all cameras; several apply to one camera each, in order.
const std::string& valueForCamera(const std::vector<std::string>& pWords, std::size_t pIndex,
                                  const std::string& pDefault) {
  if (pWords.empty()) return pDefault;
  return pWords[pWords.size() == 1 ? 0 : pIndex];
}

void checkCounts(const Options& pOptions, std::size_t pCameras) {
  for (const std::size_t count : {pOptions.resolutions.size(), pOptions.colorSpaces.size()})
    if (count > 1 && count != pCameras)
      throw OXUsageError(
          fmt::format("give --resolution and --colorspace once for all cameras, or once for each "
                      "of the {} cameras",
                      pCameras));
}

std::vector<StreamRequest> streamRequests(const Options& pOptions, OXSession& pSession) {
  std::vector<int> cameras = pOptions.cameras;
  if (cameras.empty())
    for (int index = 0, count = pSession.countCameras(); index < count; ++index)
      cameras.push_back(index);
  checkCounts(pOptions, cameras.size());
  std::vector<StreamRequest> streams;
  for (std::size_t i = 0; i < cameras.size(); ++i)
    streams.push_back(streamRequest({cameras[i],
                                     valueForCamera(pOptions.resolutions, i, ""),
                                     valueForCamera(pOptions.colorSpaces, i, "kRGB"),
                                     {}},
                                    pSession));
  return streams;
}

/// "out/a.png" and camera 1: "out/a-1.png".
std::string cameraFile(const std::string& pOutput, int pCamera) {
  if (pOutput == "-") return pOutput;
  const std::filesystem::path path(pOutput);
  return (path.parent_path() /
          fmt::format("{}-{}{}", path.stem().string(), pCamera, path.extension().string()))
      .string();
}

/// Whether every stream has an image of which no pixel was made up.
bool areReal(const Images& pImages, std::size_t pStreams, const OXArrivals& pArrivals) {
  if (pImages.size() < pStreams) return false;
  return std::all_of(pImages.begin(), pImages.end(), [&](const auto& image) {
    if (!image) return false;
    const OXArrivals::Verdict verdict = pArrivals.judge(*image);
    return !verdict.enlargedFrom && !verdict.isMisfit;
  });
}

/// Images of one moment, asked for until all are real or the time is over. A broker that can't tell
/// is asked once.
Images waitForImages(OXSession& pSession, OXSubscription& pSubscription, std::size_t pStreams,
                     OXArrivals& pArrivals, const Options& pOptions) {
  const auto limit = OXInterrupt::momentAfter(pOptions.timeoutSeconds);
  while (!OXInterrupt::requested()) {
    const bool isLast = !pArrivals.isKnown() || Clock::now() >= limit;
    try {
      Images images = pSubscription.images();
      pArrivals.look();
      if (isLast || areReal(images, pStreams, pArrivals)) return images;
    } catch (const OXError&) {
      // One camera without a frame fails the request of all; it may come yet.
      if (isLast || !pSession.isConnected()) throw;
      pArrivals.look();
    }
    OXInterrupt::waitUntil(std::min(limit, Clock::now() + kLookAgain));
  }
  throw OXInterrupted();
}

void sayWhyNothing(Context& pContext, const OXArrivals& pArrivals, int pCamera) {
  const std::string why = pArrivals.whyNothing(pCamera);
  pContext.err.tryLine(
      fmt::format("no frame from camera {}{}{}", pCamera, why.empty() ? "" : ": ", why));
}

void checkOutput(const Options& pOptions, std::size_t pCameras) {
  requireExtension(pOptions.output, ".png");
  if (pOptions.output != "-") return;
  if (pOptions.asJson) throw OXUsageError("--json and -o - cannot both use standard output");
  if (pCameras > 1)
    throw OXUsageError("-o - takes one picture: choose one camera, or files with -o NAME.png");
}

int run(Context& pContext, const Options& pOptions) {
  // Usage errors first: they must not depend on a broker.
  for (const std::string& name : pOptions.resolutions) parseResolution(name);
  for (const std::string& name : pOptions.colorSpaces) parseColorSpace(name);
  checkOutput(pOptions, pOptions.cameras.size());
  OXSession session(pContext.broker, "multi");
  const std::vector<StreamRequest> streams = streamRequests(pOptions, session);
  checkOutput(pOptions, streams.size());
  if (const auto camera = queryCamera(session, streams.front().camera); camera && camera->isReplay)
    throw OXFailure(
        "a file camera has no images of several streams\n  take one: oxvideo snapshot -o now.png");
  std::vector<std::unique_ptr<OXOutputFile>> files;
  files.reserve(streams.size());
  for (const StreamRequest& stream : streams)
    files.push_back(std::make_unique<OXOutputFile>(cameraFile(pOptions.output, stream.camera),
                                                   pOptions.overwrite, pContext.out));
  OXArrivals arrivals(session);
  arrivals.look();
  OXSubscription subscription(session, streams, lookRate(pOptions.rate));
  settleRate(session, subscription.id(), streams, pOptions.rate, pContext.err);
  Images images;
  try {
    images = waitForImages(session, subscription, streams.size(), arrivals, pOptions);
  } catch (const OXError&) {
    for (const StreamRequest& stream : streams)
      if (!arrivals.whyNothing(stream.camera).empty())
        sayWhyNothing(pContext, arrivals, stream.camera);
    throw;
  }
  // Before encoding, which takes longer than the cameras should stay subscribed.
  subscription.end();

  OXJson list = OXJson::array();
  std::size_t written = 0;
  for (std::size_t i = 0; i < streams.size(); ++i) {
    // An invalid reply leaves the list empty.
    if (i >= images.size() || !images[i]) {
      sayWhyNothing(pContext, arrivals, streams[i].camera);
      continue;
    }
    const CameraImage& image = *images[i];
    const OXArrivals::Verdict verdict = arrivals.judge(image);
    if (verdict.isMisfit) {
      sayWhyNothing(pContext, arrivals, streams[i].camera);
      continue;
    }
    noteFormat(streams[i], image, pContext.err);
    files[i]->write(encodePng(toPicture(image)));
    files[i]->commit();
    ++written;
    const std::string& file = files[i]->path();
    pContext.err.tryLine(printable(file) + ": " + describe(image, verdict));
    OXJson json = {{"camera", streams[i].camera},
                   {"file", file},
                   {"width", image.width},
                   {"height", image.height},
                   {"colorspace", colorSpaceName(image.colorSpace)},
                   {"timestamp_us", std::to_string(image.timestampUs)}};
    addVerdict(json, verdict);
    list.append(json);
    if (!pOptions.asJson && file != "-") pContext.out.line(file);
  }
  if (pOptions.asJson) pContext.out.line(list.text());
  if (written == 0) return kFailed;
  return written < streams.size() ? kDoneWithLosses : kDone;
}

}  // namespace

void addMulti(OXCommandLine& pLine, Context& pContext) {
  OXVerb verb = addVerb(
      pLine, pContext,
      {"multi", "saves one image from each of several cameras, requested in one call",
       "oxvideo multi -o now.png --camera 0 --camera 1\n"
       "  oxvideo multi -o now.png --camera 1 --camera 0 --resolution kVGA --resolution kQVGA"});
  const auto options = std::make_shared<Options>();
  verb.option("-o,--output", options->output,
              "PNG files to write; the camera index is inserted before the extension")
      .required()
      .valueName("FILE");
  verb.option("--camera", options->cameras, "camera index; can be repeated (default: all cameras)")
      .valueName("N")
      .range(0, 255);
  verb.option("--resolution", options->resolutions,
              "once for all or once for each camera (default: each camera's current one)")
      .valueName("NAME");
  verb.option("--colorspace", options->colorSpaces,
              "once for all or once for each camera (default kRGB)")
      .valueName("NAME");
  addLookRate(verb, options->rate);
  verb.option("--timeout", options->timeoutSeconds,
              "how long to wait for frames that were not enlarged (default 5)")
      .valueName("SECONDS")
      .range(0.0, 3600.0);
  addOverwriteOption(verb, options->overwrite);
  verb.flag("--json", options->asJson, "print what was written as a JSON array");
  verb.onRun([&pContext, options] { pContext.status = run(pContext, *options); });
}

}  // namespace OX::cli
