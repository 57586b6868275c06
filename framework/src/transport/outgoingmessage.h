/// An encoded message to be sent: its own bytes, and between them references to the bytes of
/// large binaries, which are not copied on their way to the socket.
#pragma once

#include <boost/shared_ptr.hpp>
#include <cstddef>
#include <string>
#include <vector>

#include <oxframework/oxdescriptor.h>
#include <oxframework/oxvalue.h>

namespace OX::wire {

/// Movable. Written by one thread, then only read.
class OutgoingMessage {
 public:
  struct Piece {
    const void* data;
    std::size_t size;
  };

  /// Appends the bytes of a header or a small value.
  void write(const char* pData, std::size_t pSize) { fBytes.append(pData, pSize); }
  /// Appends the bytes of a binary, by reference unless they are few.
  void writeBinary(const OXValue& pBinary);

  std::size_t getSize() const { return fBytes.size() + fReferencedBytes; }
  /// Appends the pieces in order; they are valid until this message changes, moves or ends.
  void appendPieces(std::vector<Piece>& pPieces) const;

  /// Sent with the first byte, on a Unix-domain socket.
  OXDescriptor descriptor;

 private:
  struct Reference {
    std::size_t position;  ///< in fBytes, where the binary goes
    boost::shared_ptr<const void> owner;
    const void* data;
    std::size_t size;
  };

  std::string fBytes;
  std::vector<Reference> fReferences;
  std::size_t fReferencedBytes = 0;
};

}  // namespace OX::wire
