/// A descriptor of a regular file with reads and writes at a place, complete or failed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "format.h"

namespace OX::detail {

/// Owned by one reader or writer; one thread. Operations that fail set the error text, which
/// starts with the path; they never throw for what the file system does.
class OXVideoFile {
 public:
  OXVideoFile() = default;
  ~OXVideoFile();
  OXVideoFile(const OXVideoFile&) = delete;
  OXVideoFile& operator=(const OXVideoFile&) = delete;

  bool openForReading(const std::string& pPath);

  /// Makes the file or empties the one that stands there. Refuses, with the file as it was: what
  /// is not a regular file, a symbolic link, a file that another recorder has open, and one whose
  /// content is not a recording.
  bool openForWriting(const std::string& pPath);

  /// Size at this moment, -1 when it can't be had.
  std::int64_t getSize() const;

  /// False also when the file ends before.
  bool readAt(void* pTo, std::size_t pSize, std::uint64_t pOffset);

  /// Writes two blocks, one behind the other. When not all of it could be written the file is cut
  /// back to pOffset.
  bool writeAt(Bytes pFirst, Bytes pSecond, std::uint64_t pOffset);

  /// The next byte from pOffset on that is not in a hole of a sparse file; the file's size when
  /// there is none.
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
