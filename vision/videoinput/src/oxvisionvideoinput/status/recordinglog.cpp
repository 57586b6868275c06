// Counts a recording as it is written. A gap is told by the stamps alone: requests that bring the
// same rate in an irregular rhythm lose nothing.
#include "status/recordinglog.h"

#include <algorithm>
#include <cmath>
#include <new>

namespace OX {
namespace {

// How many images fit between two stamps, at a period. Stamps of a replay come from a file and may
// be anything, hence in floating point.
std::uint64_t missingBetween(std::int64_t pFirstUs, std::int64_t pSecondUs, double pPeriodUs) {
  const double gap = static_cast<double>(pSecondUs) - static_cast<double>(pFirstUs);
  if (gap <= 1.5 * pPeriodUs) return 0;
  return static_cast<std::uint64_t>(std::llround(gap / pPeriodUs) - 1);
}

}  // namespace

void RecordingRecord::add(std::int64_t pStampUs, std::size_t pBytes, int pFrameRate) {
  if (fStatus.images == 0)
    fStatus.firstUs = pStampUs;
  else
    fStatus.missing += missingBetween(fStatus.lastUs, pStampUs,
                                      1e6 / std::max(pFrameRate, 1) * std::max(fStatus.period, 1));
  fStatus.lastUs = pStampUs;
  fStatus.bytes += pBytes;
  ++fStatus.images;
}

void RecordingRecord::end(RecordingState pState, std::string_view pReason) noexcept {
  if (!isUnderWay()) return;
  const bool isComplete = pState == RecordingState::kStopped && fStatus.images >= fStatus.wanted;
  fStatus.state = isComplete ? RecordingState::kComplete : pState;
  try {
    fStatus.reason = isComplete ? "complete" : pReason;
  } catch (const std::bad_alloc&) {
    fStatus.reason.clear();
  }
}

// Those that ended since the last addition may be too many, hence not only one goes.
void RecordingLog::add(const boost::shared_ptr<RecordingRecord>& pRecord) {
  fRecords.push_back(pRecord);
  std::size_t surplus = xSurplus();
  std::erase_if(fRecords, [&](const auto& record) {
    return surplus > 0 && !record->isUnderWay() && surplus-- > 0;
  });
}

std::size_t RecordingLog::xSurplus() const {
  const auto ended = static_cast<std::size_t>(std::count_if(
      fRecords.begin(), fRecords.end(), [](const auto& record) { return !record->isUnderWay(); }));
  return ended > kMostEnded ? ended - kMostEnded : 0;
}

std::vector<RecordingStatus> RecordingLog::status() const {
  std::vector<RecordingStatus> result;
  result.reserve(fRecords.size());
  std::size_t surplus = xSurplus();
  for (const auto& record : fRecords) {
    const bool isSurplus = surplus > 0 && !record->isUnderWay();
    if (isSurplus)
      --surplus;
    else
      result.push_back(record->status());
  }
  return result;
}

}  // namespace OX
