// Two ways in time: every frame at its own time, or at a fixed rate what is shown at each tick.
// Both write the same bytes for the same frame. A recording exists only when all of it is there:
// what a signal or a failure cut short can't be told from a short video.
#include "recordings/importer.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <array>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <string_view>

#include <oxframework/oxdefinitions.h>
#include <oxframework/oxvideo.h>
#include "media/ffmpeg.h"
#include "media/framescaler.h"
#include "media/framesource.h"
#include "media/mediareader.h"
#include "pixels/resample/resampling.h"
#include "terminal/exitstatus.h"
#include "terminal/interrupt.h"
#include "terminal/outputfile.h"
#include "terminal/text.h"

namespace OX::cli {

namespace {

// The generated picture has no size of its own.
constexpr FrameSize kTestSize{640, 480};

std::int64_t startTime(const ImportOptions& pOptions) {
  if (pOptions.startUs) return *pOptions.startUs;
  // Time of day, so that recordings sort and compare with those of cameras. The file's own date
  // makes a second import of the same file identical.
  struct stat status {};
  if (::stat(pOptions.video.c_str(), &status) == 0)
    return std::int64_t{status.st_mtim.tv_sec} * 1'000'000 + status.st_mtim.tv_nsec / 1000;
  return std::chrono::duration_cast<std::chrono::microseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

/// The media library would only find no video in it.
void requireNoRecording(const std::string& pPath) {
  // Whatever is read from a pipe here would be missing later.
  std::error_code ignored;
  if (!std::filesystem::is_regular_file(pPath, ignored)) return;
  std::array<char, 4> start{};
  std::ifstream file(pPath, std::ios::binary);
  if (file.read(start.data(), start.size()) && std::string_view(start.data(), 4) == "\x89OXV")
    throw OXFailure(
        fmt::format("can't read {0} as a video: it is a recording already\n"
                    "  oxvideo export makes a video of it, oxvideo repair copies it",
                    printable(pPath)));
}

/// The recording under construction. Colours are converted by the simulator camera's resampler: a
/// frame has the same bytes, imported or pushed.
class ImportOutput {
 public:
  ImportOutput(const ImportOptions& pOptions, FrameSize pSize, OXOutput& pOut)
      : fStartUs(startTime(pOptions)),
        fCamera(static_cast<std::int8_t>(pOptions.camera)),
        fSize(pSize),
        fFile(pOptions.output, pOptions.overwrite, pOut),
        fPixels(static_cast<std::size_t>(pSize.width) * static_cast<std::size_t>(pSize.height) *
                2) {
    if (!fVideo.recordVideo(fFile.temporaryPath(), 0, {{pSize.width, pSize.height, kYUV422, 8}}))
      throw OXFailure(fFile.named(fVideo.getLastError()));
  }

  std::int64_t startUs() const { return fStartUs; }

  void write(const std::vector<unsigned char>& pRgb, double pSeconds) {
    resampling::rgbToYuv422(pRgb.data(), fSize.width, fSize.height, fPixels.data());
    if (!fVideo.write(fPixels.data(), static_cast<int>(fPixels.size()),
                      fStartUs + std::llround(pSeconds * 1e6), fCamera, 0, 0, 0, 0))
      throw OXFailure(fFile.named(fVideo.getLastError()));
  }

  void commit() {
    fVideo.closeVideo();
    fFile.commit();
  }

 private:
  const std::int64_t fStartUs;
  const std::int8_t fCamera;
  const FrameSize fSize;
  OXOutputFile fFile;
  OXVideo fVideo;
  std::vector<unsigned char> fPixels;
};

using OnFrame = std::function<void(int, int)>;

bool wantsMore(int pDone, const ImportOptions& pOptions) {
  if (OXInterrupt::requested()) throw OXInterrupted();
  return pOptions.frames == 0 || pDone < pOptions.frames;
}

int expectedFrames(const ImportOptions& pOptions, double pFrames) {
  // Durations in damaged files may be absurd: clamped, because the cast would be undefined.
  const int all = static_cast<int>(std::lround(std::min(pFrames, 1e9)));
  return pOptions.frames > 0 && (all == 0 || pOptions.frames < all) ? pOptions.frames : all;
}

/// Every frame of the video at its own time.
ImportResult importAsItIs(const ImportOptions& pOptions, OXOutput& pOut, const OnFrame& pOnFrame) {
  OXMediaReader reader(pOptions.video, pOptions.size.value_or(kTestSize), {pOptions.stream});
  const AVFrame* frame = reader.next();
  if (!frame) throw OXFailure("can't decode any frame of " + pOptions.video);
  ImportResult result;
  result.size = pOptions.size.value_or(fittingSize(uprightSize(*frame, reader.orientation())));
  ImportOutput writer(pOptions, result.size, pOut);
  result.startUs = writer.startUs();
  OXFrameScaler scaler;
  std::vector<unsigned char> rgb;
  const int all = expectedFrames(pOptions, reader.duration() / reader.frameDuration());
  for (; frame && wantsMore(result.frames, pOptions); frame = reader.next()) {
    scaler.render(*frame, reader.orientation(), result.size, Fit::kPad, rgb);
    writer.write(rgb, reader.time());
    pOnFrame(++result.frames, all);
  }
  writer.commit();
  result.damaged = reader.damagedFrames();
  result.remark = reader.remark();
  return result;
}

/// Samples the video at a fixed rate.
ImportResult importAtRate(const ImportOptions& pOptions, OXOutput& pOut, const OnFrame& pOnFrame) {
  OXFrameSource source(pOptions.video, pOptions.size.value_or(kTestSize), false, {pOptions.stream});
  if (source.isEndless() && pOptions.frames == 0)
    throw OXUsageError("this source never ends: limit it with --frames");
  const FrameSize size = pOptions.size.value_or(fittingSize(source.shownSize()));
  ImportOutput writer(pOptions, size, pOut);
  ImportResult result{0, 0, size, writer.startUs()};
  std::vector<unsigned char> rgb;
  const int all = expectedFrames(pOptions, source.duration() * pOptions.fps);
  while (wantsMore(result.frames, pOptions) && source.advanceTo(result.frames / pOptions.fps)) {
    source.render(size, Fit::kPad, rgb);
    writer.write(rgb, result.frames / pOptions.fps);
    pOnFrame(++result.frames, all);
  }
  writer.commit();
  result.damaged = source.damagedFrames();
  result.remark = source.remark();
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

ImportResult importVideo(const ImportOptions& pOptions, OXOutput& pOut, const OnFrame& pOnFrame) {
  const MediaKind kind = mediaKind(pOptions.video, {});
  if ((kind == MediaKind::kTest || kind == MediaKind::kGraph || isLive(kind)) &&
      pOptions.frames == 0)
    throw OXUsageError(printable(pOptions.video) + " never ends: limit it with --frames");
  requireNoRecording(pOptions.video);
  // Before a source is opened, which may take long and can't always be done twice.
  if (pOptions.output != "-") requireWritable(pOptions.output, pOptions.overwrite);
  return pOptions.fps > 0 ? importAtRate(pOptions, pOut, pOnFrame)
                          : importAsItIs(pOptions, pOut, pOnFrame);
}

}  // namespace OX::cli
