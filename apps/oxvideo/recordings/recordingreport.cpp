// Stamps may be anything in a damaged or foreign file: the median is the usual interval because a
// few wild ones don't move it, and differences are computed without overflow.
#include "recordings/recordingreport.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>

#include "device/vocabulary.h"
#include "recordings/inputrecording.h"
#include "terminal/filelock.h"
#include "terminal/json.h"

namespace OX::cli {

namespace {

// A long recording may have thousands of gaps: text shows the first ones, JSON shows all.
constexpr std::size_t kShownLines = 10;

double seconds(std::int64_t pMicroseconds) { return static_cast<double>(pMicroseconds) / 1e6; }

std::vector<std::int64_t> timeStamps(const OXVideo& pVideo, int pStream, int pCount) {
  std::vector<std::int64_t> stamps;
  stamps.reserve(static_cast<std::size_t>(std::max(pCount, 0)));
  for (int i = 0; i < pCount; ++i) stamps.push_back(pVideo.getTimeStamp(i, pStream).value_or(0));
  return stamps;
}

/// The upper of the middle two for an even number. Selects instead of sorting: a recording of ten
/// hours has a million stamps.
std::int64_t median(std::vector<std::int64_t> pValues) {
  if (pValues.empty()) return 0;
  const auto middle = pValues.begin() + static_cast<std::ptrdiff_t>(pValues.size() / 2);
  std::nth_element(pValues.begin(), middle, pValues.end());
  return *middle;
}

void findGaps(const std::vector<std::int64_t>& pStamps, StreamReport& pReport) {
  std::vector<std::int64_t> intervals;
  for (std::size_t i = 1; i < pStamps.size(); ++i) {
    const std::int64_t interval = stampDifference(pStamps[i], pStamps[i - 1]);
    // Steps back and repetitions would pull the median down; they are a fault of their own.
    if (interval > 0)
      intervals.push_back(interval);
    else
      ++pReport.notRising;
  }
  const std::int64_t usual = median(intervals);
  pReport.usualIntervalUs = usual;
  for (std::size_t i = 1; usual > 0 && i < pStamps.size(); ++i) {
    const std::int64_t interval = stampDifference(pStamps[i], pStamps[i - 1]);
    // More than one and a half intervals, written so that it can't overflow. The number missing is
    // rounded, because stamps jitter: 2.6 intervals lack two images.
    if (interval / 3 > usual / 2)
      pReport.gaps.push_back(
          {static_cast<int>(i) - 1, interval, (interval - usual + usual / 2) / usual});
  }
}

StreamReport makeStreamReport(const OXInputRecording& pRecording, int pStream) {
  const OXVideo& pVideo = pRecording.video();
  StreamReport report;
  report.format = pVideo.getStream(pStream);
  const auto stamps = timeStamps(pVideo, pStream, report.format.fNumberOfImages);
  if (stamps.empty()) return report;
  report.firstUs = stamps.front();
  report.lastUs = stamps.back();
  const std::int64_t length = stampDifference(report.lastUs, report.firstUs);
  // One interval fewer than images.
  if (length > 0) report.fps = static_cast<double>(stamps.size() - 1) / seconds(length);
  findGaps(stamps, report);
  std::set<int> cameras;
  for (int i = 0; i < report.format.fNumberOfImages; ++i)
    if (const auto frame = pVideo.getFrameInfo(i, pStream)) cameras.insert(frame->fCameraId);
  report.cameras.assign(cameras.begin(), cameras.end());
  report.otherSizes = findOtherSizes(pRecording, pStream);
  return report;
}

std::string streamText(const StreamReport& pStream, std::size_t pNumber) {
  std::vector<std::string> cameras;
  for (const int camera : pStream.cameras) cameras.push_back(std::to_string(camera));
  return fmt::format(
      "stream {}: {} x {} {}, {} images, {:.3f} s, {:.2f} fps, usually {:.3f} ms apart{}\n",
      pNumber, pStream.format.fWidth, pStream.format.fHeight,
      colorSpaceName(pStream.format.fColorSpace), pStream.format.fNumberOfImages,
      seconds(stampDifference(pStream.lastUs, pStream.firstUs)), pStream.fps,
      seconds(pStream.usualIntervalUs) * 1000, cameras.empty() ? "" : ", camera " + join(cameras));
}

/// A fault of the recorder, not of the file: yellow, where damage is red.
std::string gapLines(const StreamReport& pStream, const OXTextStyle& pStyle) {
  std::string text;
  for (std::size_t i = 0; i < pStream.gaps.size() && i < kShownLines; ++i) {
    const RecordingGap& gap = pStream.gaps[i];
    text += pStyle.yellow(fmt::format("  gap of {:.3f} s after image {}, about {} missing\n",
                                      seconds(gap.lengthUs), gap.afterImage, gap.missing));
  }
  if (pStream.gaps.size() > kShownLines)
    text += fmt::format("  and {} more gaps\n", pStream.gaps.size() - kShownLines);
  if (pStream.notRising > 0)
    text += pStyle.yellow(
        fmt::format("  images not later than the one before: {}\n", pStream.notRising));
  return text;
}

/// A replay lacks these images: as serious as damage, and red as well.
std::string otherSizeLines(const StreamReport& pStream, const OXTextStyle& pStyle) {
  std::string text;
  for (std::size_t i = 0; i < pStream.otherSizes.size() && i < kShownLines; ++i) {
    const OtherSize& other = pStream.otherSizes[i];
    text += pStyle.red(fmt::format("  images of another size, {}: {}, the first is image {}\n",
                                   sizeText(other), other.images, other.firstImage));
  }
  if (pStream.otherSizes.size() > kShownLines)
    text += fmt::format("  and {} more sizes\n", pStream.otherSizes.size() - kShownLines);
  if (!pStream.otherSizes.empty())
    text +=
        "  the camera changed its size while it was recorded; oxvideo repair makes a file for "
        "each\n";
  return text;
}

std::string damageLines(const RecordingReport& pReport, const OXTextStyle& pStyle) {
  std::string text;
  for (std::size_t i = 0; i < pReport.damage.size() && i < kShownLines; ++i) {
    const OXVideoDamage& damage = pReport.damage[i];
    text += pStyle.red(fmt::format("damage at byte {}, {} bytes: {}\n", damage.fOffset,
                                   damage.fBytes, damage.fText));
  }
  if (pReport.damage.size() > kShownLines)
    text += fmt::format("and {} more places\n", pReport.damage.size() - kShownLines);
  return text;
}

OXJson streamJson(const StreamReport& pStream) {
  OXJson gaps = OXJson::array();
  for (const RecordingGap& gap : pStream.gaps)
    gaps.append(
        {{"after_image", gap.afterImage}, {"length_us", gap.lengthUs}, {"missing", gap.missing}});
  OXJson others = OXJson::array();
  for (const OtherSize& other : pStream.otherSizes)
    others.append({{"width", other.size ? OXJson(other.size->width) : nullptr},
                   {"height", other.size ? OXJson(other.size->height) : nullptr},
                   {"bytes", other.bytes},
                   {"images", other.images},
                   {"first_image", other.firstImage}});
  OXJson cameras = OXJson::array();
  for (const int camera : pStream.cameras) cameras.append(camera);
  return {{"width", pStream.format.fWidth},
          {"height", pStream.format.fHeight},
          {"colorspace", colorSpaceName(pStream.format.fColorSpace)},
          {"images", pStream.format.fNumberOfImages},
          {"first_us", pStream.firstUs},
          {"last_us", pStream.lastUs},
          {"duration_s", seconds(stampDifference(pStream.lastUs, pStream.firstUs))},
          {"fps", pStream.fps},
          {"usual_interval_us", pStream.usualIntervalUs},
          {"not_rising", pStream.notRising},
          {"cameras", cameras},
          {"other_sizes", others},
          {"gaps", gaps}};
}

}  // namespace

std::int64_t stampDifference(std::int64_t pTo, std::int64_t pFrom) {
  std::int64_t result = 0;
  return __builtin_sub_overflow(pTo, pFrom, &result) ? 0 : result;
}

std::vector<OtherSize> findOtherSizes(const OXInputRecording& pRecording, int pStream) {
  const std::int64_t expected = pRecording.video().getStream(pStream).fFrameBytes;
  std::vector<OtherSize> sizes;
  // By the number of bytes, since what no size has may have many.
  std::map<std::int64_t, std::size_t> known;
  for (int i = 0; i < pRecording.images(pStream); ++i) {
    const auto place = pRecording.video().getFrameInfo(i, pStream);
    if (!place || (place->fPayloadBytes == expected && expected != 0)) continue;
    const auto [entry, isNew] = known.try_emplace(place->fPayloadBytes, sizes.size());
    if (isNew) sizes.push_back({pRecording.imageSize(i, pStream), place->fPayloadBytes, 0, i});
    ++sizes[entry->second].images;
  }
  return sizes;
}

std::string sizeText(const OtherSize& pSize) {
  return pSize.size ? fmt::format("{}x{}", pSize.size->width, pSize.size->height)
                    : fmt::format("{} bytes", pSize.bytes);
}

RecordingReport makeReport(const OXInputRecording& pRecording) {
  RecordingReport report;
  report.path = pRecording.path();
  std::error_code ignored;
  report.sizeBytes = std::filesystem::file_size(report.path, ignored);
  report.indexed = pRecording.video().hasIndex();
  if (!report.indexed) report.recorder = lockOwner(report.path);
  for (int stream = 0; stream < pRecording.streams(); ++stream)
    report.streams.push_back(makeStreamReport(pRecording, stream));
  report.damage = pRecording.video().getDamage();
  return report;
}

std::string reportText(const RecordingReport& pReport, const OXTextStyle& pStyle) {
  std::string state = "closed with an index";
  if (!pReport.indexed)
    state = pReport.recorder.empty() ? "without a usable index (was the recorder interrupted?)"
                                     : "still being recorded by " + printable(pReport.recorder);
  std::string text =
      fmt::format("{}: {} bytes, {}\n", printable(pReport.path), pReport.sizeBytes, state);
  for (std::size_t i = 0; i < pReport.streams.size(); ++i)
    text += streamText(pReport.streams[i], i) + otherSizeLines(pReport.streams[i], pStyle) +
            gapLines(pReport.streams[i], pStyle);
  return text + damageLines(pReport, pStyle);
}

std::string reportJson(const RecordingReport& pReport) {
  OXJson streams = OXJson::array();
  for (const StreamReport& stream : pReport.streams) streams.append(streamJson(stream));
  OXJson damage = OXJson::array();
  for (const OXVideoDamage& place : pReport.damage)
    damage.append({{"byte", place.fOffset}, {"bytes", place.fBytes}, {"text", place.fText}});
  return OXJson({{"file", pReport.path},
                 {"bytes", pReport.sizeBytes},
                 {"indexed", pReport.indexed},
                 {"recorder", pReport.recorder.empty() ? nullptr : OXJson(pReport.recorder)},
                 {"streams", streams},
                 {"damage", damage}})
      .text();
}

}  // namespace OX::cli
