/// Who has which slot of a stream's shared memory.
#pragma once

#include <optional>
#include <vector>

#include <oxframework/oxthreadsafety.h>

namespace OX {

/// The state of the slots, which is in the broker's own memory alone: nothing that a client can
/// write decides what is written where. A slot is written between take() and its return by
/// whoever took it, then read by the client until that releases it. Thread-safe.
class Slots {
 public:
  explicit Slots(int pCount) : fSlots(static_cast<std::size_t>(pCount)) {}

  struct Slot {
    int index = 0;
    int generation = 0;  ///< rises each time that a slot is taken; from 1 on
  };
  /// So many slots that nobody has; empty when there are fewer. The lowest ones: their memory is
  /// the likeliest to be in a processor's cache.
  std::vector<Slot> take(std::size_t pCount);
  /// False, and nothing changes, unless somebody has the slot in this generation.
  bool release(const Slot& pSlot);

 private:
  struct State {
    bool isTaken = false;
    int generation = 0;
  };

  detail::Mutex fGuard;
  std::vector<State> fSlots OX_GUARDED_BY(fGuard);
};

}  // namespace OX
