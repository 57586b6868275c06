// System calls of a recording's file. Reads and writes are complete or failed: short ones are
// continued, interrupted ones repeated, and a torn write is cut off again, so that a file always
// ends after a whole frame.
#include "file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <system_error>

namespace OX::detail {
namespace {

std::string reasonOf(int pError) { return std::generic_category().message(pError); }

/// Writing beyond the process's limit on file sizes raises a signal that by default ends the
/// process. It is sent to the writing thread, which blocks it meanwhile and consumes it.
class FileSizeSignalGuard {
 public:
  FileSizeSignalGuard() {
    sigemptyset(&fSignal);
    sigaddset(&fSignal, SIGXFSZ);
    pthread_sigmask(SIG_BLOCK, &fSignal, &fBefore);
  }
  ~FileSizeSignalGuard() {
    // Blocked before: then the signal is the caller's to consume.
    if (sigismember(&fBefore, SIGXFSZ)) return;
    const timespec noWait{};
    sigtimedwait(&fSignal, nullptr, &noWait);
    pthread_sigmask(SIG_SETMASK, &fBefore, nullptr);
  }
  FileSizeSignalGuard(const FileSizeSignalGuard&) = delete;
  FileSizeSignalGuard& operator=(const FileSizeSignalGuard&) = delete;

 private:
  sigset_t fSignal{};
  sigset_t fBefore{};
};

// iovec has no const form; pwritev() only reads.
iovec vectorOf(Bytes pBytes) { return {const_cast<unsigned char*>(pBytes.data()), pBytes.size()}; }

}  // namespace

RecordingFile::~RecordingFile() { xClose(); }

void RecordingFile::xClose() {
  if (fDescriptor >= 0) ::close(fDescriptor);
  fDescriptor = -1;
}

bool RecordingFile::xFail(const std::string& pText) {
  fError = describe(pText);
  return false;
}

bool RecordingFile::xOpen(const std::string& pPath, int pFlags) {
  xClose();
  fPath = pPath;
  if (pPath.empty()) return xFail("the name is empty");
  if (pPath.find('\0') != std::string::npos) return xFail("the name contains a zero byte");
  // Without O_NONBLOCK, opening a FIFO would wait for its other end with the caller's locks held.
  fDescriptor = ::open(pPath.c_str(), pFlags | O_CLOEXEC | O_NONBLOCK, 0644);
  if (fDescriptor < 0) return xFail(reasonOf(errno));
  struct stat status {};
  if (::fstat(fDescriptor, &status) == 0 && S_ISREG(status.st_mode)) return true;
  xClose();
  return xFail("not a regular file");
}

bool RecordingFile::openForReading(const std::string& pPath) { return xOpen(pPath, O_RDONLY); }

bool RecordingFile::openForWriting(const std::string& pPath) {
  if (!xOpen(pPath, O_RDWR | O_CREAT | O_NOFOLLOW)) return false;
  if (xClearForWriting()) return true;
  xClose();
  return false;
}

bool RecordingFile::xClearForWriting() {
  // A file system without locks returns another error: then there is nothing to check.
  if (::flock(fDescriptor, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK)
    return xFail("another recorder is writing this file");
  // A new file is not truncated: file systems flush files that are truncated and refilled at once.
  if (getSize() == 0) return true;
  std::array<unsigned char, kFileMagic.size()> start{};
  if (!readAt(start.data(), start.size(), 0) || start != kFileMagic)
    return xFail("exists and is not an .oxv file; it was left unchanged");
  return ::ftruncate(fDescriptor, 0) == 0 || xFail(reasonOf(errno));
}

std::int64_t RecordingFile::getSize() const {
  struct stat status {};
  return ::fstat(fDescriptor, &status) == 0 ? status.st_size : -1;
}

bool RecordingFile::readAt(void* pTo, std::size_t pSize, std::uint64_t pOffset) {
  auto* to = static_cast<unsigned char*>(pTo);
  while (pSize > 0) {
    const ssize_t got = ::pread(fDescriptor, to, pSize, static_cast<off_t>(pOffset));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0)
      return xFail("at byte " + std::to_string(pOffset) + ": " +
                   (got == 0 ? "the file ends here" : reasonOf(errno)));
    to += got;
    pSize -= static_cast<std::size_t>(got);
    pOffset += static_cast<std::uint64_t>(got);
  }
  return true;
}

bool RecordingFile::writeAt(Bytes pFirst, Bytes pSecond, std::uint64_t pOffset) {
  const FileSizeSignalGuard guard;
  // A torn frame at the end would cost a scan when the file is read.
  if (xWriteAll(pFirst, pSecond, pOffset)) return true;
  if (::ftruncate(fDescriptor, static_cast<off_t>(pOffset)) != 0)
    fError += "; the partial frame could not be removed";
  return false;
}

bool RecordingFile::xWriteAll(Bytes pFirst, Bytes pSecond, std::uint64_t pOffset) {
  while (!pFirst.empty() || !pSecond.empty()) {
    const std::array<iovec, 2> blocks{vectorOf(pFirst), vectorOf(pSecond)};
    const ssize_t done =
        ::pwritev(fDescriptor, blocks.data(), blocks.size(), static_cast<off_t>(pOffset));
    if (done < 0 && errno == EINTR) continue;
    if (done <= 0)
      return xFail("at byte " + std::to_string(pOffset) + ": " +
                   (done == 0 ? "the system wrote nothing" : reasonOf(errno)));
    // A short write is no failure yet: the next write fails with the reason.
    const auto written = static_cast<std::size_t>(done);
    const std::size_t ofFirst = std::min(written, pFirst.size());
    pFirst = pFirst.subspan(ofFirst);
    pSecond = pSecond.subspan(written - ofFirst);
    pOffset += written;
  }
  return true;
}

std::uint64_t RecordingFile::nextData(std::uint64_t pOffset) const {
  const off_t at = ::lseek(fDescriptor, static_cast<off_t>(pOffset), SEEK_DATA);
  if (at >= 0) return static_cast<std::uint64_t>(at);
  // ENXIO: only a hole follows. Any other error: the file system cannot tell, so all may be data.
  return errno == ENXIO ? static_cast<std::uint64_t>(std::max<std::int64_t>(getSize(), 0))
                        : pOffset;
}

}  // namespace OX::detail
