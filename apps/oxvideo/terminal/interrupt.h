/// Polling for SIGINT, SIGTERM and SIGHUP: loops ask, so that every verb returns normally and
/// releases what it holds.
#pragma once

#include <chrono>
#include <stdexcept>

namespace OX::cli {

/// Thrown by work that a signal interrupts.
class OXInterrupted : public std::runtime_error {
 public:
  OXInterrupted() : std::runtime_error("interrupted") {}
};

/// One per process, as signals are. Thread-safe.
class OXInterrupt {
 public:
  /// After this the first SIGINT, SIGTERM or SIGHUP only sets requested(); a second SIGINT or
  /// SIGTERM ends the process as usual. A SIGHUP that was ignored before (nohup) stays ignored.
  /// SIGPIPE is ignored: writing to a closed pipe fails with an error instead.
  static void install();

  static bool requested();
  /// The signal received, or 0.
  static int signalNumber();

  /// The moment at which pSeconds from now are over.
  static std::chrono::steady_clock::time_point momentAfter(double pSeconds);

  /// Waits until the moment and returns true; returns false at once on a signal.
  static bool waitUntil(std::chrono::steady_clock::time_point pMoment);

  /// The exit status of a verb that was cut short: 128 + the signal number.
  static int status() { return 128 + signalNumber(); }
};

}  // namespace OX::cli
