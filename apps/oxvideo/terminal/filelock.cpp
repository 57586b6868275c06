// Tries to share the lock: that fails only while somebody else holds it for himself. It is given
// back at once, with the descriptor.
#include "terminal/filelock.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <sstream>

namespace OX::cli {

namespace {

std::string nameOfOwner(const struct stat& pFile) {
  // A line: number, FLOCK, ADVISORY, WRITE, process, major:minor:inode, range.
  const std::string wanted =
      fmt::format("{:02x}:{:02x}:{}", major(pFile.st_dev), minor(pFile.st_dev), pFile.st_ino);
  std::ifstream locks("/proc/locks");
  for (std::string line; std::getline(locks, line);) {
    std::istringstream words(line);
    std::string number, kind, mode, access, process, place;
    if (!(words >> number >> kind >> mode >> access >> process >> place) || place != wanted)
      continue;
    std::string name;
    std::getline(std::ifstream("/proc/" + process + "/comm"), name);
    return fmt::format("process {}{}", process, name.empty() ? "" : " (" + name + ")");
  }
  return "another process";
}

}  // namespace

std::string lockOwner(const std::string& pPath) {
  // A pipe must not be waited for.
  const int file = ::open(pPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (file < 0) return {};
  struct stat status {};
  const bool isLocked = ::fstat(file, &status) == 0 && S_ISREG(status.st_mode) &&
                        ::flock(file, LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
  std::string owner = isLocked ? nameOfOwner(status) : "";
  ::close(file);
  return owner;
}

}  // namespace OX::cli
