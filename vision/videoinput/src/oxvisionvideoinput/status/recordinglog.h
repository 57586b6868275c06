/// What is known of the device's recordings, also after their end.
#pragma once

#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <string_view>
#include <utility>
#include <vector>

#include "status/devicestatus.h"

namespace OX {

/// One recording; shared by the log and, while it records, by its subscriber. Under
/// fVisionModulesLock.
class RecordingRecord {
 public:
  explicit RecordingRecord(RecordingStatus pBegin) : fStatus(std::move(pBegin)) {}

  const RecordingStatus& status() const { return fStatus; }
  bool isUnderWay() const { return fStatus.state == RecordingState::kRecording; }

  /// An image was written, while its subscriber asked for pFrameRate images a second.
  void add(std::int64_t pStampUs, std::size_t pBytes, int pFrameRate);
  /// Ends it: complete if all images are there, else as pState. Changes nothing of one that has
  /// ended. Never throws: without memory the reason is lost.
  void end(RecordingState pState, std::string_view pReason) noexcept;

 private:
  RecordingStatus fStatus;
};

/// In the order of their beginning. Under fVisionModulesLock.
class RecordingLog {
 public:
  /// Ended recordings that are kept: a device that runs for months must not grow.
  static constexpr std::size_t kMostEnded = 64;

  /// Throws std::bad_alloc, with nothing changed.
  void add(const boost::shared_ptr<RecordingRecord>& pRecord);
  std::vector<RecordingStatus> status() const;

 private:
  /// How many of the oldest ended ones are too many.
  std::size_t xSurplus() const;

  std::vector<boost::shared_ptr<RecordingRecord>> fRecords;
};

}  // namespace OX
