/// Memory between two inaccessible pages: one byte read or written too far ends the test.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace OX::test {

class GuardedBuffer {
 public:
  enum Side { kAtStart, kAtEnd };

  /// pSize bytes that adjoin the page before them (kAtStart) or after them (kAtEnd).
  GuardedBuffer(std::size_t pSize, Side pSide) : fSize(pSize) {
    const std::size_t page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    const std::size_t inner = (pSize + page - 1) / page * page;
    fMapped = inner + 2 * page;
    fBase = mmap(nullptr, fMapped, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    auto* start = static_cast<unsigned char*>(fBase) + page;
    if (fBase == MAP_FAILED || (inner > 0 && mprotect(start, inner, PROT_READ | PROT_WRITE) != 0)) {
      throw std::runtime_error("no memory with guard pages");
    }
    fData = pSide == kAtStart ? start : start + (inner - pSize);
  }
  GuardedBuffer(const GuardedBuffer&) = delete;
  GuardedBuffer& operator=(const GuardedBuffer&) = delete;
  ~GuardedBuffer() { munmap(fBase, fMapped); }

  unsigned char* data() { return fData; }
  std::size_t size() const { return fSize; }
  void fill(int pValue) { std::memset(fData, pValue, fSize); }
  void fill(const std::vector<unsigned char>& pBytes) {
    std::copy(pBytes.begin(), pBytes.end(), fData);
  }

 private:
  std::size_t fSize;
  std::size_t fMapped = 0;
  void* fBase = nullptr;
  unsigned char* fData = nullptr;
};

inline std::vector<unsigned char> randomBytes(std::size_t pSize, unsigned pSeed = 1) {
  std::mt19937 random(pSeed);
  std::vector<unsigned char> bytes(pSize);
  for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(random());
  return bytes;
}

/// The first byte that differs, as text; empty if there is none.
inline std::string difference(const unsigned char* pActual, const unsigned char* pExpected,
                              std::size_t pSize) {
  for (std::size_t i = 0; i < pSize; ++i) {
    if (pActual[i] == pExpected[i]) continue;
    return "byte " + std::to_string(i) + " of " + std::to_string(pSize) + " is " +
           std::to_string(pActual[i]) + ", not " + std::to_string(pExpected[i]);
  }
  return "";
}

}  // namespace OX::test
