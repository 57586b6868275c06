// A table of all cameras: the first thing to look at when images don't come, hence whether any do.
#include <fmt/format.h>

#include <memory>
#include <optional>
#include <vector>

#include <oxframework/oxdefinitions.h>
#include "commands/commands.h"
#include "device/arrivals.h"
#include "device/session.h"
#include "device/status.h"
#include "device/vocabulary.h"
#include "terminal/json.h"

namespace OX::cli {

namespace {

struct Camera {
  int index, model, resolution, colorSpace, frameRate;
  bool isOff;
  std::optional<CameraStatus> status;  ///< empty for an older broker
};

/// Of an older broker. Several calls, because the device has no operation that reports all settings
/// at once: another client's change in between may show.
Camera askCamera(OXSession& pSession, int pIndex) {
  const auto ask = [&](const char* pMethod) { return pSession.device(pMethod, pIndex).toInt(); };
  return {pIndex,
          ask("getCameraModel"),
          ask("getResolution"),
          ask("getColorSpace"),
          ask("getFrameRate"),
          pSession.device("isFrameGrabberOff", pIndex).toBool(),
          {}};
}

/// All from one moment, where the broker can tell.
std::vector<Camera> queryAll(OXSession& pSession) {
  std::vector<Camera> result;
  if (const auto cameras = queryCameras(pSession)) {
    for (const CameraStatus& camera : *cameras)
      result.push_back({camera.index, camera.model,
                        getResolutionFromSize(camera.size.width, camera.size.height),
                        camera.colorSpace, camera.fps, camera.grabber <= 0, camera});
    return result;
  }
  for (int index = 0, count = pSession.countCameras(); index < count; ++index)
    result.push_back(askCamera(pSession, index));
  return result;
}

std::string abilities(const CameraStatus& pCamera) {
  if (pCamera.sizes.empty()) return "-";
  return fmt::format("{} to {}, {} to {} a second", sizeText(pCamera.sizes.front()),
                     sizeText(pCamera.sizes.back()), pCamera.lowestFps, pCamera.highestFps);
}

void addStatus(OXJson& pJson, const CameraStatus& pCamera) {
  OXJson sizes = OXJson::array();
  for (const FrameSize size : pCamera.sizes) sizes.append(sizeText(size));
  const bool came = pCamera.ageMs >= 0;
  pJson.add("sizes", sizes);
  pJson.add("lowest_fps", pCamera.lowestFps);
  pJson.add("highest_fps", pCamera.highestFps);
  pJson.add("source", pCamera.isReplay ? "replay" : "push");
  pJson.add("fed", pCamera.isFed());
  pJson.add("feeder", pCamera.feeder);
  pJson.add("pushed_size", came ? OXJson(sizeText(pCamera.pushed)) : OXJson(nullptr));
  pJson.add("pushes_per_second", pCamera.perSecond);
  pJson.add("age_ms", came ? OXJson(pCamera.ageMs) : OXJson(nullptr));
  pJson.add("dropped", pCamera.dropped);
}

OXJson asJson(const Camera& pCamera, int pActive) {
  int width = 0, height = 0;
  setSizeFromResolution(pCamera.resolution, width, height);
  OXJson json = {{"camera", pCamera.index},
                 {"model", cameraModelName(pCamera.model)},
                 {"resolution", resolutionName(pCamera.resolution)},
                 {"width", width},
                 {"height", height},
                 {"colorspace", colorSpaceName(pCamera.colorSpace)},
                 {"fps", pCamera.frameRate},
                 {"grabber", pCamera.isOff ? "off" : "running"},
                 {"active", pCamera.index == pActive}};
  if (pCamera.status) addStatus(json, *pCamera.status);
  return json;
}

/// The grabber comes last because it is coloured: the table counts escape sequences as characters,
/// which would shift every later column.
std::vector<std::string> row(const Camera& pCamera, int pActive, const OXTextStyle& pStyle) {
  int width = 0, height = 0;
  setSizeFromResolution(pCamera.resolution, width, height);
  std::vector<std::string> cells = {
      fmt::format("{}{}", pCamera.index, pCamera.index == pActive ? " *" : ""),
      cameraModelName(pCamera.model),
      fmt::format("{} {}x{}", resolutionName(pCamera.resolution), width, height),
      colorSpaceName(pCamera.colorSpace), std::to_string(pCamera.frameRate)};
  if (pCamera.status) {
    cells.push_back(abilities(*pCamera.status));
    cells.push_back(feedText(*pCamera.status));
  }
  cells.push_back(pCamera.isOff ? pStyle.yellow("off") : pStyle.green("running"));
  return cells;
}

void run(Context& pContext, bool pAsJson) {
  OXSession session(pContext.broker, "cameras");
  const std::vector<Camera> cameras = queryAll(session);
  const int active = session.device("getActiveCamera").toInt();
  const OXTextStyle style = pContext.style();
  OXJson list = OXJson::array();
  std::vector<std::string> headings = {"CAMERA", "MODEL", "RESOLUTION", "COLOUR SPACE", "FPS"};
  if (!cameras.empty() && cameras.front().status)
    headings.insert(headings.end(), {"CAN DO", "IMAGES"});
  headings.emplace_back("GRABBER");
  OXTable table(std::move(headings));
  for (const Camera& camera : cameras) {
    list.append(asJson(camera, active));
    table.addRow(row(camera, active, style));
  }
  if (pAsJson)
    pContext.out.line(list.text());
  else
    pContext.out.write(table.text(style));
}

}  // namespace

void addCameras(OXCommandLine& pLine, Context& pContext) {
  OXVerb verb = addVerb(pLine, pContext,
                        {"cameras", "lists the cameras and their settings; * marks the active one",
                         "oxvideo cameras"});
  const auto asJson = std::make_shared<bool>(false);
  verb.flag("--json", *asJson, "print a JSON array");
  verb.onRun([&pContext, asJson] { run(pContext, *asJson); });
}

}  // namespace OX::cli
