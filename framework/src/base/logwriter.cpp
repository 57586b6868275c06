// The thread takes the whole queue at once and writes without the lock. It calls the system itself:
// stdio's lock on standard error would make everyone else who prints there wait for a blocked
// write, and exit() too.
#include "logwriter.h"

#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <spdlog/details/log_msg.h>
#include <spdlog/details/os.h>
#include <spdlog/pattern_formatter.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>
#include <system_error>
#include <utility>

#include <oxframework/oxlog.h>

namespace ki::log {
namespace {

constexpr char kPattern[] = "%Y-%m-%d %H:%M:%S.%e %^%l%$ %v";
constexpr std::string_view kPlain = "\033[m";

spdlog::level::level_enum levelName(int pLevel) {
  if (pLevel <= kFatal) return spdlog::level::critical;
  if (pLevel == kError) return spdlog::level::err;
  if (pLevel == kWarning) return spdlog::level::warn;
  return pLevel == kInfo ? spdlog::level::info : spdlog::level::debug;
}

std::string_view colorOf(int pLevel) {
  if (pLevel <= kFatal) return "\033[1m\033[41m";    // bold on red
  if (pLevel == kError) return "\033[31m\033[1m";    // bold red
  if (pLevel == kWarning) return "\033[33m\033[1m";  // bold yellow
  return pLevel == kInfo ? "\033[32m" : "\033[36m";  // green, cyan
}

/// While it lives, blocks every signal for the calling thread except those that a fault of the
/// thread itself raises. A thread started in that time inherits the mask: the program's handlers
/// don't run on it, nor does the one of SIGABRT, which waits for it; and a reader that has gone is
/// an error of its write instead of a SIGPIPE.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t signals;
    ::sigfillset(&signals);
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS})
      ::sigdelset(&signals, fault);
    ::pthread_sigmask(SIG_SETMASK, &signals, &fBefore);
  }
  ~SignalsBlocked() { ::pthread_sigmask(SIG_SETMASK, &fBefore, nullptr); }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  sigset_t fBefore;
};

bool writeAll(int pFile, std::string_view pBytes) {
  while (!pBytes.empty()) {
    const ssize_t written = ::write(pFile, pBytes.data(), pBytes.size());
    if (written >= 0) {
      pBytes.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno == EAGAIN) {  // another user of the descriptor made it non-blocking
      pollfd room{pFile, POLLOUT, 0};
      ::poll(&room, 1, -1);
    } else if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

}  // namespace

LogWriter::LogWriter(int pFile) : LogWriter(pFile, Limits()) {}

LogWriter::LogWriter(int pFile, const Limits& pLimits)
    : fFile(pFile),
      fLimits(pLimits),
      fColors(::isatty(pFile) != 0 && spdlog::details::os::is_color_terminal()),
      fFormatter(std::make_unique<spdlog::pattern_formatter>(kPattern)) {}

LogWriter::~LogWriter() {
  {
    const OX::detail::MutexLock hold(fGuard);
    fStopping = true;
    fFilled.notify_one();
  }
  if (fThread.joinable()) fThread.join();
}

void LogWriter::write(int pLevel, std::string&& pText) noexcept {
  const OX::detail::MutexLock hold(fGuard);
  ++fReceived;
  try {
    const std::size_t size = pText.size();
    const bool room = fQueue.size() < fLimits.records && fQueuedBytes + size <= fLimits.bytes;
    if (room || fQueue.empty()) {
      fQueue.push_back({spdlog::log_clock::now(), pLevel, std::move(pText)});
      fQueuedBytes += size;
    } else {
      ++fDropped;
    }
  } catch (const std::bad_alloc&) {
    ++fDropped;
  }
  xStart();
  fFilled.notify_one();
}

void LogWriter::xStart() {
  if (fThread.joinable()) return;
  try {
    const SignalsBlocked blocked;
    fThread = std::thread(&LogWriter::xRun, this);
  } catch (const std::exception&) {  // no thread or no memory now; the next record tries again
  }
}

void LogWriter::xRun() noexcept {
  fThreadId = ::gettid();
  std::vector<Line> lines;       // what is being written; changes places with the queue
  std::uint64_t unreported = 0;  // dropped, and no record says so yet
  OX::detail::MutexLock hold(fGuard);
  for (;;) {
    fFilled.wait(hold.native(), [this]() OX_REQUIRES(fGuard) {
      return !fQueue.empty() || fDropped > 0 || fStopping;
    });
    if (fQueue.empty() && fDropped == 0) return;
    lines.swap(fQueue);
    fQueuedBytes = 0;
    // These found the queue full, so their place is after all that was in it.
    const std::uint64_t dropped = std::exchange(fDropped, 0);
    hold.unlock();
    for (const Line& line : lines)
      if (!xPut(line)) ++unreported;
    unreported += dropped;
    if (unreported > 0 && xPutCount(unreported)) unreported = 0;
    fDone += lines.size() + dropped;
    lines.clear();
    hold.lock();
  }
}

/// False when it could not be written, or not as a whole.
bool LogWriter::xPut(const Line& pLine) noexcept {
  try {
    const spdlog::details::log_msg message(pLine.time, {}, {}, levelName(pLine.level), pLine.text);
    spdlog::memory_buf_t formatted;
    fFormatter->format(message, formatted);
    const std::string_view bytes(formatted.data(), formatted.size());
    if (!fColors) return writeAll(fFile, bytes);
    const std::size_t begin = message.color_range_start, end = message.color_range_end;
    std::string colored;
    colored.append(bytes.substr(0, begin)).append(colorOf(pLine.level));
    colored.append(bytes.substr(begin, end - begin)).append(kPlain).append(bytes.substr(end));
    return writeAll(fFile, colored);
  } catch (const std::exception&) {
    return false;
  }
}

bool LogWriter::xPutCount(std::uint64_t pDropped) noexcept {
  try {
    return xPut({spdlog::log_clock::now(), kWarning,
                 "ox.log write: " + std::to_string(pDropped) + " records dropped"});
  } catch (const std::bad_alloc&) {
    return false;
  }
}

// Looks again and again, since nothing that wakes a waiter is allowed in a signal handler. By the
// system's time, not OXClock's: a test's clock must not keep a process from ending.
bool LogWriter::awaitWritten(std::chrono::milliseconds pLimit) const noexcept {
  constexpr timespec kPause{0, 1000000};
  const std::uint64_t received = fReceived.load();
  const auto deadline = std::chrono::steady_clock::now() + pLimit;
  while (fDone.load() < received) {
    // The thread itself is ending the process: nobody would write any more.
    if (fThreadId.load() == ::gettid()) return false;
    if (std::chrono::steady_clock::now() >= deadline) return false;
    ::nanosleep(&kPause, nullptr);
  }
  return true;
}

}  // namespace ki::log
