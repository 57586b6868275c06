// The device computes in radians and returns single precision: units are converted on this side, in
// double.
#include <fmt/format.h>

#include <memory>
#include <numbers>

#include "commands/commands.h"
#include "device/jsonvalues.h"
#include "device/session.h"
#include "terminal/exitstatus.h"
#include "terminal/json.h"

namespace OX::cli {

namespace {

// Far outside any image; what the device computes from it still fits single precision.
constexpr double kFarthest = 1e6;

struct Options {
  // Which pair the two numbers are depends on back and isSize: positions, sizes or angles.
  double first = 0;
  double second = 0;
  int camera = 0;
  bool back = false;
  bool isSize = false;
  std::string unit = "degrees";
  bool asJson = false;
};

const char* methodName(const Options& pOptions) {
  if (pOptions.isSize)
    return pOptions.back ? "getImageSizeFromAngularSize" : "getAngularSizeFromImageSize";
  return pOptions.back ? "getImagePositionFromAngularPosition"
                       : "getAngularPositionFromImagePosition";
}

void run(Context& pContext, const Options& pOptions) {
  const double unit = pOptions.unit == "degrees" ? std::numbers::pi / 180 : 1;  // in radians
  // Only angles have a unit; positions and sizes are fractions of the image in both directions.
  const double toDevice = pOptions.back ? unit : 1;
  const double fromDevice = pOptions.back ? 1 : 1 / unit;
  OXSession session(pContext.broker, "angles");
  const OXValue result =
      session.device(methodName(pOptions), pOptions.camera,
                     OXValue::array(pOptions.first * toDevice, pOptions.second * toDevice));
  std::vector<float> values;
  result.ToFloatArray(values, false);
  // Another service could answer under this name; two numbers are all that is relied on.
  if (values.size() != 2) throw OXFailure("unexpected reply from the broker: " + toJson(result));
  const double first = values[0] * fromDevice, second = values[1] * fromDevice;

  const char* names[2] = {pOptions.isSize ? "width" : "x", pOptions.isSize ? "height" : "y"};
  if (!pOptions.back) {
    names[0] = "horizontal";
    names[1] = "vertical";
  }
  if (pOptions.asJson) {
    OXJson json = {{"camera", pOptions.camera}, {names[0], first}, {names[1], second}};
    if (!pOptions.back) json.add("unit", pOptions.unit);
    pContext.out.line(json.text());
    return;
  }
  pContext.out.line(fmt::format("{} {:.6g}  {} {:.6g}{}", names[0], first, names[1], second,
                                pOptions.back ? "" : "  " + pOptions.unit));
}

}  // namespace

void addAngles(OXCommandLine& pLine, Context& pContext) {
  OXVerb verb =
      addVerb(pLine, pContext,
              {"angles", "converts an image position to angles from the camera axis, or back",
               "oxvideo angles 0.25 0.5 --camera 0\n"
               "  oxvideo angles 15 0 --back\n"
               "Positions and sizes are fractions of the image, from its top left corner. Angles "
               "are positive\n"
               "to the left and downwards."});
  const auto options = std::make_shared<Options>();
  verb.option("FIRST", options->first, "x, or the horizontal angle")
      .required()
      .range(-kFarthest, kFarthest);
  verb.option("SECOND", options->second, "y, or the vertical angle")
      .required()
      .range(-kFarthest, kFarthest);
  verb.option("--camera", options->camera, "camera index (default 0)").valueName("N").range(0, 255);
  verb.flag("--back", options->back, "convert angles to an image position");
  verb.flag("--extent", options->isSize, "convert a width and a height instead of a position");
  verb.option("--unit", options->unit, "degrees (the default) or radians")
      .oneOf({"degrees", "radians"});
  verb.flag("--json", options->asJson, "print JSON");
  verb.onRun([&pContext, options] { run(pContext, *options); });
}

}  // namespace OX::cli
