/// A bar on a terminal for work that takes a while; nothing where there is no terminal.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

#include "terminal/output.h"

namespace OX::cli {

class OXProgress {
 public:
  /// pTotal 0: it isn't known how much there is, a counter is shown instead of a bar.
  /// pOutput is borrowed for the life of this.
  OXProgress(OXOutput& pOutput, std::string pLabel, std::int64_t pTotal);
  /// Takes the bar off the screen.
  ~OXProgress();
  OXProgress(const OXProgress&) = delete;
  OXProgress& operator=(const OXProgress&) = delete;

  /// Draws, at most ten times a second. pRemark stands behind the bar.
  void update(std::int64_t pDone, const std::string& pRemark);

  /// The text of one state, without line end: what update() draws.
  static std::string render(const std::string& pLabel, std::int64_t pDone, std::int64_t pTotal,
                            const std::string& pRemark, int pColumns);

 private:
  OXOutput& fOutput;
  const std::string fLabel;
  const std::int64_t fTotal;
  const bool fEnabled;
  bool fDrawn = false;
  std::chrono::steady_clock::time_point fNext;
};

/// Draws pProgress at each call, and throws OXInterrupted once a signal has come. Borrows it.
std::function<void(int pDone)> progressCallback(OXProgress& pProgress);

}  // namespace OX::cli
