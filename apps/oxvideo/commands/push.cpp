// Each camera is fed at its own rate from one source, whose clock is the wall clock: a slow broker
// drops frames and never slows the film down.
#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <optional>

#include "commands/commands.h"
#include "device/expectedinput.h"
#include "device/session.h"
#include "device/vocabulary.h"
#include "media/framesource.h"
#include "media/pacer.h"
#include "terminal/exitstatus.h"
#include "terminal/interrupt.h"
#include "terminal/json.h"
#include "terminal/progress.h"

namespace OX::cli {

namespace {

using Clock = std::chrono::steady_clock;
// Another subscriber may change the camera's resolution or rate at any time.
constexpr std::chrono::milliseconds kAskAgain{500};
// After a stop (Ctrl-Z, a debugger) the film continues where it was and skips at most this much.
constexpr double kLongestStep = 2;

struct Options {
  std::string source;
  std::vector<int> cameras;
  std::string size, fps, fit = "pad";
  std::int64_t frames = 0;
  bool loop = false;
  bool asJson = false;
};

/// One camera being fed.
struct Feed {
  int camera;
  FrameSize size;
  OXPacer pacer;
  Clock::time_point askAgain;
  std::int64_t pushed = 0;
  std::int64_t dropped = 0;
};

class Pusher {
 public:
  Pusher(Context& pContext, const Options& pOptions);
  int run();

 private:
  void xAdoptExpectedInput(Feed& pFeed);
  bool xWantsMore(const Feed& pFeed) const {
    return fOptions.frames == 0 || pFeed.pushed < fOptions.frames;
  }
  Feed* xNextDue();
  void xPushAll();
  bool xStep(Feed& pFeed);
  void xShowProgress();
  std::int64_t xTotal(std::int64_t Feed::*pCount) const;
  int xReport(bool pCutShort);

  Context& fContext;
  const Options& fOptions;
  const std::optional<FrameSize> fSize;  ///< by option; unset: what the camera expects
  const std::optional<double> fFps;
  const Fit fFit;
  OXSession fSession;
  std::vector<Feed> fFeeds;
  std::unique_ptr<OXFrameSource> fSource;
  std::unique_ptr<OXProgress> fProgress;
  Clock::time_point fStart, fLastStep;
  double fMediaTime = 0;
  std::vector<unsigned char> fPixels;
};

Pusher::Pusher(Context& pContext, const Options& pOptions)
    : fContext(pContext),
      fOptions(pOptions),
      fSize(pOptions.size.empty() ? std::nullopt : std::optional(parseSize(pOptions.size))),
      fFps(pOptions.fps.empty() ? std::nullopt : std::optional(parseFps(pOptions.fps))),
      fFit(pOptions.fit == "stretch" ? Fit::kStretch : Fit::kPad),
      fSession(pContext.broker, "push") {
  for (const int camera : pOptions.cameras) {
    // A provisional pacer: run() starts it once the source is open, which may take seconds.
    Feed feed{camera, fSize.value_or(FrameSize{}), OXPacer({}, fFps.value_or(1)), {}};
    xAdoptExpectedInput(feed);
    fFeeds.push_back(feed);
  }
  fSource = std::make_unique<OXFrameSource>(pOptions.source, fFeeds.front().size, pOptions.loop);
  std::int64_t total = pOptions.frames;
  if (total == 0)
    total = static_cast<std::int64_t>(fSource->duration() * fFeeds.front().pacer.fps());
  fProgress = std::make_unique<OXProgress>(pContext.err, "push", total);
}

/// Adopts what the camera expects, unless an option overrides it.
void Pusher::xAdoptExpectedInput(Feed& pFeed) {
  if (fSize && fFps) return;
  const ExpectedInput expected =
      parseExpectedInput(fSession.device("getExpectedImageParameters", pFeed.camera));
  if (!fSize) pFeed.size = expected.size;
  if (!fFps) pFeed.pacer.setFps(expected.fps);
}

Feed* Pusher::xNextDue() {
  Feed* next = nullptr;
  for (Feed& feed : fFeeds)
    if (xWantsMore(feed) && (!next || feed.pacer.due() < next->pacer.due())) next = &feed;
  return next;
}

/// Pushes one frame. False at the end of the source.
bool Pusher::xStep(Feed& pFeed) {
  const auto now = Clock::now();
  if (now >= pFeed.askAgain) {
    xAdoptExpectedInput(pFeed);
    pFeed.askAgain = now + kAskAgain;
  }
  // The wait may end a little early; a slot must not start before it is due.
  pFeed.dropped += pFeed.pacer.start(std::max(now, pFeed.pacer.due()));
  fMediaTime += std::min(std::chrono::duration<double>(now - fLastStep).count(), kLongestStep);
  fLastStep = now;
  if (!fSource->advanceTo(fMediaTime)) return false;
  fSource->render(pFeed.size, fFit, fPixels);
  OXValue image;
  image.SetBinary(fPixels.data(), static_cast<int>(fPixels.size()));
  if (!fSession.device("putImage", pFeed.camera, pFeed.size.width, pFeed.size.height, image)
           .toBool())
    throw OXFailure(fmt::format("camera {} refused a frame of {}x{}", pFeed.camera,
                                pFeed.size.width, pFeed.size.height));
  ++pFeed.pushed;
  return true;
}

std::int64_t Pusher::xTotal(std::int64_t Feed::*pCount) const {
  std::int64_t total = 0;
  for (const Feed& feed : fFeeds) total += feed.*pCount;
  return total;
}

void Pusher::xShowProgress() {
  const Feed& first = fFeeds.front();
  fProgress->update(first.pushed,
                    fmt::format("{}x{} {:g} fps, {} dropped", first.size.width, first.size.height,
                                first.pacer.fps(), xTotal(&Feed::dropped)));
}

/// Pushes until the source or the number of frames ends, or a signal comes.
void Pusher::xPushAll() {
  // One thread serves all cameras, the earliest slot first: a push takes far less than a slot, and
  // the source is decoded only once.
  while (Feed* feed = xNextDue()) {
    if (!OXInterrupt::waitUntil(feed->pacer.due()) || !xStep(*feed)) return;
    xShowProgress();
  }
}

int Pusher::run() {
  fStart = fLastStep = Clock::now();
  // Opening the source may have taken seconds: slots start counting now.
  for (Feed& feed : fFeeds) {
    feed.pacer = OXPacer(fStart, feed.pacer.fps());
    feed.askAgain = fStart + kAskAgain;
  }
  bool isEnded = true;
  try {
    xPushAll();
    isEnded = !OXInterrupt::requested();
  } catch (const OXInterrupted&) {
    // The signal came while the source was being read; the report is printed all the same.
    isEnded = false;
  }
  return xReport(!isEnded && xNextDue() && (fOptions.frames > 0 || !fSource->isEndless()));
}

int Pusher::xReport(bool pCutShort) {
  // Clears the bar before the report is printed.
  fProgress.reset();
  const double seconds = std::chrono::duration<double>(Clock::now() - fStart).count();
  OXJson cameras = OXJson::array();
  for (const Feed& feed : fFeeds) {
    cameras.append({{"camera", feed.camera}, {"pushed", feed.pushed}, {"dropped", feed.dropped}});
    fContext.err.tryLine(fmt::format("camera {}: {} frames pushed in {:.1f} s, {} dropped",
                                     feed.camera, feed.pushed, seconds, feed.dropped));
  }
  const std::int64_t damaged = fSource->damagedFrames();
  if (damaged > 0) fContext.err.tryLine(fmt::format("{} damaged frames in the source", damaged));
  if (fOptions.asJson)
    fContext.out.line(
        OXJson({{"seconds", seconds}, {"damaged", damaged}, {"cameras", cameras}}).text());
  if (pCutShort) return OXInterrupt::status();
  return damaged > 0 || xTotal(&Feed::dropped) > 0 ? kDoneWithLosses : kDone;
}

}  // namespace

void addPush(OXCommandLine& pLine, Context& pContext) {
  OXVerb verb = addVerb(pLine, pContext,
                        {"push", "feeds cameras with a video, a picture or a moving test picture",
                         "oxvideo push test --camera 0 --camera 1\n"
                         "  oxvideo push film.mp4 --camera 0 --loop\n"
                         "A source without an end (test, a picture, --loop) exits with 0 when "
                         "stopped, or 3 if frames\n"
                         "were dropped. A film or a number of frames that a signal cuts short "
                         "exits with 130 (SIGINT)."});
  const auto options = std::make_shared<Options>();
  verb.option("SOURCE", options->source, "a video file, a picture, or \"test\"").required();
  verb.option("--camera", options->cameras, "camera to feed; can be repeated")
      .required()
      .valueName("N")
      .range(0, 255);
  verb.option("--size", options->size,
              "160x120, 320x240, 640x480 or 1280x960 (default: what the camera expects, followed "
              "as it changes)")
      .valueName("WxH");
  verb.option("--fps", options->fps, "frames per second (default: what the camera expects)")
      .valueName("F");
  verb.option("--frames", options->frames, "stop after this many frames per camera")
      .valueName("N")
      .range(std::int64_t{1}, std::int64_t{1} << 53);
  verb.option("--fit", options->fit,
              "a source of another aspect ratio gets black bars (pad, the default) or is stretched")
      .oneOf({"pad", "stretch"});
  verb.flag("--loop", options->loop, "restart at the end");
  verb.flag("--json", options->asJson, "print a summary as JSON at the end");
  verb.onRun([&pContext, options] {
    // Two feeds of one camera would alternate on it.
    auto sorted = options->cameras;
    std::sort(sorted.begin(), sorted.end());
    if (std::adjacent_find(sorted.begin(), sorted.end()) != sorted.end())
      throw OXUsageError("the same camera was given twice");
    pContext.status = Pusher(pContext, *options).run();
  });
}

}  // namespace OX::cli
