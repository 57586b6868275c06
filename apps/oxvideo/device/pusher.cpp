// Each camera is fed at its own rate from one source, whose clock is the wall clock: a slow broker
// drops frames and never slows the film down. What a camera expects may change at any time.
#include "device/pusher.h"

#include <fmt/format.h>

#include <algorithm>

#include "device/feeders.h"
#include "device/status.h"
#include "device/vocabulary.h"
#include "terminal/exitstatus.h"
#include "terminal/interrupt.h"
#include "terminal/json.h"
#include "terminal/text.h"

namespace OX::cli {
namespace {

using Seconds = std::chrono::duration<double>;
// A safety net: the camera announces changes by an event, which a broker that is older, out of
// memory or faced with a full socket may not deliver.
constexpr std::chrono::seconds kAskAgain{2};
// After a stop (Ctrl-Z, a debugger) the film continues where it was and skips at most this much.
constexpr double kLongestStep = 2;
constexpr std::chrono::milliseconds kTryAgain{500};

/// How a source is called in the broker: no folders, and of a URL neither password nor query.
std::string nameOfSource(const std::string& pSource) {
  if (pSource.starts_with("lavfi:")) return "lavfi";
  const auto scheme = pSource.find("://");
  if (scheme != std::string::npos) {
    std::string host = pSource.substr(scheme + 3);
    host.resize(std::min(host.find_first_of("/?#"), host.size()));
    return pSource.substr(0, scheme + 3) + host.substr(host.rfind('@') + 1);
  }
  const auto end = pSource.find_last_not_of('/');
  if (end == std::string::npos) return pSource;
  const auto begin = pSource.rfind('/', end) + 1;
  return pSource.substr(begin, end + 1 - begin);
}

}  // namespace

OXPusher::OXPusher(const std::string& pBroker, OXOutput& pOut, OXOutput& pErr,
                   const PushOptions& pOptions)
    : fBroker(pBroker),
      fOut(pOut),
      fErr(pErr),
      fOptions(pOptions),
      fSize(pOptions.size.empty() ? std::nullopt : std::optional(parseSize(pOptions.size))),
      fFps(pOptions.fps.empty() ? std::nullopt : std::optional(parseFps(pOptions.fps))),
      fFit(pOptions.fit == "stretch" ? Fit::kStretch : Fit::kPad) {
  fSession = std::make_unique<OXSession>(fBroker, "push");
  // Under the session's own name, so that it can't take itself for another feeder.
  if (!fOptions.anyway) xRefuseFedCameras();
  xSubscribe();
  for (const int camera : pOptions.cameras) {
    // A provisional pacer: run() starts it once the source is open, which may take seconds.
    Feed feed{camera, fSize.value_or(FrameSize{}), OXPacer({}, fFps.value_or(1)), {}};
    xAskCamera(feed);
    fFeeds.push_back(feed);
  }
  MediaOptions media;
  media.format = pOptions.inputFormat;
  if (fFps) media.pictureFps = *fFps;
  fSource =
      std::make_unique<OXFrameSource>(pOptions.source, fFeeds.front().size, pOptions.loop, media);
  fProgressTotal = pOptions.frames;
  if (fProgressTotal == 0)
    fProgressTotal = static_cast<std::int64_t>(fSource->duration() * fFeeds.front().pacer.fps());
}

/// Two sources would alternate on the camera.
void OXPusher::xRefuseFedCameras() {
  for (const int camera : fOptions.cameras) {
    const auto status = queryCamera(*fSession, camera);
    if (!status || !status->isFed() || status->isReplay || !isStillThere(*fSession, status->feeder))
      continue;
    throw OXFailure(fmt::format(
        "camera {} is being fed by {} (the last frame came {:.1f} s ago): two sources would "
        "alternate\n  end that one, or push all the same with --anyway",
        camera, status->feeder.empty() ? "somebody" : printable(status->feeder),
        status->ageMs / 1000.0));
  }
}

/// Names the connection, and has the camera's changes reported to that name.
void OXPusher::xSubscribe() {
  const std::string name = "oxvideo push " + nameOfSource(fOptions.source);
  fSession->call("OXBroker", "setClientName", OXValue::array(name));
  if (!xFollowsCamera()) return;
  fSession->listen([this](const std::string& pEvent, const OXValue& pValue) {
    if (pEvent == kExpectedImageEvent) fNews.put(pValue);
  });
  try {
    fSession->call("OXMemory", "subscribeToEvent",
                   OXValue::array(kExpectedImageEvent, name, "onExpectedImage"));
  } catch (const OXError&) {
    // A broker without events: the cameras are asked from time to time.
    if (!fSession->isConnected()) throw;
  }
}

/// Adopts what the camera expects, unless an option overrides it.
void OXPusher::xAskCamera(Feed& pFeed) {
  if (!xFollowsCamera()) return;
  pFeed.askAgain = Clock::now() + kAskAgain;
  xAdopt(pFeed, fSession->device("getExpectedImageParameters", pFeed.camera));
}

void OXPusher::xAdopt(Feed& pFeed, const OXValue& pExpected) {
  const ExpectedInput expected = parseExpectedInput(pExpected);
  if (!fSize) pFeed.size = expected.size;
  if (!fFps) pFeed.pacer.setFps(expected.fps);
}

/// A subscriber may be waiting for a frame as it now wants it, so that goes out at once.
void OXPusher::xAdoptNews() {
  for (const auto& [camera, expected] : fNews.take())
    for (Feed& feed : fFeeds) {
      if (feed.camera != camera) continue;
      const ExpectedInput before{feed.size, feed.pacer.fps()};
      xAdopt(feed, expected);
      if (before != ExpectedInput{feed.size, feed.pacer.fps()})
        feed.pacer = OXPacer(Clock::now(), feed.pacer.fps());
    }
}

/// After the broker has gone: false if a signal ended the wait for another one.
bool OXPusher::xReconnect(const OXError& pError) {
  const auto since = Clock::now();
  fProgress.reset();
  fErr.tryLine(fmt::format("the broker at {} is gone ({}); waiting for it, Ctrl-C ends this",
                           printable(fBroker), printable(pError.what())));
  while (OXInterrupt::waitUntil(Clock::now() + kTryAgain)) {
    try {
      fSession = std::make_unique<OXSession>(fBroker, "push");
      xSubscribe();
      for (Feed& feed : fFeeds) xAskCamera(feed);
      fErr.tryLine(
          fmt::format("the broker is back after {:.1f} s", Seconds(Clock::now() - since).count()));
      xRestartClock();
      return true;
    } catch (const OXError&) {
      continue;  // It has started, but not loaded its device yet.
    } catch (const OXFailure&) {
      continue;
    }
  }
  return false;
}

OXPusher::Feed* OXPusher::xNextDue() {
  Feed* next = nullptr;
  for (Feed& feed : fFeeds)
    if (xWantsMore(feed) && (!next || feed.pacer.due() < next->pacer.due())) next = &feed;
  return next;
}

/// Pushes one frame. False at the end of the source.
bool OXPusher::xStep(Feed& pFeed) {
  const auto now = Clock::now();
  if (now >= pFeed.askAgain) xAskCamera(pFeed);
  // The wait may end a little early; a slot must not start before it is due.
  pFeed.dropped += pFeed.pacer.start(std::max(now, pFeed.pacer.due()));
  fMediaTime += std::min(Seconds(now - fLastStep).count(), kLongestStep);
  fLastStep = now;
  fSourceEnded = !fSource->advanceTo(fMediaTime);
  return !fSourceEnded && xPush(pFeed);
}

bool OXPusher::xPush(Feed& pFeed) {
  fSource->render(pFeed.size, fFit, fPixels);
  OXValue image;
  image.SetBinary(fPixels.data(), static_cast<int>(fPixels.size()));
  if (!fSession->device("putImage", pFeed.camera, pFeed.size.width, pFeed.size.height, image)
           .toBool())
    throw OXFailure(fmt::format("camera {} refused a frame of {}x{}", pFeed.camera,
                                pFeed.size.width, pFeed.size.height));
  ++pFeed.pushed;
  if (fSource->frameNumber() == pFeed.lastFrame) ++pFeed.repeated;
  pFeed.lastFrame = fSource->frameNumber();
  return true;
}

std::int64_t OXPusher::xTotal(std::int64_t Feed::*pCount) const {
  std::int64_t total = 0;
  for (const Feed& feed : fFeeds) total += feed.*pCount;
  return total;
}

/// Frames of the source that were not pushed though there was time: the camera takes fewer. Each
/// slot that was missed accounts for one frame.
std::int64_t OXPusher::xSkipped(const Feed& pFeed) const {
  const std::int64_t notPushed = fSource->frameNumber() - (pFeed.pushed - pFeed.repeated);
  return std::max<std::int64_t>(0, notPushed - pFeed.dropped);
}

void OXPusher::xShowProgress() {
  if (!fProgress) fProgress = std::make_unique<OXProgress>(fErr, "push", fProgressTotal);
  const Feed& first = fFeeds.front();
  fProgress->update(first.pushed,
                    fmt::format("{}x{} {:g} fps, {} dropped", first.size.width, first.size.height,
                                first.pacer.fps(), xTotal(&Feed::dropped)));
}

/// Pushes until the source or the number of frames ends, or a signal comes.
void OXPusher::xPushAll() {
  // One thread serves all cameras, the earliest slot first: a push takes far less than a slot, and
  // the source is decoded only once.
  while (Feed* feed = xNextDue()) {
    const OXExpectedInputs::Wake wake = fNews.waitUntil(feed->pacer.due());
    if (wake == OXExpectedInputs::Wake::kSignal) return;
    if (wake == OXExpectedInputs::Wake::kNews) {
      xAdoptNews();
      continue;
    }
    try {
      if (!xStep(*feed)) return;
    } catch (const OXError& error) {
      // A connection that is there but doesn't answer is as good as gone.
      const bool isLost = !fSession->isConnected() || error.getModuleName() == "OXRemoteBroker";
      if (!fOptions.reconnect || !isLost) throw;
      if (!xReconnect(error)) return;
    }
    xShowProgress();
  }
}

void OXPusher::xRestartClock() {
  fLastStep = Clock::now();
  for (Feed& feed : fFeeds) feed.pacer = OXPacer(fLastStep, feed.pacer.fps());
}

int OXPusher::run() {
  // Opening the source may have taken seconds: slots start counting now.
  xRestartClock();
  fStart = fLastStep;
  bool isEnded = true;
  try {
    xPushAll();
    isEnded = !OXInterrupt::requested();
  } catch (const OXInterrupted&) {
    // The signal came while the source was being read; the report is printed all the same.
    isEnded = false;
  } catch (...) {
    xReport();
    throw;
  }
  xReport();
  const bool isCutShort = !isEnded && xNextDue() && (fOptions.frames > 0 || !fSource->isEndless());
  if (isCutShort) return OXInterrupt::status();
  return fSource->damagedFrames() > 0 || xTotal(&Feed::dropped) > 0 ? kDoneWithLosses : kDone;
}

std::string OXPusher::xSummary(const Feed& pFeed, double pSeconds) const {
  std::string text = fmt::format("camera {}: {} pushed", pFeed.camera, pFeed.pushed);
  // A still picture is nothing but repeated.
  if (pFeed.repeated > 0 && fSource->frameNumber() > 1)
    text += fmt::format(" ({} of them again)", pFeed.repeated);
  const std::int64_t skipped = xSkipped(pFeed);
  text += fmt::format(", {} skipped", skipped);
  if (skipped > 0)
    text += fFps ? fmt::format(" (--fps {:g})", *fFps) : std::string(" (nobody wanted more)");
  return text + fmt::format(", {} dropped in {:.1f} s", pFeed.dropped, pSeconds);
}

void OXPusher::xReport() {
  // Clears the bar before the report is printed.
  fProgress.reset();
  const double seconds = Seconds(Clock::now() - fStart).count();
  if (fSourceEnded && fSource->isEndless() && !fOptions.loop)
    fErr.tryLine(fmt::format("{} ended after {:.1f} s", printable(fOptions.source), seconds));
  OXJson cameras = OXJson::array();
  for (const Feed& feed : fFeeds) {
    cameras.append({{"camera", feed.camera},
                    {"pushed", feed.pushed},
                    {"dropped", feed.dropped},
                    {"skipped", xSkipped(feed)},
                    {"repeated", feed.repeated}});
    fErr.tryLine(xSummary(feed, seconds));
  }
  const std::int64_t damaged = fSource->damagedFrames();
  if (damaged > 0) fErr.tryLine(fmt::format("{} damaged frames in the source", damaged));
  if (const std::string remark = fSource->remark(); !remark.empty()) fErr.tryLine(remark);
  if (fOptions.asJson)
    fOut.line(OXJson({{"seconds", seconds},
                      {"damaged", damaged},
                      {"frames", fSource->frameNumber()},
                      {"cameras", cameras}})
                  .text());
}

}  // namespace OX::cli
