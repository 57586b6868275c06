// Measures a camera as a subscriber experiences it: what arrives, how old it is, and how long it
// was on its way, or what a request takes where frames must be asked for.
#include <fmt/format.h>

#include <chrono>
#include <memory>
#include <utility>

#include <oxframework/oxdefinitions.h>
#include <oxframework/oxerror.h>
#include "commands/commands.h"
#include "device/arrivals.h"
#include "device/frames.h"
#include "device/latencies.h"
#include "device/viewoptions.h"
#include "device/vocabulary.h"
#include "terminal/exitstatus.h"
#include "terminal/interrupt.h"
#include "terminal/json.h"

namespace OX::cli {

namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

constexpr std::chrono::milliseconds kConnectAgain{500};
// Recorded stamps and clocks that differ say nothing about the way of a frame.
constexpr double kLongestWaySeconds = 60;

struct Options {
  ViewOptions view;
  std::int64_t frames = 0;
  double timeoutSeconds = 10;
  bool asJson = false;
  bool reconnects = false;
  bool polls = false;
};

/// Counts since the last restart().
struct Counts {
  Clock::time_point start;
  std::int64_t frames = 0;
  std::int64_t requests = 0;
  std::int64_t empty = 0;  ///< requests for which the camera had no frame
  OXLatencies latencies;   ///< of requests
  OXLatencies ways;        ///< of frames, from the push to the receipt

  void restart(Clock::time_point pNow) { *this = {.start = pNow}; }
  double seconds(Clock::time_point pNow) const { return Seconds(pNow - start).count(); }
  double rate(Clock::time_point pNow) const {
    // Bounded, because an interrupted run may end at the very moment at which it began.
    return static_cast<double>(frames) / std::max(seconds(pNow), 1e-9);
  }
};

/// A connection with the subscription made over it: what is lost together and made anew together.
struct Link {
  Link(Context& pContext, const Options& pOptions);

  OXSession session;
  StreamRequest stream;
  std::unique_ptr<OXFrames> frames;
};

class Watcher {
 public:
  Watcher(Context& pContext, const Options& pOptions);
  int run();

 private:
  void xLoop();
  void xTakeFrame(Clock::time_point pUntil);
  void xListenToRequests();
  void xReconnect(const std::string& pWhy);
  void xNoteImage(const CameraImage& pImage);
  void xNoteNothing();
  void xLine(Clock::time_point pNow);
  void xSummary(Clock::time_point pNow);
  std::string xTimesText(const Counts& pCounts) const;
  void xAddTimes(OXJson& pJson, const Counts& pCounts) const;
  double xAgeMs() const { return static_cast<double>(wallClockUs() - fNewestUs) / 1000; }
  bool xDone() const { return fOptions.frames > 0 && fTotal.frames >= fOptions.frames; }
  bool xStarved(Clock::time_point pNow) const {
    return fOptions.frames > 0 && Seconds(pNow - fLastFrame).count() > fOptions.timeoutSeconds;
  }

  Context& fContext;
  const Options& fOptions;
  std::unique_ptr<Link> fLink;  ///< null while there is no broker
  const StreamRequest fStream;
  bool fNotedImage = false, fNotedNothing = false;
  Counts fSecond, fTotal;
  std::optional<std::int64_t> fSkipped;  ///< as the broker counts; empty when it doesn't
  int fLines = 0;
  std::int64_t fNewestUs = 0;  ///< time stamp of the newest frame; 0: none yet
  Clock::time_point fLastFrame;
};

Link::Link(Context& pContext, const Options& pOptions)
    : session(pContext.broker, "watch"),
      stream(streamRequest(pOptions.view, session)),
      frames(
          OXFrames::open(session, stream, rateToRunAt(pOptions.view, session), !pOptions.polls)) {
  settleRate(session, frames->id(), {stream}, pOptions.view.rate, pContext.err);
}

Watcher::Watcher(Context& pContext, const Options& pOptions)
    : fContext(pContext),
      fOptions(pOptions),
      fLink(std::make_unique<Link>(pContext, pOptions)),
      fStream(fLink->stream) {
  xListenToRequests();
}

/// The first image tells what came; later ones are alike.
void Watcher::xNoteImage(const CameraImage& pImage) {
  if (std::exchange(fNotedImage, true)) return;
  if (fOptions.view.resolution.empty())
    fContext.err.tryLine(fmt::format("camera {} runs at {}", fStream.camera,
                                     sizeText({pImage.width, pImage.height})));
  else
    noteFormat(fStream, pImage, fContext.err);
  if (const std::string misfit = whyMisfit(fLink->session, pImage); !misfit.empty())
    fContext.err.tryLine(misfit);
}

void Watcher::xNoteNothing() {
  if (std::exchange(fNotedNothing, true)) return;
  OXArrivals arrivals(fLink->session);
  arrivals.look();
  if (const std::string why = arrivals.whyNothing(fStream.camera); !why.empty())
    fContext.err.tryLine(fmt::format("no frame from camera {}: {}", fStream.camera, why));
}

void Watcher::xListenToRequests() {
  fLink->frames->onRequest([this](const OXFrames::Request& pRequest) {
    for (Counts* counts : {&fSecond, &fTotal}) {
      ++counts->requests;
      counts->latencies.add(pRequest.seconds);
      if (pRequest.isEmpty) ++counts->empty;
    }
    if (pRequest.isEmpty) xNoteNothing();
  });
}

void Watcher::xTakeFrame(Clock::time_point pUntil) {
  const auto wait = std::chrono::ceil<std::chrono::milliseconds>(pUntil - Clock::now());
  const auto image = fLink->frames->next(std::max(wait, std::chrono::milliseconds(0)));
  if (!image) return;
  fLastFrame = Clock::now();
  fNewestUs = image->timestampUs;
  const double way = xAgeMs() / 1000;
  for (Counts* counts : {&fSecond, &fTotal}) {
    ++counts->frames;
    if (way >= 0 && way < kLongestWaySeconds) counts->ways.add(way);
  }
  xNoteImage(*image);
}

/// Makes the connection and the subscription anew, until that works or a signal comes.
void Watcher::xReconnect(const std::string& pWhy) {
  const auto lost = Clock::now();
  fLink.reset();
  fContext.err.tryLine("lost the broker: " + printable(pWhy) + "; trying again");
  while (!fLink && OXInterrupt::waitUntil(Clock::now() + kConnectAgain)) try {
      fLink = std::make_unique<Link>(fContext, fOptions);
    } catch (const OXFailure&) {
      // Nobody listens there yet.
    } catch (const OXError&) {
      // It listens, and has no device yet.
    }
  if (!fLink) return;
  fContext.err.tryLine(
      fmt::format("connected again after {:.1f} s", Seconds(Clock::now() - lost).count()));
  xListenToRequests();
  fLastFrame = Clock::now();
}

void Watcher::xLoop() {
  auto nextLine = fLastFrame + std::chrono::seconds(1);
  while (!xDone() && !OXInterrupt::requested()) {
    try {
      xTakeFrame(nextLine);
    } catch (const OXError& error) {
      if (!fOptions.reconnects || fLink->session.isConnected()) throw;
      xReconnect(error.what());
    }
    const auto now = Clock::now();
    if (xStarved(now)) break;
    if (now < nextLine) continue;
    xLine(now);
    fSecond.restart(now);
    // After a stall lines continue at the next full second instead of catching up.
    while (nextLine <= now) nextLine += std::chrono::seconds(1);
  }
}

int Watcher::run() {
  fLastFrame = Clock::now();
  fSecond.restart(fLastFrame);
  fTotal.restart(fLastFrame);
  xLoop();
  const auto end = Clock::now();
  // Unsubscribe before printing: the output may be a pipe that blocks.
  if (fLink) {
    fSkipped = fLink->frames->skipped();
    fLink->frames->end();
  }
  xSummary(end);
  // A signal is the normal end unless a number of frames was asked for.
  if (OXInterrupt::requested() && fOptions.frames > 0 && !xDone()) return OXInterrupt::status();
  if (!xDone() && fOptions.frames > 0)
    throw OXFailure(fmt::format("no frame for {:g} s", fOptions.timeoutSeconds));
  return fTotal.empty > 0 ? kDoneWithLosses : kDone;
}

/// What a request takes says nothing where it waits for its frame.
std::string Watcher::xTimesText(const Counts& pCounts) const {
  const bool isAnnounced = fLink && fLink->frames->areAnnounced();
  const OXLatencies& times = isAnnounced ? pCounts.ways : pCounts.latencies;
  return fmt::format("{} {:.2f} ms median, {:.2f} ms p99",
                     isAnnounced ? "push to receipt" : "request", times.median() * 1000,
                     times.percentile(0.99) * 1000);
}

void Watcher::xAddTimes(OXJson& pJson, const Counts& pCounts) const {
  pJson.add("latency_median_ms", pCounts.latencies.median() * 1000);
  pJson.add("latency_p99_ms", pCounts.latencies.percentile(0.99) * 1000);
  if (pCounts.ways.count() == 0) return;
  pJson.add("receipt_median_ms", pCounts.ways.median() * 1000);
  pJson.add("receipt_p99_ms", pCounts.ways.percentile(0.99) * 1000);
}

void Watcher::xLine(Clock::time_point pNow) {
  ++fLines;
  if (fOptions.asJson) {
    OXJson json = {{"line", fLines}, {"frames", fSecond.frames}, {"fps", fSecond.rate(pNow)}};
    xAddTimes(json, fSecond);
    json.add("empty", fSecond.empty);
    if (fNewestUs != 0) {
      json.add("age_ms", xAgeMs());
      json.add("timestamp_us", std::to_string(fNewestUs));
    }
    fContext.out.line(json.text());
    return;
  }
  const OXTextStyle style = fContext.style();
  const std::string rate = fmt::format("{:5.1f} fps", fSecond.rate(pNow));
  fContext.out.line(
      fmt::format("{}  age {}  {}{}", fSecond.frames > 0 ? style.green(rate) : style.red(rate),
                  fNewestUs != 0 ? fmt::format("{:.1f} ms", xAgeMs()) : "-", xTimesText(fSecond),
                  fSecond.empty > 0 ? fmt::format("  {} without a frame", fSecond.empty) : ""));
}

FrameSize sizeOf(const StreamRequest& pStream) {
  FrameSize size;
  setSizeFromResolution(pStream.resolution, size.width, size.height);
  return size;
}

void Watcher::xSummary(Clock::time_point pNow) {
  if (fOptions.asJson) {
    OXJson json = {
        {"camera", fStream.camera},          {"resolution", resolutionName(fStream.resolution)},
        {"size", sizeText(sizeOf(fStream))}, {"colorspace", colorSpaceName(fStream.colorSpace)},
        {"seconds", fTotal.seconds(pNow)},   {"frames", fTotal.frames},
        {"fps", fTotal.rate(pNow)},          {"requests", fTotal.requests}};
    xAddTimes(json, fTotal);
    if (fSkipped) json.add("skipped", *fSkipped);
    json.add("empty", fTotal.empty);
    fContext.out.line(OXJson({{"summary", json}}).text());
    return;
  }
  fContext.out.line(fmt::format(
      "camera {}, {}, {}: {} in {:.1f} s ({:.1f} fps), {} requests, {}{}, {} without a frame",
      fStream.camera, resolutionName(fStream.resolution), colorSpaceName(fStream.colorSpace),
      counted(fTotal.frames, "frame"), fTotal.seconds(pNow), fTotal.rate(pNow), fTotal.requests,
      xTimesText(fTotal), fSkipped ? fmt::format(", {} skipped", *fSkipped) : "", fTotal.empty));
}

}  // namespace

void addWatch(OXCommandLine& pLine, Context& pContext) {
  OXVerb verb = addVerb(pLine, pContext,
                        {"watch", "prints frame rate, age and latency of images once a second",
                         "oxvideo watch --camera 0 --resolution kVGA --fps 30\n"
                         "Age and latency compare the broker's clock with this machine's. When "
                         "stopped by a signal, watch exits\n"
                         "with 0, or 3 if a request found no frame; before --frames frames have "
                         "come, with 130 (SIGINT)."});
  const auto options = std::make_shared<Options>();
  addViewOptions(verb, options->view);
  verb.option("--fps", options->view.rate.fps,
              "frames per second, 5 to 30 (default: the camera's current rate)")
      .valueName("F")
      .range(1, 255);
  addForceFps(verb, options->view.rate);
  verb.option("--frames", options->frames,
              "stop after this many frames (default: run until stopped)")
      .valueName("N")
      .range(std::int64_t{1}, std::int64_t{1} << 53);
  verb.option("--timeout", options->timeoutSeconds,
              "with --frames: fail if none arrives for this long (default 10)")
      .valueName("SECONDS")
      .range(0.0, 86400.0);
  verb.flag("--reconnect", options->reconnects,
            "when the broker ends, wait for the next one and go on");
  verb.flag("--poll", options->polls,
            "ask the device for images instead of waiting for frames, as of a broker without "
            "OXVideoStream");
  verb.flag("--json", options->asJson, "print one JSON object per line, a summary last");
  verb.onRun([&pContext, options] {
    checkNames(options->view);
    pContext.status = Watcher(pContext, *options).run();
  });
}

}  // namespace OX::cli
