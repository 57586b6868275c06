// A file that is half written is worse than none: a failed write removes what it made.
#include "terminal/files.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>

#include "terminal/exitstatus.h"
#include "terminal/text.h"

namespace OX::cli {

namespace {

struct CloseFile {
  void operator()(std::FILE* pFile) const { std::fclose(pFile); }
};

[[noreturn]] void refuse(const std::string& pPath) {
  throw OXFailure(fmt::format("can't write {}: {}", printable(pPath), std::strerror(errno)));
}

}  // namespace

void writeFile(const std::string& pPath, std::string_view pBytes, OXOutput& pOut) {
  if (pPath == "-") {
    try {
      pOut.write(pBytes);
    } catch (const OXOutputClosed&) {
      throw OXFailure("standard output was closed before everything was written");
    }
    return;
  }
  std::unique_ptr<std::FILE, CloseFile> file(std::fopen(pPath.c_str(), "wb"));
  if (!file) refuse(pPath);
  const bool isWritten = std::fwrite(pBytes.data(), 1, pBytes.size(), file.get()) == pBytes.size();
  // A full disk may be reported only when buffers are flushed by the close.
  if (isWritten && std::fclose(file.release()) == 0) return;
  // Removing the file may overwrite errno, which says why the write failed.
  const int why = errno;
  std::error_code ignored;
  // Only a regular file: never a device, a pipe or a link to one.
  if (std::filesystem::symlink_status(pPath, ignored).type() == std::filesystem::file_type::regular)
    std::filesystem::remove(pPath, ignored);
  errno = why;
  refuse(pPath);
}

}  // namespace OX::cli
