/// Finds where a MessagePack message ends while its bytes are still coming in, and how many more
/// are certain to come: the receive buffer is then made of the right size at once, and limits are
/// refused before anything is allocated for them. Values are the codec's business.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "wirelimits.h"

namespace OX::wire {

/// One thread only. Each byte is looked at once, however small the pieces are that come in.
class MessageScanner {
 public:
  explicit MessageScanner(const OXWireLimits& pLimits);

  /// Goes on in the message that starts at pData, of which pSize bytes are there; what a former
  /// call has seen may have moved but must not have changed.
  /// True when the message is complete: its size is getSize(), and reset() is called before the
  /// next one. Throws WireViolation.
  bool scan(const unsigned char* pData, std::size_t pSize);

  /// Bytes that the message has at least, from what has been seen.
  std::size_t getSize() const { return fPosition; }
  void reset();

 private:
  struct Head;
  bool xReadHead(const unsigned char* pData, std::size_t pSize);
  void xOpen(const Head& pHead, std::size_t pCount);
  void xCloseFull();

  OXWireLimits fLimits;
  std::vector<std::size_t> fOpen;  ///< elements still missing of each open array or map
  std::size_t fPosition = 0;       ///< where the next head stands; past what came while data misses
  std::size_t fElements = 0;
  bool fComplete = false;
};

}  // namespace OX::wire
