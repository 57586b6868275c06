/// A regular file, read and written at given offsets; every operation is complete or fails.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "format.h"

namespace OX::detail {

/// Owned by one reader or writer; one thread. Operations that fail set the error text, which
/// starts with the path; they never throw for what the file system does.
class RecordingFile {
 public:
  RecordingFile() = default;
  ~RecordingFile();
  RecordingFile(const RecordingFile&) = delete;
  RecordingFile& operator=(const RecordingFile&) = delete;

  bool openForReading(const std::string& pPath);

  /// Creates the file, or truncates an existing recording. Refuses anything that is not a regular
  /// file, a symbolic link, a file that another recorder has open, and a file that is not a
  /// recording; these stay unchanged.
  bool openForWriting(const std::string& pPath);

  /// The current size in bytes, -1 when it cannot be determined.
  std::int64_t getSize() const;

  /// False also when the file ends too early.
  bool readAt(void* pTo, std::size_t pSize, std::uint64_t pOffset);

  /// Writes two blocks, one after the other. When not all could be written, the file is truncated
  /// to pOffset.
  bool writeAt(Bytes pFirst, Bytes pSecond, std::uint64_t pOffset);

  /// Offset of the next byte, from pOffset on, that is not in a hole of a sparse file; the file's
  /// size when there is none.
  std::uint64_t nextData(std::uint64_t pOffset) const;

  const std::string& getError() const { return fError; }
  /// Path, ": " and the text.
  std::string describe(const std::string& pText) const { return fPath + ": " + pText; }

 private:
  bool xOpen(const std::string& pPath, int pFlags);
  bool xClearForWriting();
  bool xFail(const std::string& pText);
  bool xWriteAll(Bytes pFirst, Bytes pSecond, std::uint64_t pOffset);
  void xClose();

  std::string fPath;
  std::string fError;
  int fDescriptor = -1;
};

}  // namespace OX::detail
