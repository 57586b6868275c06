// The oxbroker program: serves until SIGINT or SIGTERM.
#include <pthread.h>

#include <csignal>
#include <iostream>

#include "daemon.h"
#include "options.h"

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
  pthread_sigmask(SIG_BLOCK, &ends, nullptr);
  return OX::daemon::serve(*options, std::cout, std::cerr, [&ends] {
    int signal = 0;
    sigwait(&ends, &signal);
    // A second signal ends the program at once, in case a call never returns.
    pthread_sigmask(SIG_UNBLOCK, &ends, nullptr);
  });
}
