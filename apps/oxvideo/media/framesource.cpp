// One frame is read ahead, because only the start of the next frame tells when the current one
// ends, and only its absence tells a still picture from a video.
#include "media/framesource.h"

#include "media/ffmpeg.h"
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
      fReader(std::make_unique<OXMediaReader>(fSource, fTestSize, fOptions)) {
  fCurrent = xFetch();
  if (!fCurrent) throw OXFailure("can't decode any frame of " + printable(fSource));
  fUpcoming = xFetch();
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
    fReader = std::make_unique<OXMediaReader>(fSource, fTestSize, fOptions);
    frame = fReader->next();
  }
  if (!frame) return nullptr;
  ++fPassFrames;
  auto frameCopy = std::make_unique<TimedFrame>();
  // The reader reuses its frame; a clone shares the pixels and only counts a reference.
  frameCopy->frame.reset(av_frame_clone(frame));
  if (!frameCopy->frame) throw OXFailure("out of memory");
  frameCopy->orientation = fReader->orientation();
  frameCopy->start = fPassStart + fReader->time();
  frameCopy->end = frameCopy->start + fReader->frameDuration();
  return frameCopy;
}

bool OXFrameSource::advanceTo(double pSeconds) {
  while (fUpcoming && fUpcoming->start <= pSeconds) {
    fCurrent = std::move(fUpcoming);
    fUpcoming = xFetch();
  }
  // The last frame is shown for its own duration.
  return fUpcoming || isEndless() || pSeconds < fCurrent->end;
}

FrameSize OXFrameSource::shownSize() const {
  return uprightSize(*fCurrent->frame, fCurrent->orientation);
}

void OXFrameSource::render(FrameSize pSize, Fit pFit, std::vector<unsigned char>& pTarget) {
  fScaler.render(*fCurrent->frame, fCurrent->orientation, pSize, pFit, pTarget);
}

bool OXFrameSource::isEndless() const {
  const bool isStill = fPassFrames == 1 && !fUpcoming;
  return fLoop || isStill || fSource == "test";
}

double OXFrameSource::duration() const { return isEndless() ? 0 : fReader->duration(); }

std::int64_t OXFrameSource::damagedFrames() const {
  return fDamagedBefore + fReader->damagedFrames();
}

}  // namespace OX::cli
