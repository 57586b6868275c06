// Fuzzes the reader of .oxv files with arbitrary bytes. After most mutations the checksums are
// corrected: otherwise nearly all inputs would be rejected at the first checksum.
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>

#include <oxframework/oxdefinitions.h>
#include <oxframework/oxlog.h>
#include <oxframework/oxvideo.h>
#include "recording/format.h"

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* pData, std::size_t pSize,
                                        std::size_t pMaxSize);

namespace {

using namespace OX;

constexpr std::size_t kFileHeader = 64;    // of a file with one stream
constexpr std::size_t kImageBytes = 4096;  // more than any frame of the corpus

std::uint64_t take64(const std::uint8_t* pFrom) {
  std::uint64_t value = 0;
  std::memcpy(&value, pFrom, sizeof value);
  return value;
}

void put64(std::uint8_t* pTo, std::uint64_t pValue) { std::memcpy(pTo, &pValue, sizeof pValue); }

/// Encodes the frame header at pData again, so that its checksums match its fields.
void sealFrame(std::uint8_t* pData, std::size_t pSize, std::uint64_t pFileId) {
  detail::FrameHeader header;
  std::memcpy(&header.fPayloadBytes, pData + 4, 4);
  std::memcpy(&header.fSequence, pData + 8, 4);
  std::memcpy(&header.fStream, pData + 12, 2);
  std::memcpy(&header.fCameraId, pData + 14, 1);
  std::memcpy(&header.fTimeStamp, pData + 16, 8);
  std::memcpy(header.fAngles.data(), pData + 24, 16);
  const std::size_t room = pSize - detail::kFrameHeaderBytes;
  header.fPayloadChecksum = detail::checksumOf(pData + detail::kFrameHeaderBytes,
                                               std::min<std::size_t>(header.fPayloadBytes, room));
  const auto bytes = detail::encodeFrameHeader(header, pFileId);
  std::copy(bytes.begin(), bytes.end(), pData);
}

void sealIndex(std::uint8_t* pData, std::size_t pSize, std::uint64_t pFileId) {
  if (pSize < detail::kTrailerBytes) return;
  std::uint8_t* trailer = pData + pSize - detail::kTrailerBytes;
  const std::uint64_t start = take64(trailer);
  const std::uint64_t entries = take64(trailer + 8);
  const std::size_t end = pSize - detail::kTrailerBytes;
  if (start > end || end - start < detail::kIndexMarkerBytes) return;
  detail::Checksum checksum(pFileId);
  checksum.add(pData + start + detail::kIndexMarkerBytes, end - start - detail::kIndexMarkerBytes);
  detail::addTrailerFields(checksum, start, entries);
  put64(trailer + 16, checksum.get());
}

void seal(std::uint8_t* pData, std::size_t pSize) {
  if (pSize < kFileHeader) return;
  std::uint32_t streams = 0;
  std::memcpy(&streams, pData + 24, 4);
  const std::size_t header =
      detail::fileHeaderBytes(std::clamp<std::size_t>(streams, 1, detail::kMaxStreams));
  if (header <= pSize) put64(pData + header - 8, detail::checksumOf(pData, header - 8));
  const std::uint64_t id = take64(pData + 16);
  for (std::size_t at = kFileHeader; at + detail::kFrameHeaderBytes <= pSize; ++at)
    if (std::equal(detail::kFrameMarker.begin(), detail::kFrameMarker.end(), pData + at))
      sealFrame(pData + at, pSize - at, id);
  sealIndex(pData, pSize, id);
}

/// One file in memory for the whole run, which the reader opens by a path as any other.
class MemoryFile {
 public:
  MemoryFile() : fDescriptor(::memfd_create("fuzz.oxv", MFD_CLOEXEC)) {
    if (fDescriptor < 0) std::abort();
    fPath = "/proc/self/fd/" + std::to_string(fDescriptor);
  }
  const std::string& store(const std::uint8_t* pData, std::size_t pSize) const {
    if (::ftruncate(fDescriptor, 0) != 0 ||
        ::pwrite(fDescriptor, pData, pSize, 0) != static_cast<ssize_t>(pSize))
      std::abort();
    return fPath;
  }

 private:
  int fDescriptor;
  std::string fPath;
};

void require(bool pHolds) {
  if (!pHolds) std::abort();
}

/// What must hold for every image that the reader returns, whatever the file.
void check(const OXImage& pImage, const OXVideoStream& pStream) {
  require(pImage.fWidth == pStream.fWidth && pImage.fHeight == pStream.fHeight);
  require(pImage.getSizeBytes() == static_cast<std::size_t>(pStream.fFrameBytes));
  require(pImage.getSizeBytes() <= pImage.fCapacityBytes);
}

void readAll(OXVideo& pVideo, OXImage& pImage) {
  for (int stream = 0; stream < pVideo.getNumberOfStreams(); ++stream) {
    const OXVideoStream format = pVideo.getStream(stream);
    require(format.fColorSpace >= 0 && format.fColorSpace <= 255);
    for (int i = 0; i < format.fNumberOfImages; ++i) {
      if (pVideo.getFrame(pImage, i, stream, false)) check(pImage, format);
      require(pVideo.getFrameInfo(i, stream).has_value());
    }
    if (pVideo.getPrecedingFrame(pImage, false)) require(pVideo.getCurrentImage() >= 0);
    std::vector<unsigned char> bytes;
    pVideo.readFrameBytes(0, stream, bytes);
    for (const int wrong : {-1, format.fNumberOfImages, std::numeric_limits<int>::max()})
      require(!pVideo.getFrame(pImage, wrong, stream, false));
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  ki::log::setLevel(0);
  return 0;
}

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* pData, std::size_t pSize,
                                               std::size_t pMaxSize, unsigned int pSeed) {
  const std::size_t size = LLVMFuzzerMutate(pData, pSize, pMaxSize);
  if (pSeed % 4 != 0) seal(pData, size);
  return size;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t pSize) {
  static const MemoryFile file;
  static OXImage image(1, static_cast<int>(kImageBytes), kYuv, false, 0, 0, 0, 0);
  OXVideo video;
  if (video.readVideo(file.store(pData, pSize)))
    readAll(video, image);
  else
    require(!video.getLastError().empty());
  return 0;
}
