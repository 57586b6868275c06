/// The writing half of OXVideo: header, frames one behind the other, index at the end.
#pragma once

#include <string>
#include <vector>

#include "file.h"
#include "format.h"

namespace OX::detail {

/// Every call leaves a file that reads back to its last whole frame, whatever ends the process.
/// Owned by an OXVideo; one thread. Failures set the error text.
class OXVideoWriter {
 public:
  bool open(const std::string& pPath, unsigned int pPeriod,
            const std::vector<streamHeader>& pStreams);

  /// Fills in what belongs to the file (stream, sequence, size, checksum) and appends the frame.
  /// False for an empty frame, which is refused, and for the first failure; see hasFailed().
  bool append(FrameHeader pHeader, Bytes pPixels);

  /// Writes the index. Called once, at the end.
  bool finish();

  /// After a failure nothing more is written but the index.
  bool hasFailed() const { return fHasFailed; }
  std::size_t getNumberOfFrames() const { return fIndex.size(); }
  const std::string& getError() const { return fError; }

 private:
  bool xFail(const std::string& pText);

  OXVideoFile fFile;
  FileHeader fHeader;
  std::vector<IndexEntry> fIndex;
  std::uint64_t fEnd = 0;  ///< where the next frame goes
  std::string fError;
  bool fHasFailed = false;
};

}  // namespace OX::detail
