// Large binaries are referenced and small ones copied, since each piece of a write costs too.
#include "outgoingmessage.h"

namespace OX::wire {
namespace {

// Up to this size a copy is cheaper than one more piece in the write to the socket.
constexpr std::size_t kCopiedBytes = 512;

}  // namespace

void OutgoingMessage::writeBinary(const OXValue& pBinary) {
  const auto size = static_cast<std::size_t>(pBinary.getSize());
  if (size == 0) return;
  if (size <= kCopiedBytes) return write(static_cast<const char*>(pBinary.GetBinary()), size);
  fReferences.push_back({fBytes.size(), pBinary.GetBinaryOwner(), pBinary.GetBinary(), size});
  fReferencedBytes += size;
}

void OutgoingMessage::appendPieces(std::vector<Piece>& pPieces) const {
  std::size_t done = 0;
  for (const Reference& reference : fReferences) {
    if (reference.position > done)
      pPieces.push_back({fBytes.data() + done, reference.position - done});
    pPieces.push_back({reference.data, reference.size});
    done = reference.position;
  }
  if (fBytes.size() > done) pPieces.push_back({fBytes.data() + done, fBytes.size() - done});
}

}  // namespace OX::wire
