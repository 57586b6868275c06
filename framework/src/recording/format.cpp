// Encoding and decoding of .oxv structures, byte by byte and independent of the processor. Decoders
// check magic, sizes and checksums before they return anything, so that callers hold only headers
// that were written as they are.
#include "format.h"

#include <xxhash.h>
// Dispatches at run time to the widest vectors that the processor has.
#ifdef __x86_64__
#include <xxh_x86dispatch.h>
#endif

#include <algorithm>
#include <bit>
#include <concepts>
#include <cstring>
#include <new>

namespace OX::detail {
namespace {

// Readers refuse every other version: a changed layout must not be taken for pixels.
constexpr std::uint32_t kVersion = 1;
constexpr std::size_t kFixedHeaderBytes = 32;
constexpr std::size_t kStreamBytes = 16;
constexpr std::size_t kChecksumBytes = 8;
// A cache line, and the widest vectors that kernels load.
constexpr std::size_t kAlignment = 64;

// Byte by byte, independent of byte order and alignment; compilers make one instruction of it.
template <std::integral T>
void store(unsigned char* pTo, T pValue) {
  auto bits = static_cast<std::make_unsigned_t<T>>(pValue);
  for (std::size_t i = 0; i < sizeof(T); ++i)
    pTo[i] = static_cast<unsigned char>(static_cast<std::uint64_t>(bits) >> (8 * i));
}

template <std::integral T>
T load(const unsigned char* pFrom) {
  std::uint64_t bits = 0;
  for (std::size_t i = 0; i < sizeof(T); ++i) bits |= std::uint64_t{pFrom[i]} << (8 * i);
  return static_cast<T>(bits);
}

template <std::size_t N>
bool startsWith(Bytes pBytes, const std::array<unsigned char, N>& pMark) {
  return pBytes.size() >= N && std::equal(pMark.begin(), pMark.end(), pBytes.begin());
}

streamHeader decodeStream(const unsigned char* pFrom) {
  return {load<std::int32_t>(pFrom), load<std::int32_t>(pFrom + 4), load<std::int32_t>(pFrom + 8),
          load<std::int32_t>(pFrom + 12)};
}

// From the outside in: each check makes the next read safe. The checksum comes last because its
// place depends on the number of streams.
std::optional<FileHeader> decodeOneHeader(Bytes pBytes, std::string& pReason) {
  const auto refuse = [&](const std::string& pText) {
    pReason = pText;
    return std::nullopt;
  };
  if (!startsWith(pBytes, kFileMagic)) return refuse("at byte 0: not an .oxv file");
  if (pBytes.size() < fileHeaderBytes(1)) return refuse("at byte 0: the header is cut short");
  const auto version = load<std::uint32_t>(&pBytes[8]);
  if (version != kVersion)
    return refuse("at byte 8: version " + std::to_string(version) + " of the format is unknown");
  const std::size_t streams = load<std::uint32_t>(&pBytes[24]);
  if (streams < 1 || streams > kMaxStreams)
    return refuse("at byte 24: " + std::to_string(streams) + " streams");
  const std::size_t size = fileHeaderBytes(streams);
  if (load<std::uint32_t>(&pBytes[12]) != size) return refuse("at byte 12: wrong header size");
  if (pBytes.size() < size) return refuse("at byte 32: the header is cut short");
  if (load<std::uint64_t>(&pBytes[size - kChecksumBytes]) !=
      checksumOf(pBytes.data(), size - kChecksumBytes))
    return refuse("at byte 0: the header's checksum is wrong");

  FileHeader header;
  header.fFileId = load<std::uint64_t>(&pBytes[16]);
  header.fPeriod = load<std::uint32_t>(&pBytes[28]);
  for (std::size_t i = 0; i < streams; ++i)
    header.fStreams.push_back(decodeStream(&pBytes[kFixedHeaderBytes + i * kStreamBytes]));
  return header;
}

// Seeded with the file's id: pixels may contain a copied recording, whose frames must not be found.
std::uint64_t frameHeaderChecksum(const unsigned char* pBytes, std::uint64_t pFileId) {
  return XXH3_64bits_withSeed(pBytes, kFrameHeaderBytes - kChecksumBytes, pFileId);
}

}  // namespace

std::size_t fileHeaderBytes(std::size_t pStreams) {
  const std::size_t size = kFixedHeaderBytes + pStreams * kStreamBytes + kChecksumBytes;
  return (size + kAlignment - 1) / kAlignment * kAlignment;
}

std::vector<unsigned char> encodeFileHeader(const FileHeader& pHeader) {
  const std::size_t size = fileHeaderBytes(pHeader.fStreams.size());
  std::vector<unsigned char> bytes(2 * size);
  std::copy(kFileMagic.begin(), kFileMagic.end(), bytes.begin());
  store(&bytes[8], kVersion);
  store(&bytes[12], static_cast<std::uint32_t>(size));
  store(&bytes[16], pHeader.fFileId);
  store(&bytes[24], static_cast<std::uint32_t>(pHeader.fStreams.size()));
  store(&bytes[28], pHeader.fPeriod);
  unsigned char* to = &bytes[kFixedHeaderBytes];
  for (const streamHeader& stream : pHeader.fStreams)
    for (const int field : {stream.width, stream.height, stream.colorSpace, stream.pixelDepth}) {
      store(to, field);
      to += 4;
    }
  store(&bytes[size - kChecksumBytes], checksumOf(bytes.data(), size - kChecksumBytes));
  std::copy_n(bytes.begin(), size, bytes.begin() + static_cast<std::ptrdiff_t>(size));
  return bytes;
}

std::optional<FileHeader> decodeFileHeader(Bytes pStart, bool& pDamaged, std::string& pReason) {
  const auto copyAt = [&](std::size_t pAt) {
    std::string reason;
    auto header = pAt < pStart.size() ? decodeOneHeader(pStart.subspan(pAt), reason) : std::nullopt;
    // A header's size says where its second copy begins. One found elsewhere belongs to another
    // file, whose bytes were left on the disk or recorded as pixels.
    return header && fileHeaderBytes(header->fStreams.size()) == pAt ? header : std::nullopt;
  };
  if (auto header = decodeOneHeader(pStart, pReason)) {
    pDamaged = !copyAt(fileHeaderBytes(header->fStreams.size()));
    return header;
  }
  // The second copy's offset depends on the number of streams, which is lost with the first copy.
  pDamaged = true;
  for (std::size_t at = kAlignment; at <= kMaxFileHeaderBytes; at += kAlignment)
    if (auto header = copyAt(at)) return header;
  return std::nullopt;
}

std::array<unsigned char, kFrameHeaderBytes> encodeFrameHeader(const FrameHeader& pHeader,
                                                               std::uint64_t pFileId) {
  std::array<unsigned char, kFrameHeaderBytes> bytes{};
  std::copy(kFrameMarker.begin(), kFrameMarker.end(), bytes.begin());
  store(&bytes[4], pHeader.fPayloadBytes);
  store(&bytes[8], pHeader.fSequence);
  store(&bytes[12], pHeader.fStream);
  store(&bytes[14], pHeader.fCameraId);
  store(&bytes[16], pHeader.fTimeStamp);
  for (std::size_t i = 0; i < 4; ++i)
    store(&bytes[24 + 4 * i], std::bit_cast<std::uint32_t>(pHeader.fAngles[i]));
  store(&bytes[48], pHeader.fPayloadChecksum);
  store(&bytes[56], frameHeaderChecksum(bytes.data(), pFileId));
  return bytes;
}

std::optional<FrameHeader> decodeFrameHeader(Bytes pBytes, std::uint64_t pFileId) {
  if (pBytes.size() < kFrameHeaderBytes || !startsWith(pBytes, kFrameMarker) ||
      load<std::uint64_t>(&pBytes[56]) != frameHeaderChecksum(pBytes.data(), pFileId))
    return std::nullopt;
  FrameHeader header;
  header.fPayloadBytes = load<std::uint32_t>(&pBytes[4]);
  header.fSequence = load<std::uint32_t>(&pBytes[8]);
  header.fStream = load<std::uint16_t>(&pBytes[12]);
  header.fCameraId = load<std::int8_t>(&pBytes[14]);
  header.fTimeStamp = load<std::int64_t>(&pBytes[16]);
  for (std::size_t i = 0; i < 4; ++i)
    header.fAngles[i] = std::bit_cast<float>(load<std::uint32_t>(&pBytes[24 + 4 * i]));
  header.fPayloadChecksum = load<std::uint64_t>(&pBytes[48]);
  return header;
}

void encodeIndexEntry(const IndexEntry& pEntry, unsigned char* pBytes) {
  store(pBytes, pEntry.fOffset);
  store(pBytes + 8, pEntry.fTimeStamp);
  store(pBytes + 16, pEntry.fPayloadBytes);
  store(pBytes + 20, pEntry.fStream);
  store(pBytes + 22, pEntry.fCameraId);
  pBytes[23] = 0;
}

IndexEntry decodeIndexEntry(const unsigned char* pBytes) {
  return {load<std::uint64_t>(pBytes), load<std::int64_t>(pBytes + 8),
          load<std::uint32_t>(pBytes + 16), load<std::uint16_t>(pBytes + 20),
          load<std::int8_t>(pBytes + 22)};
}

std::array<unsigned char, kTrailerBytes> encodeTrailer(const Trailer& pTrailer) {
  std::array<unsigned char, kTrailerBytes> bytes{};
  store(&bytes[0], pTrailer.fIndexOffset);
  store(&bytes[8], pTrailer.fEntries);
  store(&bytes[16], pTrailer.fChecksum);
  std::copy(kTrailerMagic.begin(), kTrailerMagic.end(), &bytes[24]);
  return bytes;
}

std::optional<Trailer> decodeTrailer(Bytes pBytes) {
  if (pBytes.size() != kTrailerBytes || !startsWith(pBytes.subspan(24), kTrailerMagic))
    return std::nullopt;
  return Trailer{load<std::uint64_t>(&pBytes[0]), load<std::uint64_t>(&pBytes[8]),
                 load<std::uint64_t>(&pBytes[16])};
}

Checksum::Checksum(std::uint64_t pSeed) : fState(XXH3_createState()), fSeed(pSeed) {
  if (!fState) throw std::bad_alloc();
  reset();
}

Checksum::Checksum() : Checksum(0) {}
Checksum::~Checksum() { XXH3_freeState(fState); }

void Checksum::reset() { XXH3_64bits_reset_withSeed(fState, fSeed); }

void Checksum::add(const void* pData, std::size_t pSize) {
  XXH3_64bits_update(fState, pData, pSize);
}

std::uint64_t Checksum::get() const { return XXH3_64bits_digest(fState); }

std::uint64_t checksumOf(const void* pData, std::size_t pSize) { return XXH3_64bits(pData, pSize); }

void addTrailerFields(Checksum& pChecksum, std::uint64_t pIndexOffset, std::uint64_t pEntries) {
  std::array<unsigned char, 16> bytes{};
  store(&bytes[0], pIndexOffset);
  store(&bytes[8], pEntries);
  pChecksum.add(bytes.data(), bytes.size());
}

}  // namespace OX::detail
