/// Finds the end of a MessagePack message while its bytes are still arriving, and how many more
/// there will be at least. The receive buffer gets its final size at once, and a message beyond a
/// limit is refused before anything is allocated for it. Does not look at values.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "wirelimits.h"

namespace OX::wire {

/// One thread only. Looks at each byte once, however small the pieces are that arrive.
class MessageScanner {
 public:
  explicit MessageScanner(const OXWireLimits& pLimits);

  /// Continues in the message that starts at pData, of which pSize bytes have arrived; bytes seen
  /// by an earlier call may have moved but not changed. True when the message is complete: its size
  /// is getSize(); call reset() before the next one. Throws WireViolation when the message is
  /// malformed or exceeds a limit.
  bool scan(const unsigned char* pData, std::size_t pSize);

  /// The least size of the message in bytes, as far as it has been seen.
  std::size_t getSize() const { return fPosition; }
  void reset();

 private:
  struct Head;
  bool xReadHead(const unsigned char* pData, std::size_t pSize);
  void xOpen(const Head& pHead, std::size_t pCount);
  void xCloseFull();

  OXWireLimits fLimits;
  std::vector<std::size_t> fOpen;  ///< elements still missing of each open array or map
  std::size_t fPosition = 0;       ///< of the next head; beyond pSize while data is missing
  std::size_t fElements = 0;
  bool fComplete = false;
};

}  // namespace OX::wire
