/// A summary of a recording, made without reading its pixels.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <oxframework/oxvideo.h>
#include "media/framesize.h"
#include "terminal/text.h"

namespace OX::cli {

class OXInputRecording;

/// A pause of more than one and a half usual intervals.
struct RecordingGap {
  int afterImage = 0;
  std::int64_t lengthUs = 0;
  std::int64_t missing = 0;  ///< images missing, judged by the usual interval
};

/// Images of another size than their stream's, which a file camera can't replay.
struct OtherSize {
  std::optional<FrameSize> size;  ///< nothing when no camera has images of so many bytes
  std::int64_t bytes = 0;         ///< of each image
  int images = 0;
  int firstImage = 0;
};

struct StreamReport {
  OXVideoStream format;
  std::int64_t firstUs = 0;  ///< time stamps of the first and the last image
  std::int64_t lastUs = 0;
  double fps = 0;                    ///< mean; 0 with fewer than two images
  std::int64_t usualIntervalUs = 0;  ///< the median
  int notRising = 0;                 ///< images not later than the one before
  std::vector<RecordingGap> gaps;
  std::vector<int> cameras;  ///< the ids that occur, rising
  std::vector<OtherSize> otherSizes;
};

struct RecordingReport {
  std::string path;
  std::uintmax_t sizeBytes = 0;
  bool indexed = false;
  std::string recorder;  ///< the process that is still recording; empty when none is
  std::vector<StreamReport> streams;
  std::vector<OXVideoDamage> damage;
};

RecordingReport makeReport(const OXInputRecording& pRecording);

/// In the order in which they first occur.
std::vector<OtherSize> findOtherSizes(const OXInputRecording& pRecording, int pStream);

/// "640x480", or "9216 bytes" when no size has so many.
std::string sizeText(const OtherSize& pSize);

/// 0 when the difference does not fit into 64 bits, which the stamps of a file may cause.
std::int64_t stampDifference(std::int64_t pTo, std::int64_t pFrom);

/// The report as lines of text, and as one line of JSON.
std::string reportText(const RecordingReport& pReport, const OXTextStyle& pStyle);
std::string reportJson(const RecordingReport& pReport);

}  // namespace OX::cli
