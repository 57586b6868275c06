// A generation tells a release of what a client was given last from a late or a second one.
#include "slots.h"

#include <cstddef>
#include <limits>
#include <utility>

namespace OX {

std::vector<Slots::Slot> Slots::take(std::size_t pCount) {
  const detail::MutexLock hold(fGuard);
  std::vector<Slot> result;
  for (std::size_t i = 0; i < fSlots.size() && result.size() < pCount; ++i)
    if (!fSlots[i].isTaken) result.push_back({static_cast<int>(i), 0});
  if (result.size() < pCount) return {};
  for (Slot& slot : result) {
    State& state = fSlots[static_cast<std::size_t>(slot.index)];
    state.isTaken = true;
    state.generation =
        state.generation == std::numeric_limits<int>::max() ? 1 : state.generation + 1;
    slot.generation = state.generation;
  }
  return result;
}

bool Slots::release(const Slot& pSlot) {
  const detail::MutexLock hold(fGuard);
  if (pSlot.index < 0 || std::cmp_greater_equal(pSlot.index, fSlots.size())) return false;
  State& state = fSlots[static_cast<std::size_t>(pSlot.index)];
  if (!state.isTaken || state.generation != pSlot.generation) return false;
  state.isTaken = false;
  return true;
}

}  // namespace OX
