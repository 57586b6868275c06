/// Where incoming bytes are collected. Values of a decoded message may go on using the bytes in
/// place, so a block that has been lent is never written over: the next bytes get a fresh one.
#pragma once

#include <boost/shared_ptr.hpp>
#include <cstddef>

namespace OX::wire {

/// One thread only, but for the blocks that have been lent, which nobody writes.
class ReceiveBuffer {
 public:
  ReceiveBuffer();

  /// Makes room so that a message of pMessageSize bytes, the one that starts at data(), fits, and
  /// at least a byte more than there is can be received. Never asks for more than pMaxSize bytes
  /// unless pMessageSize does.
  void prepare(std::size_t pMessageSize, std::size_t pMaxSize);
  /// Room for receiving after prepare().
  unsigned char* room() { return fBlock.get() + fEnd; }
  std::size_t roomSize() const { return fCapacity - fEnd; }
  /// So many bytes have been received.
  void commit(std::size_t pSize) { fEnd += pSize; }

  /// What has been received and not consumed.
  const unsigned char* data() const { return fBlock.get() + fBegin; }
  std::size_t size() const { return fEnd - fBegin; }
  void consume(std::size_t pSize) { fBegin += pSize; }

  /// Keeps the bytes at data() alive and unchanged for as long as the result lives.
  boost::shared_ptr<const void> lend();

 private:
  void xMoveTo(std::size_t pCapacity);

  boost::shared_ptr<unsigned char[]> fBlock;
  std::size_t fCapacity = 0;
  std::size_t fBegin = 0;
  std::size_t fEnd = 0;
  bool fLent = false;
};

}  // namespace OX::wire
