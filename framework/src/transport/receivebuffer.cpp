// One block, replaced when it is lent or too small. The sizes keep an idle connection cheap and a
// large message free of copies.
#include "receivebuffer.h"

#include <algorithm>
#include <boost/smart_ptr/make_shared_array.hpp>
#include <cstring>

namespace OX::wire {
namespace {

// Small, so that a large message gets a block of its own size early and is received into it.
constexpr std::size_t kIdleBytes = 16 * 1024;

// After the part of a message whose size is known: an image ends with a few numbers, for which it
// must not move.
constexpr std::size_t kMoreBytes = 512;

}  // namespace

ReceiveBuffer::ReceiveBuffer() { xMoveTo(kIdleBytes); }

void ReceiveBuffer::prepare(std::size_t pMessageSize, std::size_t pMaxSize) {
  const std::size_t wanted = std::max(pMessageSize, size() + 1);
  const bool fits = fCapacity - fBegin >= wanted && fEnd < fCapacity;
  const bool idle = size() == 0 && wanted <= kIdleBytes;
  if (idle && fCapacity > kIdleBytes) return xMoveTo(kIdleBytes);  // frees a large block
  if (fits) return;
  const std::size_t roomy = std::max(wanted, std::min(wanted + kMoreBytes, pMaxSize));
  if (fLent) return xMoveTo(std::max(roomy, kIdleBytes));
  if (wanted <= fCapacity) return xMoveTo(fCapacity);
  // Doubling keeps the copying proportional to the bytes, whatever the pieces are that arrive.
  xMoveTo(std::max(roomy, std::min(fCapacity * 2, pMaxSize)));
}

void ReceiveBuffer::xMoveTo(std::size_t pCapacity) {
  const std::size_t kept = size();
  if (pCapacity == fCapacity && !fLent) {
    std::memmove(fBlock.get(), data(), kept);
  } else {
    const auto block = boost::make_shared_noinit<unsigned char[]>(pCapacity);
    if (kept > 0) std::memcpy(block.get(), data(), kept);
    fBlock = block;
    fCapacity = pCapacity;
    fLent = false;
  }
  fBegin = 0;
  fEnd = kept;
}

boost::shared_ptr<const void> ReceiveBuffer::lend() {
  fLent = true;
  return boost::shared_ptr<const void>(fBlock, fBlock.get());
}

}  // namespace OX::wire
