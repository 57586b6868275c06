// Looking must not change what others see: the default is the camera's own resolution.
#include "device/viewoptions.h"

#include <algorithm>

#include <oxframework/oxdefinitions.h>
#include "device/vocabulary.h"

namespace OX::cli {

namespace {

constexpr int kLowestFps = 5;

}  // namespace

void addViewOptions(OXVerb& pVerb, ViewOptions& pOptions) {
  pVerb.option("--camera", pOptions.camera, "camera index (default 0)")
      .valueName("N")
      .range(0, 255);
  pVerb
      .option("--resolution", pOptions.resolution,
              "kQQVGA, kQVGA, kVGA or k4VGA (default: the camera's current one)")
      .valueName("NAME");
  pVerb
      .option("--colorspace", pOptions.colorSpace,
              "kYuv, kHsy, kYUV422, kYUV, kRGB (the default), kHSY, kBGR, kYYCbCr, kH2RGB or "
              "kHSMixed")
      .valueName("NAME");
}

void addForceFps(OXVerb& pVerb, RateWish& pWish) {
  pVerb.flag("--force-fps", pWish.force,
             "ask for --fps again after the subscription, which starts at 5 a second at 1280x960");
}

void addLookRate(OXVerb& pVerb, RateWish& pWish) {
  pVerb
      .option("--fps", pWish.fps,
              "rate to subscribe with, images a second; it stays with the camera (default 5, which "
              "raises none)")
      .valueName("F")
      .range(1, 255);
  addForceFps(pVerb, pWish);
}

int lookRate(const RateWish& pWish) { return std::max(pWish.fps, kLowestFps); }

int rateToRunAt(const ViewOptions& pOptions, OXSession& pSession) {
  return pOptions.rate.fps > 0 ? pOptions.rate.fps
                               : pSession.device("getFrameRate", pOptions.camera).toInt();
}

/// Apart from streamRequest(), which needs a session: misspelt names are usage errors without one.
void checkNames(const ViewOptions& pOptions) {
  parseColorSpace(pOptions.colorSpace);
  if (!pOptions.resolution.empty()) parseResolution(pOptions.resolution);
}

StreamRequest streamRequest(const ViewOptions& pOptions, OXSession& pSession) {
  StreamRequest stream{pOptions.camera, 0, parseColorSpace(pOptions.colorSpace)};
  if (!pOptions.resolution.empty()) {
    stream.resolution = parseResolution(pOptions.resolution);
    return stream;
  }
  stream.resolution = pSession.device("getResolution", pOptions.camera).toInt();
  // A camera that reports none of the four is asked for the size that cameras start with.
  if (stream.resolution < kQQVGA || stream.resolution > k4VGA) stream.resolution = kQVGA;
  return stream;
}

}  // namespace OX::cli
