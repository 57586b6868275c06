// Two ways to the same frames. The service for streams answers when there is one; without it the
// device is asked, a little before a frame can be there and then ten times a period, which shows
// every frame at most that much late.
#include "device/frames.h"

#include <algorithm>
#include <utility>

#include <oxframework/oxerror.h>
#include "terminal/interrupt.h"

namespace OX::cli {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr char kStreams[] = "OXVideoStream";
// A signal is noticed between two requests, so none may wait for longer.
constexpr milliseconds kLongestRequest{200};
// As long as the device waits for a first frame.
constexpr std::chrono::seconds kNoFrame{1};

class AnnouncedFrames final : public OXFrames {
 public:
  AnnouncedFrames(OXSession& pSession, const StreamRequest& pStream, int pFps)
      : OXFrames(pSession, pSession
                               .call(kStreams, "open",
                                     OXValue::array(pSession.nextSubscriberId(), pStream.camera,
                                                    pStream.resolution, pStream.colorSpace, pFps))
                               .toString()) {}
  ~AnnouncedFrames() override {
    try {
      end();
    } catch (const OXError&) {
      // The broker is gone, and the stream with it.
    }
  }

  bool areAnnounced() const override { return true; }

  std::optional<CameraImage> next(milliseconds pWait) override {
    const auto limit = Clock::now() + pWait;
    while (!OXInterrupt::requested()) {
      const auto left = std::chrono::ceil<milliseconds>(limit - Clock::now());
      const milliseconds wait = std::clamp(left, milliseconds(0), kLongestRequest);
      auto image = xRequest(kStreams, "next", OXValue::array(id(), static_cast<int>(wait.count())));
      if (image) fHasCome = true;
      if (image || Clock::now() >= limit) return image;
    }
    return {};
  }

  std::optional<std::int64_t> skipped() override {
    const OXValue counts = fSession.call(kStreams, "statistics", OXValue::array(id()));
    if (!counts.isArray() || counts.getSize() < 2 || !counts[1].isInt()) return {};
    return counts[1].toInt();
  }

  void end() override {
    if (!std::exchange(fIsOpen, false)) return;
    fSession.call(kStreams, "close", OXValue::array(id()));
  }

 private:
  /// Once a second, as a request of the device would come back.
  bool xIsEmpty() override {
    if (fHasCome || Clock::now() < fNextEmpty) return false;
    fNextEmpty += kNoFrame;
    return true;
  }

  bool fIsOpen = true;
  bool fHasCome = false;
  Clock::time_point fNextEmpty = Clock::now() + kNoFrame;
};

class PolledFrames final : public OXFrames {
 public:
  PolledFrames(OXSession& pSession, const StreamRequest& pStream, int pFps)
      : PolledFrames(pSession, std::make_unique<OXSubscription>(pSession, pStream, pFps)) {}

  bool areAnnounced() const override { return false; }

  std::optional<CameraImage> next(milliseconds pWait) override {
    const auto limit = Clock::now() + pWait;
    while (OXInterrupt::waitUntil(std::min(fNextRequest, limit))) {
      if (Clock::now() < fNextRequest) return {};
      const auto asked = Clock::now();
      auto image = newest();
      fNextRequest = Clock::now() + xPeriod() / 10;
      if (!image) return {};
      if (std::exchange(fNewestUs, image->timestampUs) == image->timestampUs) continue;
      // Counted from the request and not its reply, whose latency must not slow the rhythm.
      fNextRequest = asked + xPeriod() * 9 / 10;
      return image;
    }
    return {};
  }

  void end() override { fSubscription->end(); }

 private:
  PolledFrames(OXSession& pSession, std::unique_ptr<OXSubscription> pSubscription)
      : OXFrames(pSession, pSubscription->id()), fSubscription(std::move(pSubscription)) {}

  bool xIsEmpty() override { return true; }

  /// Asked for when it is needed first, since the rate may be settled after the subscription; the
  /// device may have chosen another one than was asked for.
  Clock::duration xPeriod() {
    if (!fPeriod) {
      const int fps = std::max(fSession.device("getFrameRate", id()).toInt(), 1);
      fPeriod = std::chrono::duration_cast<Clock::duration>(std::chrono::seconds(1)) / fps;
    }
    return *fPeriod;
  }

  const std::unique_ptr<OXSubscription> fSubscription;
  std::optional<Clock::duration> fPeriod;
  std::int64_t fNewestUs = 0;  ///< time stamp of the newest frame; 0: none yet
  Clock::time_point fNextRequest = Clock::now();
};

}  // namespace

std::unique_ptr<OXFrames> OXFrames::open(OXSession& pSession, const StreamRequest& pStream,
                                         int pFps, bool pMayWait) {
  if (pMayWait && pSession.hasModule(kStreams))
    return std::make_unique<AnnouncedFrames>(pSession, pStream, pFps);
  return std::make_unique<PolledFrames>(pSession, pStream, pFps);
}

std::optional<CameraImage> OXFrames::xRequest(const std::string& pModule,
                                              const std::string& pMethod,
                                              const OXValue& pArguments) {
  const auto asked = Clock::now();
  const OXValue reply = fSession.call(pModule, pMethod, pArguments);
  const std::chrono::duration<double> took = Clock::now() - asked;
  auto image = parseImageReply(reply);
  const bool isEmpty = !image && xIsEmpty();
  if (fNote) fNote({took.count(), isEmpty});
  return image;
}

std::optional<CameraImage> OXFrames::newest() {
  return xRequest("OXVideoDevice", "getImageRemote", OXValue::array(id()));
}

}  // namespace OX::cli
