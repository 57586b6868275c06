#include "recordings/importer.h"

#include <sys/stat.h>

#include <chrono>
#include <cmath>

#include <oxframework/oxdefinitions.h>
#include <oxframework/oxvideo.h>
#include "media/ffmpeg.h"
#include "media/framescaler.h"
#include "media/framesource.h"
#include "media/mediareader.h"
#include "media/yuyv.h"
#include "terminal/exitstatus.h"
#include "terminal/interrupt.h"

namespace OX::cli {

namespace {

constexpr FrameSize kTestSize{640, 480};

std::int64_t startOf(const std::string& pVideo) {
  struct stat status {};
  if (::stat(pVideo.c_str(), &status) == 0)
    return std::int64_t{status.st_mtim.tv_sec} * 1'000'000 + status.st_mtim.tv_nsec / 1000;
  return std::chrono::duration_cast<std::chrono::microseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

/// The recording that is being made. Its destructor closes it, whatever ended the import.
class Writer {
 public:
  Writer(const ImportWishes& pWishes, FrameSize pSize) : fStartUs(startOf(pWishes.video)) {
    if (!fVideo.recordVideo(pWishes.output, 0, {{pSize.width, pSize.height, kYUV422, 8}}))
      throw OXFailure(fVideo.getLastError());
  }
  ~Writer() { fVideo.closeVideo(); }
  Writer(const Writer&) = delete;
  Writer& operator=(const Writer&) = delete;

  void write(const std::vector<unsigned char>& pRgb, double pSeconds) {
    packYuyv(pRgb, fPixels);
    if (!fVideo.write(fPixels.data(), static_cast<int>(fPixels.size()),
                      fStartUs + std::llround(pSeconds * 1e6), 0, 0, 0, 0, 0))
      throw OXFailure(fVideo.getLastError());
  }

 private:
  const std::int64_t fStartUs;
  OXVideo fVideo;
  std::vector<unsigned char> fPixels;
};

using OnFrame = std::function<void(int, int)>;

bool goesOn(int pDone, const ImportWishes& pWishes) {
  if (OXInterrupt::requested()) throw OXInterrupted();
  return pWishes.frames == 0 || pDone < pWishes.frames;
}

int expected(const ImportWishes& pWishes, double pFrames) {
  const int all = static_cast<int>(std::lround(std::min(pFrames, 1e9)));
  return pWishes.frames > 0 && (all == 0 || pWishes.frames < all) ? pWishes.frames : all;
}

FrameSize shownSize(const AVFrame& pFrame, Orientation pOrientation) {
  if (pOrientation.quarterTurns % 2 != 0) return {pFrame.height, pFrame.width};
  return {pFrame.width, pFrame.height};
}

FrameSize sizeOf(const ImportWishes& pWishes, const AVFrame* pFrame, Orientation pOrientation) {
  if (!pFrame) throw OXFailure(pWishes.video + " holds no frame that can be decoded");
  return pWishes.size.value_or(fittingSize(shownSize(*pFrame, pOrientation)));
}

/// Every frame of the video at its own time.
Import importAsItIs(const ImportWishes& pWishes, const OnFrame& pOnFrame) {
  OXVideoReader reader(pWishes.video, pWishes.size.value_or(kTestSize));
  const AVFrame* frame = reader.next();
  Import result{0, 0, sizeOf(pWishes, frame, reader.orientation())};
  Writer writer(pWishes, result.size);
  OXFrameScaler scaler;
  std::vector<unsigned char> rgb;
  const int all = expected(pWishes, reader.duration() / reader.frameDuration());
  for (; frame && goesOn(result.frames, pWishes); frame = reader.next()) {
    scaler.render(*frame, reader.orientation(), result.size, Fit::kPad, rgb);
    writer.write(rgb, reader.time());
    pOnFrame(++result.frames, all);
  }
  result.damaged = reader.damagedFrames();
  return result;
}

/// What is shown at each beat of a steady rate.
Import importAtRate(const ImportWishes& pWishes, const OnFrame& pOnFrame) {
  FrameSize size = pWishes.size.value_or(kTestSize);
  if (!pWishes.size) {
    OXVideoReader first(pWishes.video, size);
    const AVFrame* frame = first.next();
    size = sizeOf(pWishes, frame, first.orientation());
  }
  OXFrameSource source(pWishes.video, size, false);
  if (source.isEndless() && pWishes.frames == 0)
    throw OXUsageError("this source never ends: say how much with --frames");
  Writer writer(pWishes, size);
  Import result{0, 0, size};
  std::vector<unsigned char> rgb;
  const int all = expected(pWishes, source.duration() * pWishes.fps);
  while (goesOn(result.frames, pWishes) && source.advanceTo(result.frames / pWishes.fps)) {
    source.render(size, Fit::kPad, rgb);
    writer.write(rgb, result.frames / pWishes.fps);
    pOnFrame(++result.frames, all);
  }
  result.damaged = source.damagedFrames();
  return result;
}

}  // namespace

FrameSize fittingSize(FrameSize pVideo) {
  FrameSize best;
  setSizeFromResolution(kQQVGA, best.width, best.height);
  for (const int resolution : {kQVGA, kVGA, k4VGA}) {
    FrameSize size;
    setSizeFromResolution(resolution, size.width, size.height);
    if (size.width <= pVideo.width && size.height <= pVideo.height) best = size;
  }
  return best;
}

Import importVideo(const ImportWishes& pWishes, const OnFrame& pOnFrame) {
  if (pWishes.video == "test" && pWishes.frames == 0)
    throw OXUsageError("the test picture never ends: say how much with --frames");
  return pWishes.fps > 0 ? importAtRate(pWishes, pOnFrame) : importAsItIs(pWishes, pOnFrame);
}

}  // namespace OX::cli
