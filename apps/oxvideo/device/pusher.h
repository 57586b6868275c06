/// Feeds cameras from one source, as `oxvideo push` does.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <oxframework/oxerror.h>
#include "device/expectedinput.h"
#include "device/session.h"
#include "media/framesource.h"
#include "media/pacer.h"
#include "terminal/output.h"
#include "terminal/progress.h"

namespace OX::cli {

struct PushOptions {
  std::string source;
  std::vector<int> cameras;
  std::string size, fps, inputFormat, fit = "pad";
  std::int64_t frames = 0;
  bool loop = false;
  bool anyway = false;
  bool reconnect = false;
  bool asJson = false;
};

/// One thread only.
class OXPusher {
 public:
  /// Connects, asks the cameras what they expect and opens the source. Throws OXFailure when a
  /// camera is being fed by somebody else, and what connecting and opening throw. Borrows all but
  /// the address: reports go to pErr, JSON to pOut.
  OXPusher(const std::string& pBroker, OXOutput& pOut, OXOutput& pErr, const PushOptions& pOptions);
  /// Pushes until the source ends, all frames are pushed or a signal comes, and reports. Returns
  /// the exit status.
  int run();

 private:
  using Clock = std::chrono::steady_clock;

  /// One camera being fed.
  struct Feed {
    int camera;
    FrameSize size;
    OXPacer pacer;
    Clock::time_point askAgain;
    std::int64_t pushed = 0;
    std::int64_t repeated = 0;  ///< of those, frames that had been pushed before
    std::int64_t dropped = 0;   ///< slots that were missed: the broker or the source was too slow
    std::int64_t lastFrame = 0;
  };

  void xRefuseFedCameras();
  void xSubscribe();
  bool xFollowsCamera() const { return !fSize || !fFps; }
  void xAskCamera(Feed& pFeed);
  void xAdopt(Feed& pFeed, const OXValue& pExpected);
  void xAdoptNews();
  bool xReconnect(const OXError& pError);
  bool xWantsMore(const Feed& pFeed) const {
    return fOptions.frames == 0 || pFeed.pushed < fOptions.frames;
  }
  Feed* xNextDue();
  void xPushAll();
  bool xStep(Feed& pFeed);
  bool xPush(Feed& pFeed);
  void xRestartClock();
  void xShowProgress();
  std::int64_t xTotal(std::int64_t Feed::*pCount) const;
  std::int64_t xSkipped(const Feed& pFeed) const;
  std::string xSummary(const Feed& pFeed, double pSeconds) const;
  void xReport();

  const std::string fBroker;
  OXOutput& fOut;
  OXOutput& fErr;
  const PushOptions& fOptions;
  const std::optional<FrameSize> fSize;  ///< by option; unset: what the camera expects
  const std::optional<double> fFps;
  const Fit fFit;
  OXExpectedInputs fNews;  ///< outlives the session, whose listener uses it
  std::unique_ptr<OXSession> fSession;
  std::vector<Feed> fFeeds;
  std::unique_ptr<OXFrameSource> fSource;
  std::int64_t fProgressTotal = 0;
  std::unique_ptr<OXProgress> fProgress;
  Clock::time_point fStart, fLastStep;
  double fMediaTime = 0;
  bool fSourceEnded = false;
  std::vector<unsigned char> fPixels;
};

}  // namespace OX::cli
