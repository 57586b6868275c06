/// A source of frames seen along time: which frame is shown at a moment.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "media/framescaler.h"
#include "media/mediareader.h"

namespace OX::cli {

/// A source of one frame is a still picture: it is shown for ever. One thread only.
class OXFrameSource {
 public:
  /// As OXMediaReader takes it; with pLoop the end is followed by the start.
  OXFrameSource(std::string pSource, FrameSize pTestSize, bool pLoop);
  ~OXFrameSource();
  OXFrameSource(const OXFrameSource&) = delete;
  OXFrameSource& operator=(const OXFrameSource&) = delete;

  /// Goes on to the frame that is shown pSeconds after the first one. Time never goes back.
  /// False when the source has ended before that moment.
  bool advanceTo(double pSeconds);

  /// The frame of the last advanceTo() that was true, as OXFrameScaler renders it.
  void render(FrameSize pSize, Fit pFit, std::vector<unsigned char>& pTarget);

  /// True when the end never comes: a loop, a still picture, the test picture.
  bool isEndless() const;
  /// Seconds until the end; 0 when that isn't known or never comes.
  double duration() const;
  std::int64_t damagedFrames() const;

 private:
  struct TimedFrame;
  std::unique_ptr<TimedFrame> xFetch();

  const std::string fSource;
  const FrameSize fTestSize;
  const bool fLoop;
  std::unique_ptr<OXMediaReader> fReader;
  std::unique_ptr<TimedFrame> fCurrent;
  std::unique_ptr<TimedFrame> fUpcoming;  ///< null at the end
  OXFrameScaler fScaler;
  double fPassStart = 0;  ///< when this pass through the source began
  std::int64_t fPassFrames = 0;
  std::int64_t fDamagedBefore = 0;  ///< in earlier passes
};

}  // namespace OX::cli
