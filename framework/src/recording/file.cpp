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

/// Writing beyond the limit of a file's size raises a signal whose default ends the process.
/// It goes to the writing thread, which therefore holds it back and takes it away unseen.
class FileSizeSignalGuard {
 public:
  FileSizeSignalGuard() {
    sigemptyset(&fSignal);
    sigaddset(&fSignal, SIGXFSZ);
    pthread_sigmask(SIG_BLOCK, &fSignal, &fBefore);
  }
  ~FileSizeSignalGuard() {
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

iovec vectorOf(Bytes pBytes) { return {const_cast<unsigned char*>(pBytes.data()), pBytes.size()}; }

}  // namespace

OXVideoFile::~OXVideoFile() { xClose(); }

void OXVideoFile::xClose() {
  if (fDescriptor >= 0) ::close(fDescriptor);
  fDescriptor = -1;
}

bool OXVideoFile::xFail(const std::string& pText) {
  fError = describe(pText);
  return false;
}

bool OXVideoFile::xOpen(const std::string& pPath, int pFlags) {
  xClose();
  fPath = pPath;
  if (pPath.empty()) return xFail("no file is named");
  if (pPath.find('\0') != std::string::npos) return xFail("the name holds a zero byte");
  // A FIFO without a partner would wait inside open(), with the caller's locks held.
  fDescriptor = ::open(pPath.c_str(), pFlags | O_CLOEXEC | O_NONBLOCK, 0644);
  if (fDescriptor < 0) return xFail(reasonOf(errno));
  struct stat status {};
  if (::fstat(fDescriptor, &status) == 0 && S_ISREG(status.st_mode)) return true;
  xClose();
  return xFail("not a regular file");
}

bool OXVideoFile::openForReading(const std::string& pPath) { return xOpen(pPath, O_RDONLY); }

bool OXVideoFile::openForWriting(const std::string& pPath) {
  if (!xOpen(pPath, O_RDWR | O_CREAT | O_NOFOLLOW)) return false;
  if (xClearForWriting()) return true;
  xClose();
  return false;
}

bool OXVideoFile::xClearForWriting() {
  // Where a file system has no locks there is nothing to be asked.
  if (::flock(fDescriptor, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK)
    return xFail("another recorder is writing this file");
  // A new file is not emptied: file systems write out at once what was emptied and filled again.
  if (getSize() == 0) return true;
  std::array<unsigned char, kFileMagic.size()> start{};
  if (!readAt(start.data(), start.size(), 0) || start != kFileMagic)
    return xFail("exists and is not an .oxv file, it stays as it is");
  return ::ftruncate(fDescriptor, 0) == 0 || xFail(reasonOf(errno));
}

std::int64_t OXVideoFile::getSize() const {
  struct stat status {};
  return ::fstat(fDescriptor, &status) == 0 ? status.st_size : -1;
}

bool OXVideoFile::readAt(void* pTo, std::size_t pSize, std::uint64_t pOffset) {
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

bool OXVideoFile::writeAt(Bytes pFirst, Bytes pSecond, std::uint64_t pOffset) {
  const FileSizeSignalGuard guard;
  if (xWriteAll(pFirst, pSecond, pOffset)) return true;
  if (::ftruncate(fDescriptor, static_cast<off_t>(pOffset)) != 0)
    fError += "; the torn end could not be cut off";
  return false;
}

bool OXVideoFile::xWriteAll(Bytes pFirst, Bytes pSecond, std::uint64_t pOffset) {
  while (!pFirst.empty() || !pSecond.empty()) {
    const std::array<iovec, 2> blocks{vectorOf(pFirst), vectorOf(pSecond)};
    const ssize_t done =
        ::pwritev(fDescriptor, blocks.data(), blocks.size(), static_cast<off_t>(pOffset));
    if (done < 0 && errno == EINTR) continue;
    if (done <= 0)
      return xFail("at byte " + std::to_string(pOffset) + ": " +
                   (done == 0 ? "nothing more is written" : reasonOf(errno)));
    // A short write is not yet a failure: what stopped it shows at the next one.
    const auto written = static_cast<std::size_t>(done);
    const std::size_t ofFirst = std::min(written, pFirst.size());
    pFirst = pFirst.subspan(ofFirst);
    pSecond = pSecond.subspan(written - ofFirst);
    pOffset += written;
  }
  return true;
}

std::uint64_t OXVideoFile::nextData(std::uint64_t pOffset) const {
  const off_t at = ::lseek(fDescriptor, static_cast<off_t>(pOffset), SEEK_DATA);
  if (at >= 0) return static_cast<std::uint64_t>(at);
  // ENXIO: only a hole follows. Anything else: the file system can't tell, all may be data.
  return errno == ENXIO ? static_cast<std::uint64_t>(std::max<std::int64_t>(getSize(), 0))
                        : pOffset;
}

}  // namespace OX::detail
