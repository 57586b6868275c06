/// The structures of an .oxv file: header, frame header, index entry, trailer. Does no input or
/// output. All numbers are little-endian; docs/oxv-format.md has the tables.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include <oxframework/oxvideo.h>

struct XXH3_state_s;

namespace OX::detail {

using Bytes = std::span<const unsigned char>;

constexpr std::size_t kMaxStreams = 64;
constexpr std::size_t kFrameHeaderBytes = 64;
constexpr std::size_t kIndexMarkerBytes = 8;
constexpr std::size_t kIndexEntryBytes = 24;
constexpr std::size_t kTrailerBytes = 32;
/// For both copies of the header: a flipped bit in one must not cost the recording.
constexpr std::size_t kMaxFileHeaderBytes = 1088;

constexpr std::array<unsigned char, 8> kFileMagic{0x89, 'O', 'X', 'V', '\r', '\n', 0x1a, '\n'};
constexpr std::array<unsigned char, 4> kFrameMarker{'O', 'X', 'F', 'R'};
constexpr std::array<unsigned char, 8> kIndexMarker{'O', 'X', 'I', 'N', 'D', 'E', 'X', 0};
constexpr std::array<unsigned char, 8> kTrailerMagic{'O', 'X', 'V', 'T', 'A', 'I', 'L', 0x1a};

struct FileHeader {
  std::uint64_t fFileId = 0;  ///< random; seeds the checksums, so that no other file's frames pass
  std::uint32_t fPeriod = 0;
  std::vector<streamHeader> fStreams;
};

/// Bytes of one copy of the header: a multiple of 64, which keeps the pixels aligned.
std::size_t fileHeaderBytes(std::size_t pStreams);

std::vector<unsigned char> encodeFileHeader(const FileHeader& pHeader);

/// Reads the header from the start of a file, from its second copy when the first is damaged;
/// pDamaged tells whether one of them is. Nothing, and pReason, when both are.
std::optional<FileHeader> decodeFileHeader(Bytes pStart, bool& pDamaged, std::string& pReason);

struct FrameHeader {
  std::uint32_t fPayloadBytes = 0;
  std::uint32_t fSequence = 0;
  std::uint16_t fStream = 0;
  std::int8_t fCameraId = 0;
  std::int64_t fTimeStamp = 0;
  std::array<float, 4> fAngles{};  ///< left, top, right, bottom
  std::uint64_t fPayloadChecksum = 0;
};

std::array<unsigned char, kFrameHeaderBytes> encodeFrameHeader(const FrameHeader& pHeader,
                                                               std::uint64_t pFileId);
/// Nothing unless marker and checksum are correct. pBytes holds kFrameHeaderBytes.
std::optional<FrameHeader> decodeFrameHeader(Bytes pBytes, std::uint64_t pFileId);

struct IndexEntry {
  std::uint64_t fOffset = 0;  ///< of the frame's header
  std::int64_t fTimeStamp = 0;
  std::uint32_t fPayloadBytes = 0;
  std::uint16_t fStream = 0;
  std::int8_t fCameraId = 0;
};

void encodeIndexEntry(const IndexEntry& pEntry, unsigned char* pBytes);
IndexEntry decodeIndexEntry(const unsigned char* pBytes);

struct Trailer {
  std::uint64_t fIndexOffset = 0;  ///< of the index marker
  std::uint64_t fEntries = 0;
  std::uint64_t fChecksum = 0;  ///< of the entries, then of the two fields above
};

std::array<unsigned char, kTrailerBytes> encodeTrailer(const Trailer& pTrailer);
/// Nothing unless the magic is correct; the caller compares the checksum.
std::optional<Trailer> decodeTrailer(Bytes pBytes);

/// A running XXH3 checksum, as fast as the processor allows.
class Checksum {
 public:
  explicit Checksum(std::uint64_t pSeed);
  Checksum();
  ~Checksum();
  Checksum(const Checksum&) = delete;
  Checksum& operator=(const Checksum&) = delete;

  void reset();
  void add(const void* pData, std::size_t pSize);
  std::uint64_t get() const;

 private:
  XXH3_state_s* fState;  ///< owned
  std::uint64_t fSeed;
};

/// The checksum of one block, without a seed.
std::uint64_t checksumOf(const void* pData, std::size_t pSize);

/// Adds a trailer's two fields to the checksum of the entries.
void addTrailerFields(Checksum& pChecksum, std::uint64_t pIndexOffset, std::uint64_t pEntries);

}  // namespace OX::detail
