// Writes go straight to the descriptor: buffered streams would report a full disk or a closed pipe
// only at exit, if at all.
#include "terminal/output.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "terminal/exitstatus.h"

namespace OX::cli {

namespace {

// Where a line is shown in passing; -1: nowhere. One for the process, as the terminal is.
int passing = -1;

}  // namespace

void reserveStandardDescriptors() {
  for (const int descriptor : {0, 1, 2})
    // The lowest free number is taken, which is this one; with the wrong access, so that use fails.
    if (::fcntl(descriptor, F_GETFD) < 0)
      ::open("/dev/null", descriptor == 0 ? O_WRONLY : O_RDONLY);
}

void OXOutput::showPassing(std::string_view pText) {
  passing = -1;
  tryWrite("\r" + std::string(pText) + "\x1b[K");
  passing = fDescriptor;
}

void OXOutput::erasePassing() {
  if (passing < 0) return;
  OXOutput output(passing);
  // First, or writing would erase again.
  passing = -1;
  output.tryWrite("\r\x1b[K");
}

void OXOutput::write(std::string_view pBytes) {
  // Text for a file or a pipe leaves the line on the terminal alone.
  if (passing >= 0 && isTerminal()) erasePassing();
  while (!pBytes.empty()) {
    const ssize_t written = ::write(fDescriptor, pBytes.data(), pBytes.size());
    if (written >= 0) {
      pBytes.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno == EPIPE) {
      throw OXOutputClosed();
    } else if (errno != EINTR) {
      const bool isClosed = errno == EBADF;
      throw OXFailure("can't write " + fName + ": " +
                      (isClosed ? "it is closed" : std::strerror(errno)));
    }
  }
}

void OXOutput::line(std::string_view pText) {
  // One write for the whole line, so that lines of several processes don't mix.
  std::string whole(pText);
  whole += '\n';
  write(whole);
}

void OXOutput::tryWrite(std::string_view pBytes) noexcept {
  try {
    write(pBytes);
  } catch (const std::exception&) {
    return;
  }
}

bool OXOutput::isTerminal() const { return ::isatty(fDescriptor) == 1; }

int OXOutput::columns() const {
  winsize size = {};
  if (::ioctl(fDescriptor, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
  return 80;
}

}  // namespace OX::cli
