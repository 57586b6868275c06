// A camera or a network stream goes on whether or not anybody takes its frames: read in step with
// the clock of this program, frames would pile up, and come later and later.
#include "media/liveframes.h"

#include "terminal/exitstatus.h"

namespace OX::cli {

OXLiveFrames::OXLiveFrames(OXMediaReader& pReader)
    : fReader(pReader), fThread([this] { xRead(); }) {}

OXLiveFrames::~OXLiveFrames() {
  fReader.cancel();
  fThread.join();
}

void OXLiveFrames::xRead() {
  std::exception_ptr failure;
  try {
    while (const AVFrame* shown = fReader.next()) {
      Frame frame;
      // The reader reuses its frame; a clone shares the pixels and only counts a reference.
      frame.frame.reset(av_frame_clone(shown));
      if (!frame.frame) throw OXFailure("out of memory");
      frame.orientation = fReader.orientation();
      const std::lock_guard guard(fGuard);
      frame.number = ++fCount;
      fNewest = std::move(frame);
      fChanged.notify_all();
    }
  } catch (...) {
    failure = std::current_exception();
  }
  const std::lock_guard guard(fGuard);
  fFailure = failure;
  fEnded = true;
  fChanged.notify_all();
}

void OXLiveFrames::waitForFirst() {
  std::unique_lock guard(fGuard);
  fChanged.wait(guard, [this] { return fEnded || fNewest.frame; });
}

OXLiveFrames::Frame OXLiveFrames::take() {
  const std::lock_guard guard(fGuard);
  if (!fNewest.frame && fFailure) std::rethrow_exception(fFailure);
  return std::move(fNewest);
}

bool OXLiveFrames::isOver() const {
  const std::lock_guard guard(fGuard);
  return fEnded && !fFailure && !fNewest.frame;
}

}  // namespace OX::cli
