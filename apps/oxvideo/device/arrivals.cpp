// A look shows the newest push only, and an image may be of an older one, shared with others. What
// an image was made of is told by the newest look that is not newer than it. That errs on the side
// of "still the old size": the verb then waits for one more image.
#include "device/arrivals.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "device/vocabulary.h"

namespace OX::cli {

namespace {

/// More than a verb makes in the time between a raise and the feeder's answer.
constexpr std::size_t kMostLooks = 64;

const CameraStatus* find(const std::vector<CameraStatus>& pCameras, int pIndex) {
  const auto found = std::find_if(pCameras.begin(), pCameras.end(),
                                  [&](const CameraStatus& c) { return c.index == pIndex; });
  return found == pCameras.end() ? nullptr : &*found;
}

std::string ageText(int pMilliseconds) {
  return pMilliseconds < 1000 ? fmt::format("{} ms", pMilliseconds)
                              : fmt::format("{:.1f} s", pMilliseconds / 1000.0);
}

// The age of a replayed image says nothing after a minute: then the time at which it was recorded.
std::string whenText(const CameraImage& pImage, const OXArrivals::Verdict& pVerdict) {
  constexpr std::int64_t kYear10000 = 253402300800;
  const std::int64_t seconds = pImage.timestampUs / 1000000;
  const double age =
      pVerdict.ageSeconds.value_or(static_cast<double>(wallClockUs() - pImage.timestampUs) / 1e6);
  if (pVerdict.ageSeconds || age < 60 || seconds < 0 || seconds >= kYear10000)
    return fmt::format("{:.0f} ms old", age * 1000);
  return fmt::format("of {:%Y-%m-%d %H:%M:%S} UTC", fmt::gmtime(static_cast<std::time_t>(seconds)));
}

}  // namespace

void OXArrivals::look() {
  auto cameras = queryCameras(fSession);
  if (!cameras) return;
  // The first one stays: it is older than every image.
  if (fLooks.size() >= kMostLooks) fLooks.erase(fLooks.begin() + 1);
  fLooks.push_back({std::move(*cameras), fSession.device("getActiveCamera").toInt()});
}

const OXArrivals::Look* OXArrivals::xLookAt(int pCamera, std::int64_t pStampUs) const {
  const Look* result = nullptr;
  for (const Look& look : fLooks) {
    const CameraStatus* const camera = find(look.cameras, pCamera);
    if (!camera || camera->stampUs == 0) continue;
    if (!result || camera->stampUs <= pStampUs) result = &look;
  }
  return result;
}

OXArrivals::Verdict OXArrivals::judge(const CameraImage& pImage) const {
  Verdict verdict;
  const Look* const then = xLookAt(pImage.camera, pImage.timestampUs);
  if (!then) return verdict;
  const CameraStatus& camera = *find(then->cameras, pImage.camera);
  if (camera.isReplay) return verdict;
  if (camera.pushed.width < pImage.width) verdict.enlargedFrom = camera.pushed;
  const CameraStatus* const active = find(then->cameras, then->active);
  verdict.isMisfit = camera.pushed != camera.size && active && active->size != camera.size;
  if (const CameraStatus* const now = find(fLooks.back().cameras, pImage.camera))
    verdict.ageSeconds = std::max(
        0.0, now->ageMs / 1000.0 + static_cast<double>(now->stampUs - pImage.timestampUs) / 1e6);
  return verdict;
}

std::string OXArrivals::whyNothing(int pCamera) const {
  if (fLooks.empty()) return "";
  const CameraStatus* const camera = find(fLooks.back().cameras, pCamera);
  if (!camera || camera->isReplay) return "";
  if (!camera->isFed()) return feedText(*camera);
  if (camera->pushed == camera->size) return "";
  return fmt::format("fed with {}, camera {} runs at {}: not delivered", sizeText(camera->pushed),
                     pCamera, sizeText(camera->size));
}

std::string whyMisfit(OXSession& pSession, const CameraImage& pImage) {
  OXArrivals arrivals(pSession);
  arrivals.look();
  if (!arrivals.judge(pImage).isMisfit) return "";
  std::string text = arrivals.whyNothing(pImage.camera);
  const auto end = text.rfind(": ");
  return end == text.npos ? text : text.substr(0, end) + ": its images are not whole";
}

std::string feedText(const CameraStatus& pCamera) {
  if (pCamera.isReplay) {
    if (pCamera.ageMs < 0) return "replay, not started";
    return pCamera.isFed() ? fmt::format("replay, {:.0f} a second", pCamera.perSecond)
                           : fmt::format("replay, nobody asked for {}", ageText(pCamera.ageMs));
  }
  if (pCamera.ageMs < 0) return "not fed";
  return pCamera.isFed() ? fmt::format("fed, {:.0f} a second, {} old", pCamera.perSecond,
                                       ageText(pCamera.ageMs))
                         : fmt::format("not fed for {}", ageText(pCamera.ageMs));
}

std::string describe(const CameraImage& pImage, const OXArrivals::Verdict& pVerdict) {
  return fmt::format(
      "{}x{} {} of camera {}, {}{}", pImage.width, pImage.height, colorSpaceName(pImage.colorSpace),
      pImage.camera, whenText(pImage, pVerdict),
      pVerdict.enlargedFrom ? ", enlarged from " + sizeText(*pVerdict.enlargedFrom) : "");
}

void addVerdict(OXJson& pJson, const OXArrivals::Verdict& pVerdict) {
  if (pVerdict.ageSeconds) pJson.add("age_ms", std::llround(*pVerdict.ageSeconds * 1000));
  if (pVerdict.enlargedFrom) pJson.add("enlarged_from", sizeText(*pVerdict.enlargedFrom));
}

std::string sizeText(FrameSize pSize) { return fmt::format("{}x{}", pSize.width, pSize.height); }

}  // namespace OX::cli
