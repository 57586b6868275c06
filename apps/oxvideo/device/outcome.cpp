// A subscription at 1280x960 starts at 5 a second whatever is asked, and a camera runs at the rates
// it has: the device says so in its own log, which nobody at a terminal reads.
#include "device/outcome.h"

#include <fmt/format.h>

#include <algorithm>

#include <oxframework/oxdefinitions.h>
#include "device/arrivals.h"
#include "device/status.h"
#include "device/vocabulary.h"

namespace OX::cli {

namespace {

constexpr int kLowestAtSubscription = 5;

int rateOf(OXSession& pSession, const std::string& pSubscriber) {
  return pSession.device("getFrameRate", pSubscriber).toInt();
}

std::string reason(const std::vector<StreamRequest>& pStreams, const RateWish& pWish, int pOwn,
                   int pGot, int pSlowest, const std::optional<CameraStatus>& pCamera) {
  const bool isLargest =
      std::any_of(pStreams.begin(), pStreams.end(),
                  [](const StreamRequest& stream) { return stream.resolution == k4VGA; });
  if (!pWish.force && isLargest && pOwn == pGot && pGot == kLowestAtSubscription)
    return fmt::format("1280x960 starts at {}; --force-fps", kLowestAtSubscription);
  if (!pWish.force && pGot > pWish.fps)
    return fmt::format("{} is where a subscription starts; --force-fps", kLowestAtSubscription);
  if (pCamera && pWish.fps > pCamera->highestFps)
    return fmt::format("camera {} can do {} to {}", pSlowest, pCamera->lowestFps,
                       pCamera->highestFps);
  return fmt::format("camera {} runs at {}", pSlowest, pGot);
}

}  // namespace

void settleRate(OXSession& pSession, const std::string& pSubscriber,
                const std::vector<StreamRequest>& pStreams, const RateWish& pWish, OXOutput& pErr) {
  if (pWish.fps <= 0 || pStreams.empty()) return;
  int own = rateOf(pSession, pSubscriber);
  if (pWish.force && own != pWish.fps) {
    // More than the camera can do would be refused as a whole.
    const auto camera = queryCamera(pSession, pStreams.front().camera);
    const int highest = camera ? camera->highestFps : pWish.fps;
    pSession.device("setFrameRate", pSubscriber, std::min(pWish.fps, highest));
    own = rateOf(pSession, pSubscriber);
  }
  int got = own;
  int slowest = pStreams.front().camera;
  for (const StreamRequest& stream : pStreams) {
    const int fps = pSession.device("getFrameRate", stream.camera).toInt();
    if (fps >= got) continue;
    got = fps;
    slowest = stream.camera;
  }
  if (got == pWish.fps) return;
  pErr.tryLine(
      fmt::format("asked for {} a second, got {}: {}", pWish.fps, got,
                  reason(pStreams, pWish, own, got, slowest, queryCamera(pSession, slowest))));
}

void noteFormat(const StreamRequest& pAsked, const CameraImage& pImage, OXOutput& pErr) {
  FrameSize asked;
  setSizeFromResolution(pAsked.resolution, asked.width, asked.height);
  const FrameSize got{pImage.width, pImage.height};
  if (got != asked)
    pErr.tryLine(fmt::format("asked for {}, got {}: camera {} runs at the highest wish of all",
                             sizeText(asked), sizeText(got), pAsked.camera));
  if (pImage.colorSpace != pAsked.colorSpace)
    pErr.tryLine(fmt::format("asked for {}, got {}", colorSpaceName(pAsked.colorSpace),
                             colorSpaceName(pImage.colorSpace)));
}

}  // namespace OX::cli
