/// The reading half of OXVideo: builds the table of frames, from the index or by a scan, and reads
/// single frames. Every size is checked against the file and the memory before it is used.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "file.h"
#include "format.h"

namespace OX::detail {

/// Owned by an OXVideo; one thread only. Keeps no position. Failures set the error text.
class RecordingReader {
 public:
  /// One frame of a stream, wholly inside the file as it was when opened.
  struct Frame {
    std::uint64_t fOffset;  ///< of its header
    std::int64_t fTimeStamp;
    std::uint32_t fPayloadBytes;
    std::uint32_t fSequence;
    std::int8_t fCameraId;
  };

  enum class Result {
    kDone,
    kNoRoom,     ///< the frame is good, but the image's memory is too small
    kUnreadable  ///< damaged, or not of its stream's format
  };

  bool open(const std::string& pPath);

  const FileHeader& getHeader() const { return fHeader; }
  int getNumberOfStreams() const { return static_cast<int>(fStreams.size()); }
  const OXVideoStream& getStream(int pStream) const { return fStreams[xIndex(pStream)]; }
  /// Null when there is no such frame.
  const Frame* find(std::int64_t pIndex, int pStream) const;
  bool hasIndex() const { return fHasIndex; }
  const std::vector<OXVideoDamage>& getDamage() const { return fDamage; }

  /// Fills an image; see OXVideo::getFrame.
  Result read(const Frame& pFrame, int pStream, OXImage& pImage);
  /// The payload of a frame of any size.
  bool readBytes(const Frame& pFrame, int pStream, std::vector<unsigned char>& pBytes);
  /// The angles of the frame that readBytes() last read.
  const std::array<float, 4>& getAngles() const { return fAngles; }

  const std::string& getError() const { return fError; }

 private:
  static std::size_t xIndex(int pIndex) { return static_cast<std::size_t>(pIndex); }
  bool xFail(const std::string& pText);
  bool xReadHeader(std::uint64_t pSize);
  void xDescribeStreams();
  bool xReadIndex(std::uint64_t pSize);
  bool xReadEntries(const Trailer& pTrailer);
  void xScan(std::uint64_t pSize);
  std::uint64_t xFindNextFrame(std::uint64_t pFrom, std::uint64_t pSize);
  bool xAddFrame(const Frame& pFrame, int pStream);
  void xClearFrames();
  void xNoteDamage(std::uint64_t pOffset, std::uint64_t pBytes, const char* pText);
  bool xReadFrameHeader(const Frame& pFrame, int pStream, FrameHeader& pHeader);
  bool xReadPixels(const Frame& pFrame, const FrameHeader& pHeader, unsigned char* pTo);

  RecordingFile fFile;
  FileHeader fHeader;
  std::uint64_t fFirstFrame = 0;  ///< offset of the first byte after the header
  std::vector<OXVideoStream> fStreams;
  std::vector<std::vector<Frame>> fFrames;  ///< by stream
  std::size_t fTotal = 0;
  std::vector<OXVideoDamage> fDamage;
  std::array<float, 4> fAngles{};
  Checksum fChecksum;  ///< a member, so that reading a frame allocates nothing
  std::string fError;
  bool fHasIndex = false;
};

}  // namespace OX::detail
