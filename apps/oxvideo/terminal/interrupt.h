/// SIGINT and SIGTERM as a question that loops ask, so that every verb ends by its own way out and
/// gives back what it holds.
#pragma once

#include <chrono>
#include <stdexcept>

namespace OX::cli {

/// Work that a signal has ended in the middle.
class OXInterrupted : public std::runtime_error {
 public:
  OXInterrupted() : std::runtime_error("interrupted") {}
};

/// One per process, as signals are. Thread-safe.
class OXInterrupt {
 public:
  /// From now on the first SIGINT or SIGTERM only sets requested(); the second one ends the process
  /// as usual. SIGPIPE is ignored: a closed pipe is an error of the write.
  static void install();

  static bool requested();
  /// The signal that came, 0 before.
  static int signalNumber();

  /// Waits, and answers true, until the moment has come; false at once when a signal has.
  static bool waitUntil(std::chrono::steady_clock::time_point pMoment);

  /// What a verb that was cut short ends with: 128 + the signal's number.
  static int status() { return 128 + signalNumber(); }
};

}  // namespace OX::cli
