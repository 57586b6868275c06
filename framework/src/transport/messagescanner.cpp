// One pass over the heads of values, without recursion: open arrays are counted on a stack, whose
// depth is the nesting limit, so a hostile message can exhaust neither stack nor memory.
#include "messagescanner.h"

namespace OX::wire {

/// What the first byte of a value means: a count or length in the byte itself or in the countBytes
/// after it, then extraBytes and, for data, as many bytes as the count says.
struct MessageScanner::Head {
  enum Kind { kData, kArray, kMap, kNever };
  Kind kind;
  std::size_t countBytes;
  std::size_t count;
  std::size_t extraBytes;

  static Head of(unsigned char pByte);

 private:
  static Head xFixed(std::size_t pBytes) { return {kData, 0, pBytes, 0}; }
  static Head xCounted(Kind pKind, unsigned int pPower, std::size_t pExtraBytes = 0) {
    return {pKind, std::size_t{1} << pPower, 0, pExtraBytes};
  }
};

MessageScanner::Head MessageScanner::Head::of(unsigned char pByte) {
  if (pByte < 0x80 || pByte >= 0xe0) return xFixed(0);     // small integers
  if (pByte < 0x90) return {kMap, 0, pByte & 0x0fu, 0};    // fixmap
  if (pByte < 0xa0) return {kArray, 0, pByte & 0x0fu, 0};  // fixarray
  if (pByte < 0xc0) return xFixed(pByte & 0x1fu);          // fixstr
  const unsigned int code = pByte;
  if (code == 0xc1) return {kNever, 0, 0, 0};
  if (code < 0xc4) return xFixed(0);                                // nil, false, true
  if (code < 0xc7) return xCounted(kData, code - 0xc4);             // bin 8, 16, 32
  if (code < 0xca) return xCounted(kData, code - 0xc7, 1);          // ext 8, 16, 32 and their type
  if (code < 0xcc) return xFixed(code == 0xca ? 4 : 8);             // float 32, 64
  if (code < 0xd0) return xFixed(std::size_t{1} << (code - 0xcc));  // uint 8 to 64
  if (code < 0xd4) return xFixed(std::size_t{1} << (code - 0xd0));  // int 8 to 64
  if (code < 0xd9) return xFixed((std::size_t{1} << (code - 0xd4)) + 1);  // fixext and their type
  if (code < 0xdc) return xCounted(kData, code - 0xd9);                   // str 8, 16, 32
  if (code < 0xde) return xCounted(kArray, code - 0xdc + 1);              // array 16, 32
  return xCounted(kMap, code - 0xde + 1);                                 // map 16, 32
}

MessageScanner::MessageScanner(const OXWireLimits& pLimits) : fLimits(pLimits) {}

void MessageScanner::reset() {
  fOpen.clear();
  fPosition = 0;
  fElements = 0;
  fComplete = false;
}

bool MessageScanner::scan(const unsigned char* pData, std::size_t pSize) {
  while (!fComplete && fPosition < pSize)
    if (!xReadHead(pData, pSize)) return false;
  return fComplete && fPosition <= pSize;
}

/// False when the head itself is incomplete.
bool MessageScanner::xReadHead(const unsigned char* pData, std::size_t pSize) {
  const Head head = Head::of(pData[fPosition]);
  if (head.kind == Head::kNever)
    throw WireViolation("malformed message: the byte 0xc1 starts no value");
  if (pSize - fPosition <= head.countBytes) return false;
  std::size_t count = head.count;
  for (std::size_t i = 1; i <= head.countBytes; ++i) count = count << 8 | pData[fPosition + i];

  const std::size_t data = head.kind == Head::kData ? count : 0;
  // A count has at most 32 bits, so this cannot overflow.
  const std::size_t end = fPosition + 1 + head.countBytes + head.extraBytes + data;
  const auto limit = static_cast<std::size_t>(fLimits.maxMessageBytes);
  if (end > limit)
    throw WireViolation(overLimit("message of at least " + std::to_string(end) + " bytes", limit));
  if (head.kind != Head::kData) xOpen(head, count);
  fPosition = end;
  if (head.kind == Head::kData || count == 0) xCloseFull();
  return true;
}

void MessageScanner::xOpen(const Head& pHead, std::size_t pCount) {
  const auto maxCount = static_cast<std::size_t>(fLimits.maxArrayElements);
  const auto maxNesting = static_cast<std::size_t>(fLimits.maxNesting);
  if (pCount > maxCount)
    throw WireViolation(overLimit(
        (pHead.kind == Head::kMap ? "map of " : "array of ") + std::to_string(pCount) + " elements",
        maxCount));
  // An empty array is never open, but counts as a level of the message.
  if (fOpen.size() + 1 > maxNesting)
    throw WireViolation(overLimit(
        "nesting of at least " + std::to_string(fOpen.size() + 1) + " arrays", maxNesting));
  const std::size_t children = pHead.kind == Head::kMap ? pCount * 2 : pCount;
  fElements += children;
  if (fElements > maxElementsOfMessage(fLimits))
    throw WireViolation(overLimit("message of at least " + std::to_string(fElements) + " elements",
                                  maxElementsOfMessage(fLimits)));
  if (children > 0) fOpen.push_back(children);
}

/// A value has ended, and with it the arrays whose last element it was.
void MessageScanner::xCloseFull() {
  while (!fOpen.empty() && --fOpen.back() == 0) fOpen.pop_back();
  fComplete = fOpen.empty();
}

}  // namespace OX::wire
