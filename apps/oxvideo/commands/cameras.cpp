// A table of all cameras: the first thing to look at when images don't come.
#include <fmt/format.h>

#include <memory>

#include <oxframework/oxdefinitions.h>
#include "commands/commands.h"
#include "device/session.h"
#include "device/vocabulary.h"
#include "terminal/json.h"

namespace OX::cli {

namespace {

struct Camera {
  int index, model, resolution, colorSpace, frameRate;
  bool isOff;
};

/// Several calls, because the device has no operation that reports all settings at once: another
/// client's change in between may show.
Camera queryCamera(OXSession& pSession, int pIndex) {
  const auto ask = [&](const char* pMethod) { return pSession.device(pMethod, pIndex).toInt(); };
  return {pIndex,
          ask("getCameraModel"),
          ask("getResolution"),
          ask("getColorSpace"),
          ask("getFrameRate"),
          pSession.device("isFrameGrabberOff", pIndex).toBool()};
}

OXJson asJson(const Camera& pCamera, int pActive) {
  int width = 0, height = 0;
  setSizeFromResolution(pCamera.resolution, width, height);
  return {{"camera", pCamera.index},
          {"model", cameraModelName(pCamera.model)},
          {"resolution", resolutionName(pCamera.resolution)},
          {"width", width},
          {"height", height},
          {"colorspace", colorSpaceName(pCamera.colorSpace)},
          {"fps", pCamera.frameRate},
          {"grabber", pCamera.isOff ? "off" : "running"},
          {"active", pCamera.index == pActive}};
}

/// The grabber comes last because it is coloured: the table counts escape sequences as characters,
/// which would shift every later column.
std::vector<std::string> row(const Camera& pCamera, int pActive, const OXTextStyle& pStyle) {
  int width = 0, height = 0;
  setSizeFromResolution(pCamera.resolution, width, height);
  return {fmt::format("{}{}", pCamera.index, pCamera.index == pActive ? " *" : ""),
          cameraModelName(pCamera.model),
          fmt::format("{} {}x{}", resolutionName(pCamera.resolution), width, height),
          colorSpaceName(pCamera.colorSpace),
          std::to_string(pCamera.frameRate),
          pCamera.isOff ? pStyle.yellow("off") : pStyle.green("running")};
}

void run(Context& pContext, bool pAsJson) {
  OXSession session(pContext.broker, "cameras");
  const int count = session.countCameras();
  const int active = session.device("getActiveCamera").toInt();
  const OXTextStyle style = pContext.style();
  OXJson list = OXJson::array();
  OXTable table({"CAMERA", "MODEL", "RESOLUTION", "COLOUR SPACE", "FPS", "GRABBER"});
  for (int index = 0; index < count; ++index) {
    const Camera camera = queryCamera(session, index);
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
