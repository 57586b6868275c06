// Drawing never fails the work: the bar is written on a best-effort basis and at a bounded rate.
#include "terminal/progress.h"

#include <fmt/format.h>

#include <algorithm>

#include "terminal/interrupt.h"

namespace OX::cli {

OXProgress::OXProgress(OXOutput& pOutput, std::string pLabel, std::int64_t pTotal)
    : fOutput(pOutput),
      fLabel(std::move(pLabel)),
      fTotal(pTotal),
      fEnabled(pOutput.isTerminal()),
      fNext(std::chrono::steady_clock::now()) {}

OXProgress::~OXProgress() {
  // Leaves an empty line to the result that is printed next.
  if (fDrawn) fOutput.tryWrite("\r\x1b[K");
}

void OXProgress::update(std::int64_t pDone, const std::string& pRemark) {
  const auto now = std::chrono::steady_clock::now();
  if (!fEnabled || now < fNext) return;
  // Drawing each of a thousand images a second would cost more than reading them.
  fNext = now + std::chrono::milliseconds(100);
  fDrawn = true;
  fOutput.tryWrite("\r" + render(fLabel, pDone, fTotal, pRemark, fOutput.columns()) + "\x1b[K");
}

std::string OXProgress::render(const std::string& pLabel, std::int64_t pDone, std::int64_t pTotal,
                               const std::string& pRemark, int pColumns) {
  std::string line;
  if (pTotal > 0) {
    constexpr std::int64_t kWidth = 30;
    const double part =
        std::clamp(static_cast<double>(pDone) / static_cast<double>(pTotal), 0.0, 1.0);
    const auto full = static_cast<std::int64_t>(part * kWidth);
    line = fmt::format("{} [{:#<{}}{:.<{}}] {:3.0f} % {}/{} {}", pLabel, "", full, "",
                       kWidth - full, part * 100, pDone, pTotal, pRemark);
  } else {
    line = fmt::format("{} {} {}", pLabel, pDone, pRemark);
  }
  // One column less than the terminal has: a full line would wrap and scroll.
  return line.substr(0, static_cast<std::size_t>(std::max(1, pColumns - 1)));
}

std::function<void(int)> progressCallback(OXProgress& pProgress) {
  return [&pProgress](int pDone) {
    if (OXInterrupt::requested()) throw OXInterrupted();
    pProgress.update(pDone, "");
  };
}

}  // namespace OX::cli
