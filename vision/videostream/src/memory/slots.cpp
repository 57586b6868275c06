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
    if (fSlots[i].holder == Holder::kNobody) result.push_back({static_cast<int>(i), 0});
  if (result.size() < pCount) return {};
  for (Slot& slot : result) {
    State& state = fSlots[static_cast<std::size_t>(slot.index)];
    state.holder = Holder::kBroker;
    state.generation =
        state.generation == std::numeric_limits<int>::max() ? 1 : state.generation + 1;
    slot.generation = state.generation;
  }
  return result;
}

bool Slots::xPass(const Slot& pSlot, Holder pFrom, Holder pTo) {
  const detail::MutexLock hold(fGuard);
  if (pSlot.index < 0 || std::cmp_greater_equal(pSlot.index, fSlots.size())) return false;
  State& state = fSlots[static_cast<std::size_t>(pSlot.index)];
  if (state.holder != pFrom || state.generation != pSlot.generation) return false;
  state.holder = pTo;
  return true;
}

void Slots::give(const Slot& pSlot) { xPass(pSlot, Holder::kBroker, Holder::kClient); }

bool Slots::release(const Slot& pSlot) { return xPass(pSlot, Holder::kClient, Holder::kNobody); }

void Slots::putBack(const Slot& pSlot) { xPass(pSlot, Holder::kBroker, Holder::kNobody); }

}  // namespace OX
