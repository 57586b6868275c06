/// A video as a function of time: which frame is shown at a moment.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "media/framescaler.h"
#include "media/mediareader.h"

namespace OX::cli {

/// A source of a single frame is a still picture and has no end. One thread only.
class OXFrameSource {
 public:
  /// pSource is what OXMediaReader accepts. With pLoop it starts again at its end.
  OXFrameSource(std::string pSource, FrameSize pTestSize, bool pLoop,
                const MediaOptions& pOptions = {});
  ~OXFrameSource();
  OXFrameSource(const OXFrameSource&) = delete;
  OXFrameSource& operator=(const OXFrameSource&) = delete;

  /// Moves on to the frame shown pSeconds after the first one; never moves back.
  /// False when the source ends before that moment.
  bool advanceTo(double pSeconds);

  /// The size of that frame as it is shown, before any scaling.
  FrameSize shownSize() const;

  /// The frame of the last advanceTo() that was true, as OXFrameScaler renders it.
  void render(FrameSize pSize, Fit pFit, std::vector<unsigned char>& pTarget);

  /// True for a loop, a still picture and the test picture.
  bool isEndless() const;
  /// Length in seconds; 0 when unknown or endless.
  double duration() const;
  std::int64_t damagedFrames() const;

 private:
  struct TimedFrame;
  std::unique_ptr<TimedFrame> xFetch();

  const std::string fSource;
  const FrameSize fTestSize;
  const bool fLoop;
  const MediaOptions fOptions;
  std::unique_ptr<OXMediaReader> fReader;
  std::unique_ptr<TimedFrame> fCurrent;
  std::unique_ptr<TimedFrame> fUpcoming;  ///< null at the end
  OXFrameScaler fScaler;
  double fPassStart = 0;  ///< start of the current pass through the source
  std::int64_t fPassFrames = 0;
  std::int64_t fDamagedBefore = 0;  ///< during earlier passes
};

}  // namespace OX::cli
