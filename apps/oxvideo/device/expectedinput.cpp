// A camera may answer with a size that can't be pushed, such as [-1, -1].
#include "device/expectedinput.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include <oxframework/oxdefinitions.h>
#include "device/jsonvalues.h"
#include "terminal/exitstatus.h"
#include "terminal/interrupt.h"

namespace OX::cli {

namespace {

// A condition variable can't be woken by a signal: this is how long one may go unnoticed.
constexpr std::chrono::milliseconds kSignalSlice{50};
constexpr int kMostCameras = 256;

}  // namespace

ExpectedInput parseExpectedInput(const OXValue& pReply) {
  const auto isPair = [](const OXValue& pValue) {
    return pValue.isArray() && pValue.getSize() == 2;
  };
  if (isPair(pReply) && isPair(pReply[0]) && pReply[0][0].isInt() && pReply[0][1].isInt() &&
      pReply[1].isInt()) {
    const FrameSize size{pReply[0][0].toInt(), pReply[0][1].toInt()};
    const int fps = pReply[1].toInt();
    if (getResolutionFromSize(size.width, size.height) >= 0 && fps >= 1 && fps <= 255)
      return {size, static_cast<double>(fps)};
  }
  throw OXFailure(fmt::format(
      "the camera expects {}, which can't be fed; choose what to push with --size and --fps",
      toJson(pReply)));
}

void OXExpectedInputs::put(const OXValue& pEvent) {
  if (!pEvent.isArray() || pEvent.getSize() != 4 || !pEvent[0].isInt()) return;
  const int camera = pEvent[0].toInt();
  // Anybody may raise an event of this name: the map must not grow with what is in it.
  if (camera < 0 || camera >= kMostCameras) return;
  const std::lock_guard guard(fGuard);
  fNews[camera] = OXValue::array(OXValue::array(pEvent[1], pEvent[2]), pEvent[3]);
  fCame.notify_all();
}

std::map<int, OXValue> OXExpectedInputs::take() {
  const std::lock_guard guard(fGuard);
  return std::exchange(fNews, {});
}

OXExpectedInputs::Wake OXExpectedInputs::waitUntil(std::chrono::steady_clock::time_point pMoment) {
  std::unique_lock guard(fGuard);
  while (!OXInterrupt::requested()) {
    if (!fNews.empty()) return Wake::kNews;
    const auto now = std::chrono::steady_clock::now();
    if (now >= pMoment) return Wake::kTime;
    fCame.wait_until(guard, std::min(pMoment, now + kSignalSlice));
  }
  return Wake::kSignal;
}

}  // namespace OX::cli
