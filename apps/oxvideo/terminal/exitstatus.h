/// How the program ends, and the exceptions that decide it.
#pragma once

#include <stdexcept>
#include <string>

namespace OX::cli {

/// Exit statuses. A verb that a signal cut short ends with 128 + the signal's number (130 for
/// SIGINT); one that runs until it is stopped ends with kDone or kDoneWithLosses then.
enum ExitStatus : int {
  kDone = 0,
  kFailed = 1,
  kUsageError = 2,
  kDoneWithLosses = 3,  ///< the work is done, but frames were dropped or missing on the way
};

/// The arguments can't be meant: status 2. The text says what would be right.
class OXUsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The work can't be done: status 1.
class OXFailure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace OX::cli
