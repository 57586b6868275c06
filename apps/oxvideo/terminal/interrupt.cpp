// The handler only sets a flag and writes to a pipe, both allowed in a signal handler. The pipe
// wakes a wait that has just begun, which the flag alone would miss.
#include "terminal/interrupt.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>

#include "terminal/exitstatus.h"

namespace OX::cli {

namespace {

std::atomic<int> signalThatCame{0};
static_assert(std::atomic<int>::is_always_lock_free, "the handler may only touch lock-free data");
// The handler writes a byte that is never read: it ends the current wait and all later ones.
int pipeEnds[2] = {-1, -1};

void onSignal(int pSignal) {
  // The interrupted code may be about to read errno.
  const int savedErrno = errno;
  signalThatCame.store(pSignal);
  const char byte = 1;
  [[maybe_unused]] const ssize_t written = ::write(pipeEnds[1], &byte, 1);
  errno = savedErrno;
}

void handle(int pSignal, int pFlags) {
  struct sigaction action = {};
  action.sa_handler = onSignal;
  sigemptyset(&action.sa_mask);
  // No SA_RESTART: a blocking open() must be interrupted too.
  action.sa_flags = pFlags;
  sigaction(pSignal, &action, nullptr);
}

bool isIgnored(int pSignal) {
  struct sigaction present = {};
  return sigaction(pSignal, nullptr, &present) == 0 && present.sa_handler == SIG_IGN;
}

}  // namespace

void OXInterrupt::install() {
  if (pipeEnds[0] < 0 && ::pipe2(pipeEnds, O_CLOEXEC | O_NONBLOCK) != 0)
    throw OXFailure("can't create the pipe for signals");
  // Reset by the first signal, so that a second one ends a program that is stuck.
  handle(SIGINT, static_cast<int>(SA_RESETHAND));
  handle(SIGTERM, static_cast<int>(SA_RESETHAND));
  // Not reset: a lost terminal sends it more than once, by the kernel and by the shell.
  if (!isIgnored(SIGHUP)) handle(SIGHUP, 0);
  std::signal(SIGPIPE, SIG_IGN);
}

bool OXInterrupt::requested() { return signalThatCame.load() != 0; }

int OXInterrupt::signalNumber() { return signalThatCame.load(); }

std::chrono::steady_clock::time_point OXInterrupt::momentAfter(double pSeconds) {
  using Clock = std::chrono::steady_clock;
  return Clock::now() +
         std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(pSeconds));
}

bool OXInterrupt::waitUntil(std::chrono::steady_clock::time_point pMoment) {
  using namespace std::chrono;
  while (!requested()) {
    const auto left = pMoment - steady_clock::now();
    if (left <= steady_clock::duration::zero()) return true;
    // Bounded because timespec and the conversion can't hold every duration.
    const auto bounded = std::min<nanoseconds>(left, hours(1));
    const timespec limit = {duration_cast<seconds>(bounded).count(),
                            (bounded % seconds(1)).count()};
    pollfd wake = {pipeEnds[0], POLLIN, 0};
    ::ppoll(&wake, pipeEnds[0] < 0 ? 0 : 1, &limit, nullptr);
  }
  return false;
}

}  // namespace OX::cli
