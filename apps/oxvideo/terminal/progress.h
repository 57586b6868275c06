/// A progress bar on a terminal; does nothing without one.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

#include "terminal/output.h"

namespace OX::cli {

class OXProgress {
 public:
  /// With pTotal 0 (unknown) a counter is shown instead of a bar. Borrows pOutput.
  OXProgress(OXOutput& pOutput, std::string pLabel, std::int64_t pTotal);
  /// Erases the bar.
  ~OXProgress();
  OXProgress(const OXProgress&) = delete;
  OXProgress& operator=(const OXProgress&) = delete;

  /// Draws at most ten times a second. pRemark is shown after the bar.
  void update(std::int64_t pDone, const std::string& pRemark);

  /// The text that update() draws, without a line end and shorter than pColumns. A narrow terminal
  /// gets a shorter bar, then no remark, then no bar: the numbers come first.
  static std::string render(const std::string& pLabel, std::int64_t pDone, std::int64_t pTotal,
                            const std::string& pRemark, int pColumns);

 private:
  OXOutput& fOutput;
  const std::string fLabel;
  const std::int64_t fTotal;
  const bool fEnabled;
  std::chrono::steady_clock::time_point fNext;
};

/// A callback that updates pProgress, and throws OXInterrupted after a signal. Borrows pProgress.
std::function<void(int pDone)> progressCallback(OXProgress& pProgress);

}  // namespace OX::cli
