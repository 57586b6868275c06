/// The threads that wait for the requests of all connections of a server, and run them.
#pragma once

#include <boost/shared_ptr.hpp>
#include <memory>

#include "transport/poller.h"

namespace OX::wire {

/// A thread that is told of a request runs the call itself, which may take for ever; before it
/// does, it makes sure that another one waits. So the usual call costs one wake-up, and a call that
/// waits keeps none from being read. Thread-safe.
class PollerThreads {
 public:
  PollerThreads();
  ~PollerThreads();
  PollerThreads(const PollerThreads&) = delete;
  PollerThreads& operator=(const PollerThreads&) = delete;

  const boost::shared_ptr<Poller>& getPoller() const;

  /// Before a thread does what may take long: starts another unless one waits. False when none
  /// waits and none can be started.
  bool ensureWaiting();

  /// Ends the threads without waiting for them: one that runs a call ends after it.
  void stop();

 private:
  // Shared with the threads, since one that runs a call may outlive the server.
  struct State;
  static void xRun(const std::shared_ptr<State>& pState);

  const std::shared_ptr<State> fState;
};

}  // namespace OX::wire
