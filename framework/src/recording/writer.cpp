// Appends to a recording. Each frame is one write, checked and counted only once it is in the file;
// the index exists in memory until the end, and can be rebuilt by a scan when that end never comes.
#include "writer.h"

#include <limits>
#include <new>
#include <random>

namespace OX::detail {
namespace {

// 96 KiB for a write: few calls, and no second copy of an index of many megabytes.
constexpr std::size_t kEntriesPerBlock = 4096;
// Callers index images by int.
constexpr std::size_t kMaxFrames = std::numeric_limits<std::int32_t>::max();

std::uint64_t newFileId() {
  std::random_device random;
  return std::uint64_t{random()} << 32 | random();
}

}  // namespace

bool RecordingWriter::xFail(const std::string& pText) {
  fHasFailed = true;
  fError = pText;
  return false;
}

bool RecordingWriter::open(const std::string& pPath, unsigned int pPeriod,
                           const std::vector<streamHeader>& pStreams) {
  if (pStreams.empty() || pStreams.size() > kMaxStreams)
    return xFail(pPath + ": " + std::to_string(pStreams.size()) + " streams; expected 1 to " +
                 std::to_string(kMaxStreams));
  if (!fFile.openForWriting(pPath)) return xFail(fFile.getError());
  fHeader = {newFileId(), pPeriod, pStreams};
  const auto bytes = encodeFileHeader(fHeader);
  if (!fFile.writeAt(bytes, {}, 0)) return xFail(fFile.getError());
  fEnd = bytes.size();
  return true;
}

bool RecordingWriter::append(FrameHeader pHeader, Bytes pPixels) {
  if (fHasFailed || pPixels.empty()) return false;
  if (fIndex.size() >= kMaxFrames)
    return xFail(fFile.describe("the maximum number of frames is reached"));
  // Callers write the streams in turn, so the number of the frame says which stream it belongs to.
  pHeader.fStream = static_cast<std::uint16_t>(fIndex.size() % fHeader.fStreams.size());
  pHeader.fSequence = static_cast<std::uint32_t>(fIndex.size());
  pHeader.fPayloadBytes = static_cast<std::uint32_t>(pPixels.size());
  pHeader.fPayloadChecksum = checksumOf(pPixels.data(), pPixels.size());
  const auto bytes = encodeFrameHeader(pHeader, fHeader.fFileId);
  // The entry first: if memory runs out here, the file is unchanged.
  try {
    fIndex.push_back(
        {fEnd, pHeader.fTimeStamp, pHeader.fPayloadBytes, pHeader.fStream, pHeader.fCameraId});
  } catch (const std::bad_alloc&) {
    return xFail(fFile.describe("memory for the index ran out"));
  }
  if (!fFile.writeAt(bytes, pPixels, fEnd)) {
    fIndex.pop_back();
    return xFail(fFile.getError());
  }
  fEnd += bytes.size() + pPixels.size();
  return true;
}

bool RecordingWriter::finish() {
  Checksum checksum(fHeader.fFileId);
  std::vector<unsigned char> block(kIndexMarker.begin(), kIndexMarker.end());
  std::uint64_t at = fEnd;
  const auto flush = [&] {
    const bool good = fFile.writeAt(block, {}, at);
    at += block.size();
    block.clear();
    return good;
  };
  for (const IndexEntry& entry : fIndex) {
    block.resize(block.size() + kIndexEntryBytes);
    unsigned char* bytes = block.data() + block.size() - kIndexEntryBytes;
    encodeIndexEntry(entry, bytes);
    checksum.add(bytes, kIndexEntryBytes);
    if (block.size() >= kEntriesPerBlock * kIndexEntryBytes && !flush())
      return xFail(fFile.getError());
  }
  addTrailerFields(checksum, fEnd, fIndex.size());
  const auto trailer = encodeTrailer({fEnd, fIndex.size(), checksum.get()});
  block.insert(block.end(), trailer.begin(), trailer.end());
  return flush() || xFail(fFile.getError());
}

}  // namespace OX::detail
