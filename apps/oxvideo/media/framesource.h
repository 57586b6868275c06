/// A video as a function of time: which frame is shown at a moment.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "media/framescaler.h"
#include "media/mediareader.h"

namespace OX::cli {

class OXLiveFrames;

/// A source of a single frame is a still picture and has no end. Of a source that comes at its own
/// pace (a camera, RTSP) the newest frame is shown, whatever the time. One thread only.
class OXFrameSource {
 public:
  /// pSource is what OXMediaReader accepts. With pLoop it starts again at its end. Throws as
  /// OXMediaReader does, and OXUsageError for a loop of what can't be read again.
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

  /// True for a loop, a still picture, the test picture, a filter graph and what comes at its own
  /// pace: only a signal ends them, or so one must expect.
  bool isEndless() const;
  /// Length in seconds; 0 when unknown or endless.
  double duration() const;
  std::int64_t damagedFrames() const;
  /// The number of the frame that is shown, counted from 1 and on through loops; at the end, how
  /// many there were.
  std::int64_t frameNumber() const;
  /// As OXMediaReader::remark().
  std::string remark() const { return fRemark + fReader->remark(); }

 private:
  struct TimedFrame;
  std::unique_ptr<TimedFrame> xFetch();
  bool xAdvanceLive();
  bool xIsStill() const;

  const std::string fSource;
  const FrameSize fTestSize;
  const bool fLoop;
  const MediaOptions fOptions;
  const MediaKind fKind;
  std::unique_ptr<OXMediaReader> fReader;
  std::unique_ptr<OXLiveFrames> fLive;  ///< null unless the source comes at its own pace
  std::unique_ptr<TimedFrame> fCurrent;
  std::unique_ptr<TimedFrame> fUpcoming;  ///< null at the end
  OXFrameScaler fScaler;
  double fPassStart = 0;  ///< start of the current pass through the source
  std::int64_t fPassFrames = 0;
  std::int64_t fFetched = 0;        ///< in all passes
  std::int64_t fDamagedBefore = 0;  ///< during earlier passes
  std::string fRemark;              ///< of an earlier pass
};

}  // namespace OX::cli
