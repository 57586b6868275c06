// One request for all cameras: their images belong to the same moment, which several snapshots'
// don't.
#include <fmt/format.h>

#include <filesystem>
#include <memory>

#include "commands/commands.h"
#include "device/viewoptions.h"
#include "device/vocabulary.h"
#include "media/picture.h"
#include "terminal/exitstatus.h"
#include "terminal/files.h"
#include "terminal/json.h"

namespace OX::cli {

namespace {

constexpr int kLowestFps = 5;  // a higher rate could speed up the cameras for everybody

struct Options {
  std::string output;
  std::vector<int> cameras;
  std::vector<std::string> resolutions;
  std::vector<std::string> colorSpaces;
  bool asJson = false;
};

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
    streams.push_back(streamRequest({cameras[i], valueForCamera(pOptions.resolutions, i, ""),
                                     valueForCamera(pOptions.colorSpaces, i, "kRGB")},
                                    pSession));
  return streams;
}

/// "out/a.png" and camera 1: "out/a-1.png".
std::string cameraFile(const std::string& pOutput, int pCamera) {
  const std::filesystem::path path(pOutput);
  return (path.parent_path() /
          fmt::format("{}-{}{}", path.stem().string(), pCamera, path.extension().string()))
      .string();
}

int run(Context& pContext, const Options& pOptions) {
  // Usage errors first: they must not depend on a broker.
  for (const std::string& name : pOptions.resolutions) parseResolution(name);
  for (const std::string& name : pOptions.colorSpaces) parseColorSpace(name);
  OXSession session(pContext.broker, "multi");
  const std::vector<StreamRequest> streams = streamRequests(pOptions, session);
  OXSubscription subscription(session, streams, kLowestFps);
  const auto images = subscription.images();
  // Before encoding, which takes longer than the cameras should stay subscribed.
  subscription.end();

  OXJson list = OXJson::array();
  std::size_t written = 0;
  for (std::size_t i = 0; i < streams.size(); ++i) {
    // An invalid reply leaves the list empty.
    if (i >= images.size() || !images[i]) {
      pContext.err.tryLine(fmt::format("no frame from camera {}", streams[i].camera));
      continue;
    }
    const CameraImage& image = *images[i];
    const std::string file = cameraFile(pOptions.output, streams[i].camera);
    writeFile(file, encodePng(toPicture(image)), pContext.out);
    ++written;
    list.append({{"camera", streams[i].camera},
                 {"file", file},
                 {"width", image.width},
                 {"height", image.height},
                 {"colorspace", colorSpaceName(image.colorSpace)},
                 {"timestamp_us", std::to_string(image.timestampUs)}});
    if (!pOptions.asJson) pContext.out.line(file);
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
       "oxvideo multi -o now.png --camera 0 --camera 1    (writes now-0.png and now-1.png)\n"
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
  verb.flag("--json", options->asJson, "print what was written as a JSON array");
  verb.onRun([&pContext, options] { pContext.status = run(pContext, *options); });
}

}  // namespace OX::cli
