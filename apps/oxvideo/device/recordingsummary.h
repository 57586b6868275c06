/// What a recording came to, as the verb that made it says at its end.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "device/status.h"
#include "terminal/json.h"

namespace OX::cli {

struct RecordingSummary {
  std::int64_t images = 0;
  double bytes = 0;  ///< of pixels
  std::int64_t firstUs = 0, lastUs = 0;
  std::int64_t missing = 0;

  /// From the first image to the last.
  double seconds() const { return static_cast<double>(lastUs - firstUs) / 1e6; }
  /// Images a second; 0 for fewer than two images.
  double fps() const;

  /// "90 images, 3.0 s, 29.9 a second, 2 missing, 41 MB".
  std::string text() const;
  /// Adds the same as members.
  void addTo(OXJson& pJson) const;
};

RecordingSummary summarize(const RecordingStatus& pRecording);

/// Of a file on this machine, also one that was never closed; pFps and pPeriod are what was asked
/// for. Empty when it can't be read.
std::optional<RecordingSummary> summarizeFile(const std::string& pPath, int pFps, int pPeriod);

}  // namespace OX::cli
