// The oxbroker program: serves until SIGINT, SIGTERM or SIGHUP, which all end it in order, so that
// recordings are closed. A SIGHUP that was ignored at the start (nohup) stays ignored.
#include <pthread.h>

#include <csignal>
#include <iostream>

#include "daemon.h"
#include "options.h"

namespace {

bool isIgnored(int pSignal) {
  struct sigaction present = {};
  return ::sigaction(pSignal, nullptr, &present) == 0 && present.sa_handler == SIG_IGN;
}

}  // namespace

int main(int pCount, char** pArguments) {
  // The reader of the outputs may end before the daemon does (`oxbroker 2>&1 | head`).
  std::signal(SIGPIPE, SIG_IGN);
  int status = OX::daemon::kDone;
  const auto options = OX::daemon::parseOptions(pCount, pArguments, std::cout, std::cerr, status);
  if (!options) return status;
  // Blocked before the first thread starts, so that all threads inherit it and sigwait() gets them.
  sigset_t ends;
  sigemptyset(&ends);
  sigaddset(&ends, SIGINT);
  sigaddset(&ends, SIGTERM);
  if (!isIgnored(SIGHUP)) sigaddset(&ends, SIGHUP);
  pthread_sigmask(SIG_BLOCK, &ends, nullptr);
  return OX::daemon::serve(*options, std::cout, std::cerr, [&ends] {
    int signal = 0;
    sigwait(&ends, &signal);
    // A second signal ends the program at once, in case a call never returns. Not SIGHUP, which
    // a lost terminal sends more than once: by the kernel, and by the shell.
    sigdelset(&ends, SIGHUP);
    pthread_sigmask(SIG_UNBLOCK, &ends, nullptr);
  });
}
