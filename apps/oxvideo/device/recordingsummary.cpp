// The broker counts while it records. The file is counted when the broker is gone, by the same
// rule: a gap of more than one and a half periods lacks the images that would have fitted into it.
#include "device/recordingsummary.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include <oxframework/oxvideo.h>

namespace OX::cli {

namespace {

std::string bytesText(double pBytes) {
  if (pBytes < 1e6) return fmt::format("{:.0f} kB", pBytes / 1e3);
  if (pBytes < 1e7) return fmt::format("{:.1f} MB", pBytes / 1e6);
  return pBytes < 1e10 ? fmt::format("{:.0f} MB", pBytes / 1e6)
                       : fmt::format("{:.1f} GB", pBytes / 1e9);
}

}  // namespace

double RecordingSummary::fps() const {
  return images > 1 && seconds() > 0 ? static_cast<double>(images - 1) / seconds() : 0;
}

std::string RecordingSummary::text() const {
  std::string result = fmt::format("{} image{}", images, images == 1 ? "" : "s");
  if (images > 1) result += fmt::format(", {:.1f} s, {:.1f} a second", seconds(), fps());
  return result + fmt::format(", {} missing, {}", missing, bytesText(bytes));
}

void RecordingSummary::addTo(OXJson& pJson) const {
  pJson.add("images", images);
  pJson.add("seconds", seconds());
  pJson.add("fps", fps());
  pJson.add("missing", missing);
  pJson.add("bytes", bytes);
}

RecordingSummary summarize(const RecordingStatus& pRecording) {
  return {pRecording.images, pRecording.bytes, pRecording.firstUs, pRecording.lastUs,
          pRecording.missing};
}

std::optional<RecordingSummary> summarizeFile(const std::string& pPath, int pFps, int pPeriod) {
  OXVideo video;
  if (!video.readVideo(pPath)) return std::nullopt;
  const double periodUs = 1e6 / std::max(pFps, 1) * std::max(pPeriod, 1);
  RecordingSummary summary;
  for (int i = 0; const auto frame = video.getFrameInfo(i, 0); ++i) {
    const double gap = static_cast<double>(frame->fTimeStamp - summary.lastUs);
    if (i == 0)
      summary.firstUs = frame->fTimeStamp;
    else if (gap > 1.5 * periodUs)
      summary.missing += std::llround(gap / periodUs) - 1;
    summary.lastUs = frame->fTimeStamp;
    summary.bytes += static_cast<double>(frame->fPayloadBytes);
    ++summary.images;
  }
  return summary;
}

}  // namespace OX::cli
