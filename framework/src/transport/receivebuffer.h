/// Collects incoming bytes. Values of a decoded message may keep using the bytes in place, so a
/// block that was lent is never overwritten: the next bytes go to a new one.
#pragma once

#include <boost/shared_ptr.hpp>
#include <cstddef>

namespace OX::wire {

/// One thread only, except for blocks that were lent, which nobody writes.
class ReceiveBuffer {
 public:
  ReceiveBuffer();

  /// Makes room for the message of pMessageSize bytes that starts at data(), and for at least one
  /// byte more than has been received. Allocates no more than pMaxSize bytes unless pMessageSize is
  /// larger.
  void prepare(std::size_t pMessageSize, std::size_t pMaxSize);
  /// Where to receive, after prepare().
  unsigned char* room() { return fBlock.get() + fEnd; }
  std::size_t roomSize() const { return fCapacity - fEnd; }
  /// Adds pSize bytes that were received into room().
  void commit(std::size_t pSize) { fEnd += pSize; }

  /// The bytes that were received and not consumed.
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
