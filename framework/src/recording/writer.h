/// The writing half of OXVideo: header, frames one after the other, index at the end.
#pragma once

#include <string>
#include <vector>

#include "file.h"
#include "format.h"

namespace OX::detail {

/// After every call the file can be read up to its last whole frame, even if the process crashes.
/// Owned by an OXVideo; one thread only. Failures set the error text.
class RecordingWriter {
 public:
  bool open(const std::string& pPath, unsigned int pPeriod,
            const std::vector<streamHeader>& pStreams);

  /// Fills in what belongs to the file (stream, sequence, size, checksum) and appends the frame.
  /// False for an empty frame, which is refused, and from the first failure on; see hasFailed().
  bool append(FrameHeader pHeader, Bytes pPixels);

  /// Writes the index. Called once, at the end.
  bool finish();

  /// After a failure nothing is written except the index.
  bool hasFailed() const { return fHasFailed; }
  std::size_t getNumberOfFrames() const { return fIndex.size(); }
  const std::string& getError() const { return fError; }

 private:
  bool xFail(const std::string& pText);

  RecordingFile fFile;
  FileHeader fHeader;
  std::vector<IndexEntry> fIndex;
  std::uint64_t fEnd = 0;  ///< where the next frame goes
  std::string fError;
  bool fHasFailed = false;
};

}  // namespace OX::detail
