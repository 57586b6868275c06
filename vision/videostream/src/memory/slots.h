/// Who has which slot of a stream's shared memory.
#pragma once

#include <optional>
#include <vector>

#include <oxframework/oxthreadsafety.h>

namespace OX {

/// The state of the slots, which is in the broker's own memory alone: nothing that a client can
/// write decides what is written where. A slot that was taken is written until it is given to the
/// client, who reads it and releases it, or until it is put back. Thread-safe.
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
  /// The slot is the client's.
  void give(const Slot& pSlot);
  /// From the client: false, and nothing changes, unless it has the slot in this generation.
  bool release(const Slot& pSlot);
  /// From whoever took it and did not give it.
  void putBack(const Slot& pSlot);

 private:
  enum class Holder { kNobody, kBroker, kClient };
  struct State {
    Holder holder = Holder::kNobody;
    int generation = 0;
  };

  /// False unless pFrom has the slot in this generation.
  bool xPass(const Slot& pSlot, Holder pFrom, Holder pTo);

  detail::Mutex fGuard;
  std::vector<State> fSlots OX_GUARDED_BY(fGuard);
};

}  // namespace OX
