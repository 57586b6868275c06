// Reads recordings that may be cut short or damaged anywhere. The index is used only when its
// checksum and every entry are correct; otherwise a scan finds the frames, skipping what is
// damaged.
#include "reader.h"

#include <algorithm>
#include <limits>
#include <memory>

#include <oxframework/oxdefinitions.h>

namespace OX::detail {
namespace {

constexpr std::size_t kEntriesPerBlock = 4096;
constexpr std::size_t kMaxFrames = std::numeric_limits<std::int32_t>::max();
// The sizes of images and buffers are ints, and so are their indexes.
constexpr std::uint32_t kMaxPayloadBytes = std::numeric_limits<std::int32_t>::max();
// Pixels are read and checked in steps that stay in the cache; 128 KB to 512 KB measured the same.
constexpr std::size_t kReadStepBytes = 256 * 1024;
// A search begins with small steps, so that many small damages do not each cost a large read.
constexpr std::size_t kFirstSearchStepBytes = 4 * 1024;
constexpr std::size_t kSearchStepBytes = 256 * 1024;

std::string byteText(std::uint64_t pOffset) { return "at byte " + std::to_string(pOffset) + ": "; }

// 0 for a format that no frame can have.
std::int64_t frameBytes(const streamHeader& pStream, int pColorSpace) {
  if (pStream.width <= 0 || pStream.height <= 0 || pStream.pixelDepth != 8) return 0;
  const std::int64_t pixels = std::int64_t{pStream.width} * pStream.height;
  const std::int64_t layers = getLayersFromColorSpace(pColorSpace);
  // Divided, because the product of hostile sides may not even fit into 64 bits.
  return pixels <= std::numeric_limits<std::int32_t>::max() / layers ? pixels * layers : 0;
}

}  // namespace

bool RecordingReader::xFail(const std::string& pText) {
  fError = fFile.describe(pText);
  return false;
}

void RecordingReader::xNoteDamage(std::uint64_t pOffset, std::uint64_t pBytes, const char* pText) {
  fDamage.push_back({static_cast<std::int64_t>(pOffset), static_cast<std::int64_t>(pBytes), pText});
}

bool RecordingReader::open(const std::string& pPath) {
  if (!fFile.openForReading(pPath)) {
    fError = fFile.getError();
    return false;
  }
  const std::int64_t size = fFile.getSize();
  if (size < 0) return xFail("cannot determine its size");
  if (!xReadHeader(static_cast<std::uint64_t>(size))) return false;
  xDescribeStreams();
  fHasIndex = xReadIndex(static_cast<std::uint64_t>(size));
  if (!fHasIndex) {
    // A bad index may have added frames before it proved bad.
    xClearFrames();
    xScan(static_cast<std::uint64_t>(size));
  }
  for (std::size_t i = 0; i < fStreams.size(); ++i)
    fStreams[i].fNumberOfImages = static_cast<int>(fFrames[i].size());
  return true;
}

bool RecordingReader::xReadHeader(std::uint64_t pSize) {
  if (pSize == 0) return xFail("the file is empty");
  std::vector<unsigned char> start(std::min<std::uint64_t>(pSize, 2 * kMaxFileHeaderBytes));
  if (!fFile.readAt(start.data(), start.size(), 0)) {
    fError = fFile.getError();
    return false;
  }
  bool damaged = false;
  std::string reason;
  auto header = decodeFileHeader(start, damaged, reason);
  if (!header) return xFail(reason);
  fHeader = std::move(*header);
  const std::size_t copy = fileHeaderBytes(fHeader.fStreams.size());
  fFirstFrame = 2 * copy;
  if (damaged)
    xNoteDamage(0, std::min<std::uint64_t>(fFirstFrame, pSize),
                "one of the two copies of the header is damaged");
  return true;
}

void RecordingReader::xDescribeStreams() {
  for (const streamHeader& header : fHeader.fStreams) {
    OXVideoStream stream;
    stream.fWidth = header.width;
    stream.fHeight = header.height;
    // 255 is how callers store an unknown colour space in eight bits.
    const bool known = header.colorSpace >= 0 && header.colorSpace <= 254;
    stream.fColorSpace = known ? header.colorSpace : 255;
    stream.fResolution = getResolutionFromSize(header.width, header.height);
    stream.fFrameBytes = frameBytes(header, stream.fColorSpace);
    fStreams.push_back(stream);
  }
  fFrames.resize(fStreams.size());
}

bool RecordingReader::xAddFrame(const Frame& pFrame, int pStream) {
  if (pStream >= getNumberOfStreams() || pFrame.fPayloadBytes == 0 ||
      pFrame.fPayloadBytes > kMaxPayloadBytes || fTotal >= kMaxFrames)
    return false;
  fFrames[xIndex(pStream)].push_back(pFrame);
  ++fTotal;
  return true;
}

void RecordingReader::xClearFrames() {
  for (auto& frames : fFrames) frames.clear();
  fTotal = 0;
}

// False when there is no index or it is damaged: then a scan finds the frames.
bool RecordingReader::xReadIndex(std::uint64_t pSize) {
  std::array<unsigned char, kTrailerBytes> bytes{};
  if (pSize < fFirstFrame + kIndexMarkerBytes + kTrailerBytes ||
      !fFile.readAt(bytes.data(), bytes.size(), pSize - kTrailerBytes))
    return false;
  const auto trailer = decodeTrailer(bytes);
  if (!trailer) return false;
  // In this order no difference is negative and no product overflows.
  const std::uint64_t room = pSize - kTrailerBytes - kIndexMarkerBytes;
  if (trailer->fIndexOffset < fFirstFrame || trailer->fIndexOffset > room ||
      trailer->fEntries > kMaxFrames ||
      trailer->fEntries * kIndexEntryBytes != room - trailer->fIndexOffset)
    return false;
  return xReadEntries(*trailer);
}

bool RecordingReader::xReadEntries(const Trailer& pTrailer) {
  Checksum checksum(fHeader.fFileId);
  std::vector<unsigned char> block(kEntriesPerBlock * kIndexEntryBytes);
  std::uint64_t at = pTrailer.fIndexOffset + kIndexMarkerBytes;
  std::uint64_t end = fFirstFrame;
  for (std::uint64_t done = 0; done < pTrailer.fEntries;) {
    const std::size_t count = std::min<std::uint64_t>(kEntriesPerBlock, pTrailer.fEntries - done);
    if (!fFile.readAt(block.data(), count * kIndexEntryBytes, at)) return false;
    checksum.add(block.data(), count * kIndexEntryBytes);
    at += count * kIndexEntryBytes;
    for (std::size_t i = 0; i < count; ++i, ++done) {
      const IndexEntry entry = decodeIndexEntry(&block[i * kIndexEntryBytes]);
      // Frames follow each other, so that no two share bytes and their number has a bound.
      if (entry.fOffset < end || entry.fOffset > pTrailer.fIndexOffset ||
          pTrailer.fIndexOffset - entry.fOffset < kFrameHeaderBytes + entry.fPayloadBytes)
        return false;
      if (!xAddFrame({entry.fOffset, entry.fTimeStamp, entry.fPayloadBytes,
                      static_cast<std::uint32_t>(done), entry.fCameraId},
                     entry.fStream))
        return false;
      end = entry.fOffset + kFrameHeaderBytes + entry.fPayloadBytes;
    }
  }
  addTrailerFields(checksum, pTrailer.fIndexOffset, pTrailer.fEntries);
  return checksum.get() == pTrailer.fChecksum;
}

// Goes from frame to frame; after damage it continues with the next undamaged frame.
void RecordingReader::xScan(std::uint64_t pSize) {
  std::array<unsigned char, kFrameHeaderBytes> bytes{};
  std::uint64_t at = fFirstFrame;
  while (at < pSize) {
    const std::size_t got = std::min<std::uint64_t>(bytes.size(), pSize - at);
    const bool readable = fFile.readAt(bytes.data(), got, at);
    if (readable && got >= kIndexMarkerBytes &&
        std::equal(kIndexMarker.begin(), kIndexMarker.end(), bytes.begin())) {
      xNoteDamage(at, pSize - at, "the index is damaged or cut short; the frames are not");
      return;
    }
    const auto header = readable ? decodeFrameHeader({bytes.data(), got}, fHeader.fFileId)
                                 : std::optional<FrameHeader>{};
    if (header && pSize - at < kFrameHeaderBytes + header->fPayloadBytes) {
      xNoteDamage(at, pSize - at, "the last frame is cut short");
      return;
    }
    if (header) {
      const std::uint64_t size = kFrameHeaderBytes + header->fPayloadBytes;
      if (!xAddFrame(
              {at, header->fTimeStamp, header->fPayloadBytes, header->fSequence, header->fCameraId},
              header->fStream))
        xNoteDamage(at, size, "a frame that no stream of the file can have");
      at += size;
      continue;
    }
    const std::uint64_t next = xFindNextFrame(at + 1, pSize);
    xNoteDamage(at, next - at,
                next < pSize ? "no whole frame up to the next one" : "no whole frame to the end");
    at = next;
  }
}

// The first byte from pFrom on at which a frame or the index begins; pSize when there is none.
std::uint64_t RecordingReader::xFindNextFrame(std::uint64_t pFrom, std::uint64_t pSize) {
  std::vector<unsigned char> window(kFirstSearchStepBytes);
  std::uint64_t at = pFrom;
  while (at < pSize && pSize - at >= kIndexMarkerBytes) {
    const std::size_t got = std::min<std::uint64_t>(window.size(), pSize - at);
    if (!fFile.readAt(window.data(), got, at)) return pSize;
    const Bytes bytes(window.data(), got);
    for (std::size_t i = 0; i + kIndexMarkerBytes <= got; ++i) {
      // Both markers start with OX, and a checksum for each byte would be slow.
      if (bytes[i] != 'O' || bytes[i + 1] != 'X') continue;
      if (decodeFrameHeader(bytes.subspan(i, std::min(kFrameHeaderBytes, got - i)),
                            fHeader.fFileId) ||
          std::equal(kIndexMarker.begin(), kIndexMarker.end(), &bytes[i]))
        return at + i;
    }
    if (at + got == pSize) break;
    // A frame that begins near the window's end is searched for again in the next window.
    at = std::max(at + got - kFrameHeaderBytes, fFile.nextData(at + got - kFrameHeaderBytes));
    window.resize(std::min(2 * window.size(), kSearchStepBytes));
  }
  return pSize;
}

const RecordingReader::Frame* RecordingReader::find(std::int64_t pIndex, int pStream) const {
  if (pStream < 0 || pStream >= getNumberOfStreams()) return nullptr;
  const auto& frames = fFrames[xIndex(pStream)];
  if (pIndex < 0 || pIndex >= static_cast<std::int64_t>(frames.size())) return nullptr;
  return &frames[static_cast<std::size_t>(pIndex)];
}

bool RecordingReader::xReadFrameHeader(const Frame& pFrame, int pStream, FrameHeader& pHeader) {
  std::array<unsigned char, kFrameHeaderBytes> bytes{};
  if (!fFile.readAt(bytes.data(), bytes.size(), pFrame.fOffset)) {
    fError = fFile.getError();
    return false;
  }
  // Checked again although opening found it: the file may have changed since.
  const auto header = decodeFrameHeader(bytes, fHeader.fFileId);
  if (!header) return xFail(byteText(pFrame.fOffset) + "the frame's header is damaged");
  if (header->fPayloadBytes != pFrame.fPayloadBytes || header->fStream != pStream)
    return xFail(byteText(pFrame.fOffset) + "the frame is not the one that the index names");
  pHeader = *header;
  return true;
}

bool RecordingReader::xReadPixels(const Frame& pFrame, const FrameHeader& pHeader,
                                  unsigned char* pTo) {
  fChecksum.reset();
  std::uint64_t at = pFrame.fOffset + kFrameHeaderBytes;
  for (std::size_t left = pFrame.fPayloadBytes; left > 0;) {
    const std::size_t step = std::min(left, kReadStepBytes);
    if (!fFile.readAt(pTo, step, at)) {
      fError = fFile.getError();
      return false;
    }
    fChecksum.add(pTo, step);
    pTo += step;
    at += step;
    left -= step;
  }
  return fChecksum.get() == pHeader.fPayloadChecksum ||
         xFail(byteText(pFrame.fOffset + kFrameHeaderBytes) + "the frame's pixels are damaged");
}

RecordingReader::Result RecordingReader::read(const Frame& pFrame, int pStream, OXImage& pImage) {
  const OXVideoStream& stream = getStream(pStream);
  // Format and room before the first byte is read: pixels go straight into the image.
  if (pFrame.fPayloadBytes != stream.fFrameBytes) {
    xFail(byteText(pFrame.fOffset) + "a frame of " + std::to_string(pFrame.fPayloadBytes) +
          " bytes; its stream has frames of " + std::to_string(stream.fFrameBytes));
    return Result::kUnreadable;
  }
  if (!pImage.fData || pImage.fCapacityBytes < pFrame.fPayloadBytes) {
    xFail(byteText(pFrame.fOffset) + "a frame of " + std::to_string(pFrame.fPayloadBytes) +
          " bytes; the image has room for " +
          std::to_string(pImage.fData ? pImage.fCapacityBytes : 0));
    return Result::kNoRoom;
  }
  FrameHeader header;
  if (!xReadFrameHeader(pFrame, pStream, header) || !xReadPixels(pFrame, header, pImage.fData))
    return Result::kUnreadable;
  // Last, so that a failure leaves the fields unchanged.
  pImage.fWidth = stream.fWidth;
  pImage.fHeight = stream.fHeight;
  pImage.setColorSpace(stream.fColorSpace);
  pImage.fTimeStamp = header.fTimeStamp;
  pImage.fCameraId = header.fCameraId;
  pImage.fLeftAngle = header.fAngles[0];
  pImage.fTopAngle = header.fAngles[1];
  pImage.fRightAngle = header.fAngles[2];
  pImage.fBottomAngle = header.fAngles[3];
  return Result::kDone;
}

bool RecordingReader::readBytes(const Frame& pFrame, int pStream,
                                std::vector<unsigned char>& pBytes) {
  FrameHeader header;
  if (!xReadFrameHeader(pFrame, pStream, header)) return false;
  pBytes.resize(pFrame.fPayloadBytes);
  fAngles = header.fAngles;
  return xReadPixels(pFrame, header, pBytes.data());
}

}  // namespace OX::detail
