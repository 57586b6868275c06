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

OXProgress::~OXProgress() { OXOutput::erasePassing(); }

void OXProgress::update(std::int64_t pDone, const std::string& pRemark) {
  const auto now = std::chrono::steady_clock::now();
  if (!fEnabled || now < fNext) return;
  // Drawing each of a thousand images a second would cost more than reading them.
  fNext = now + std::chrono::milliseconds(100);
  fOutput.showPassing(render(fLabel, pDone, fTotal, pRemark, fOutput.columns()));
}

std::string OXProgress::render(const std::string& pLabel, std::int64_t pDone, std::int64_t pTotal,
                               const std::string& pRemark, int pColumns) {
  // One column less than the terminal has: a full line would wrap and scroll.
  const auto columns = static_cast<std::size_t>(std::max(1, pColumns - 1));
  const std::string remark = pRemark.empty() ? "" : " " + pRemark;
  if (pTotal <= 0) return fmt::format("{} {}{}", pLabel, pDone, remark).substr(0, columns);

  constexpr std::size_t kWidest = 30, kNarrowest = 8, kFrame = 3;  // " []"
  const double part =
      std::clamp(static_cast<double>(pDone) / static_cast<double>(pTotal), 0.0, 1.0);
  std::string numbers = fmt::format(" {:3.0f} % {}/{}", part * 100, pDone, pTotal);
  const std::size_t needed = pLabel.size() + kFrame + kNarrowest + numbers.size();
  if (needed + remark.size() <= columns) numbers += remark;
  std::string bar;
  if (needed <= columns) {
    const std::size_t width = std::min(kWidest, columns - pLabel.size() - kFrame - numbers.size());
    const auto full = static_cast<std::size_t>(part * static_cast<double>(width));
    bar = fmt::format(" [{}{}]", std::string(full, '#'), std::string(width - full, '.'));
  }
  return (pLabel + bar + numbers).substr(0, columns);
}

std::function<void(int)> progressCallback(OXProgress& pProgress) {
  return [&pProgress](int pDone) {
    if (OXInterrupt::requested()) throw OXInterrupted();
    pProgress.update(pDone, "");
  };
}

}  // namespace OX::cli
