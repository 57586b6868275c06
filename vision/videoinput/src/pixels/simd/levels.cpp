// Highway dispatches to the best target of this processor at each call; the choice of a level
// narrows that down for the whole process. The plain loops are no target of Highway, so they are
// chosen by a flag of their own, which every call of a kernel reads.
#include "levels.h"

#include <algorithm>
#include <atomic>

#include "vectortargets.h"
// After the targets.
#include <hwy/highway.h>

namespace OX::kernels {
namespace {

constexpr const char* kPlain = "plain";

std::atomic<bool> gUsesPlainLoops{false};

/// The vector targets of this build and this processor, best first.
std::vector<int64_t> vectorTargets() {
  std::vector<int64_t> targets = hwy::SupportedAndGeneratedTargets();
  std::erase_if(targets, [](int64_t target) { return target > HWY_SSE4; });
  return targets;
}

/// Sets the targets that calls of kernels choose from; 0 means all that the processor has.
void chooseTargets(int64_t pTargets) {
  const int64_t all = hwy::SupportedTargets();
  hwy::GetChosenTarget().Update(pTargets == 0 ? all : pTargets);
}

}  // namespace

std::vector<std::string> levels() {
  std::vector<std::string> names;
  for (int64_t target : vectorTargets()) names.emplace_back(hwy::TargetName(target));
  names.emplace_back(kPlain);
  std::reverse(names.begin(), names.end());
  return names;
}

bool useLevel(const std::string& pName) {
  const std::vector<int64_t> targets = vectorTargets();
  const auto wanted = std::find_if(targets.begin(), targets.end(), [&](int64_t target) {
    return pName == hwy::TargetName(target);
  });
  if (wanted == targets.end() && pName != kPlain && !pName.empty()) return false;
  chooseTargets(wanted == targets.end() ? 0 : *wanted);
  gUsesPlainLoops = pName == kPlain;
  return true;
}

bool usesPlainLoops() { return gUsesPlainLoops; }

}  // namespace OX::kernels
