#include <pthread.h>

#include <csignal>
#include <iostream>

#include "daemon.h"
#include "options.h"

int main(int pCount, char** pArguments) {
  int status = OX::daemon::kDone;
  const auto options = OX::daemon::parseOptions(pCount, pArguments, std::cout, std::cerr, status);
  if (!options) return status;
  // Blocked before the first thread is made, so that all threads inherit it and sigwait gets them.
  sigset_t ends;
  sigemptyset(&ends);
  sigaddset(&ends, SIGINT);
  sigaddset(&ends, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &ends, nullptr);
  return OX::daemon::serve(*options, std::cout, std::cerr, [&ends] {
    int signal = 0;
    sigwait(&ends, &signal);
    // A second one ends the program at once, should a call not want to end.
    pthread_sigmask(SIG_UNBLOCK, &ends, nullptr);
  });
}
