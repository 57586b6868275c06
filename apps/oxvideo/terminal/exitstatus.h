/// Exit statuses and the exceptions that lead to them.
#pragma once

#include <stdexcept>
#include <string>

namespace OX::cli {

/// A verb that a signal cuts short exits with 128 + the signal number (130 for SIGINT); one that
/// runs until stopped exits with kDone or kDoneWithLosses.
enum ExitStatus : int {
  kDone = 0,
  kFailed = 1,
  kUsageError = 2,
  kDoneWithLosses = 3,  ///< done, but frames were dropped or missing
};

/// Invalid arguments: status 2. The text says what is allowed.
class OXUsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The work failed: status 1.
class OXFailure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace OX::cli
