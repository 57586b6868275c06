// One frame is read ahead, because only the start of the next frame tells when the current one
// ends, and only its absence tells a still picture from a video.
#include "media/framesource.h"

#include <fmt/format.h>

#include "media/ffmpeg.h"
#include "media/liveframes.h"
#include "terminal/exitstatus.h"
#include "terminal/text.h"

namespace OX::cli {

struct OXFrameSource::TimedFrame {
  FrameOwner frame;
  Orientation orientation;
  double start;
  double end;
};

OXFrameSource::OXFrameSource(std::string pSource, FrameSize pTestSize, bool pLoop,
                             const MediaOptions& pOptions)
    : fSource(std::move(pSource)),
      fTestSize(pTestSize),
      fLoop(pLoop),
      fOptions(pOptions),
      fKind(mediaKind(fSource, fOptions)) {
  if (fLoop && (fKind == MediaKind::kPipe || isLive(fKind)))
    throw OXUsageError(fmt::format("{} can't be read again: leave --loop out", printable(fSource)));
  fReader = std::make_unique<OXMediaReader>(fSource, fTestSize, fOptions);
  if (isLive(fKind)) {
    fLive = std::make_unique<OXLiveFrames>(*fReader);
    fLive->waitForFirst();
    xAdvanceLive();
  } else {
    fCurrent = xFetch();
    fUpcoming = xFetch();
  }
  if (fCurrent) return;
  const std::string remark = fReader->remark();
  throw OXFailure(fmt::format("can't decode any frame of {}{}{}", printable(fSource),
                              remark.empty() ? "" : ": ", remark));
}

OXFrameSource::~OXFrameSource() = default;

std::unique_ptr<OXFrameSource::TimedFrame> OXFrameSource::xFetch() {
  const AVFrame* frame = fReader->next();
  // A loop reopens the source, since not every format can seek to its start. A still picture is
  // never reopened: its one frame lasts for ever.
  if (!frame && fLoop && fPassFrames > 1) {
    fDamagedBefore += fReader->damagedFrames();
    fPassStart += fReader->time() + fReader->frameDuration();
    fPassFrames = 0;
    if (fRemark.empty()) fRemark = fReader->remark();
    fReader = std::make_unique<OXMediaReader>(fSource, fTestSize, fOptions);
    frame = fReader->next();
  }
  if (!frame) return nullptr;
  ++fPassFrames;
  ++fFetched;
  auto frameCopy = std::make_unique<TimedFrame>();
  // The reader reuses its frame; a clone shares the pixels and only counts a reference.
  frameCopy->frame.reset(av_frame_clone(frame));
  if (!frameCopy->frame) throw OXFailure("out of memory");
  frameCopy->orientation = fReader->orientation();
  frameCopy->start = fPassStart + fReader->time();
  frameCopy->end = frameCopy->start + fReader->frameDuration();
  return frameCopy;
}

bool OXFrameSource::xAdvanceLive() {
  OXLiveFrames::Frame newest = fLive->take();
  if (!newest.frame) return !fLive->isOver();
  if (!fCurrent) fCurrent = std::make_unique<TimedFrame>();
  fCurrent->frame = std::move(newest.frame);
  fCurrent->orientation = newest.orientation;
  fFetched = newest.number;
  return true;
}

bool OXFrameSource::advanceTo(double pSeconds) {
  if (fLive) return xAdvanceLive();
  while (fUpcoming && fUpcoming->start <= pSeconds) {
    fCurrent = std::move(fUpcoming);
    fUpcoming = xFetch();
  }
  // The last frame is shown for its own duration.
  return fUpcoming || xIsStill() || pSeconds < fCurrent->end;
}

FrameSize OXFrameSource::shownSize() const {
  return uprightSize(*fCurrent->frame, fCurrent->orientation);
}

void OXFrameSource::render(FrameSize pSize, Fit pFit, std::vector<unsigned char>& pTarget) {
  fScaler.render(*fCurrent->frame, fCurrent->orientation, pSize, pFit, pTarget);
}

bool OXFrameSource::xIsStill() const { return !fLive && fPassFrames == 1 && !fUpcoming; }

bool OXFrameSource::isEndless() const {
  return fLoop || fLive || xIsStill() || fKind == MediaKind::kTest || fKind == MediaKind::kGraph;
}

double OXFrameSource::duration() const { return isEndless() ? 0 : fReader->duration(); }

std::int64_t OXFrameSource::frameNumber() const { return fFetched - (fUpcoming ? 1 : 0); }

std::int64_t OXFrameSource::damagedFrames() const {
  return fDamagedBefore + fReader->damagedFrames();
}

}  // namespace OX::cli
