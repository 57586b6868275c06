/// Recordings of raw frames, the .oxv file: its writer and its reader.
///
/// A file holds one or more streams, each of one image format, and frames with their pixels as
/// they came: time stamp, camera and angles beside them. The layout is in docs/oxv-format.md.
/// One OXVideo has at most one file open, for writing or for reading, and belongs to whoever
/// made it. One thread at a time, but for getCurrentImage(), which any thread may call.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "oxapi.h"
#include "oximage.h"

namespace OX {

namespace detail {
class OXVideoReader;
class OXVideoWriter;
}  // namespace detail

/// The format of one stream, as it stands in the file.
struct streamHeader {
  int width;       ///< pixels
  int height;      ///< pixels
  int colorSpace;  ///< identifier
  int pixelDepth;  ///< bits of a sample, always 8
};
static_assert(sizeof(streamHeader) == 16);

/// What a reader knows of a stream once the file is open.
struct OXVideoStream {
  int fWidth = -1;               ///< pixels, as the file says
  int fHeight = -1;              ///< pixels, as the file says
  int fColorSpace = 255;         ///< identifier; 255 when the file's is outside 0..254
  int fResolution = -1;          ///< by exact size, else -1
  std::int64_t fFrameBytes = 0;  ///< of each frame that fits the stream; 0: none can
  int fNumberOfImages = 0;
};

/// Where a frame is in the file, and what is known of it without reading its pixels.
struct OXVideoFrame {
  std::int64_t fOffset = 0;     ///< byte of the file where its header starts
  std::int64_t fTimeStamp = 0;  ///< microseconds
  std::int64_t fPayloadBytes = 0;
  std::int64_t fSequence = 0;  ///< its place among all frames that were written, from 0
  std::int8_t fCameraId = 0;
};

/// A stretch of the file that holds no whole frame though it should.
struct OXVideoDamage {
  std::int64_t fOffset = 0;
  std::int64_t fBytes = 0;
  const char* fText = "";  ///< a constant
};

/// Failures are false and never thrown; getLastError() has the text. A file that can't be opened,
/// the end of a recording by a full disk and damage that opening finds are each one record of the
/// log; so is the first damaged frame of an opened file, the others are only answered with false.
class OX_API OXVideo {
 public:
  OXVideo();
  /// Closes the descriptor only: a recording that was not closed stays as it is, without index.
  ~OXVideo();
  OXVideo(const OXVideo&) = delete;
  OXVideo& operator=(const OXVideo&) = delete;

  // Writing -------------------------------------------------------------------------------------

  /// Starts a recording with 1 to 64 streams; closes a file that is open. pPeriod is noted in the
  /// file and means nothing to it.
  /// Only a regular file is written, not through a symbolic link and not while another recorder
  /// has it; one that is neither empty nor an .oxv file is refused and left alone.
  bool recordVideo(const std::string& pPath, unsigned int pPeriod,
                   const std::vector<streamHeader>& pStreams);

  /// Appends one frame of pSize bytes, 1 or more. Frames go to the streams in turn: the first to
  /// stream 0, the next to stream 1, and so on round. On true the frame survives this process.
  /// The first failure (full disk, too big a file) takes away the torn frame and ends the
  /// recording, the file is whole up to the frame before; every later call is false.
  /// Harmless and false when no recording is open.
  bool write(const void* pData, int pSize, std::int64_t pTimeStamp, std::int8_t pCameraId,
             float pLeftAngle, float pTopAngle, float pRightAngle, float pBottomAngle);

  /// Ends a recording with its index, or closes a file that is read. Nothing when none is open.
  void closeVideo();

  // Reading -------------------------------------------------------------------------------------

  /// Opens a file; closes one that is open. Takes the index at its end, or finds the frames by
  /// going through the file when the index is missing or damaged. Stands before the first image.
  bool readVideo(const std::string& pPath);

  /// Fill pImage with pixels and fields of an image: the one after that last read, the one before
  /// it, or the pIndex-th (from 0) of a stream, in which the reader then stays. Indexes count the
  /// stream's own images. Allocate nothing.
  /// False when there is no such image, when it is damaged or has another size than its stream's
  /// format asks for, and when pImage has no room for it; pImage is then untouched, except that
  /// damaged pixels are noticed only when they are in place.
  /// An existing image becomes the one last read also when it is unreadable, so that the next
  /// call goes on behind it; not so when pImage has no room.
  /// The flag is there for callers that tell their first reads apart; every read gives the image
  /// the frame's format.
  bool getNextFrame(OXImage& pImage, bool pFirst);
  bool getPrecedingFrame(OXImage& pImage, bool pFirst);
  bool getFrame(OXImage& pImage, int pIndex, int pStream, bool pFirst);

  /// Images of the stream that is being read (stream 0 at first); 0 when no file is read.
  int getNumberOfImages() const;
  int getNumberOfStreams() const;
  /// The description of a stream; one that doesn't exist is as a new OXVideoStream.
  OXVideoStream getStream(int pStream) const;
  /// Index of the image last read, -1 before the first. Any thread.
  int getCurrentImage() const { return fCurrentImage.load(); }
  /// An image's time stamp in microseconds, or its place, without reading the file.
  std::optional<std::int64_t> getTimeStamp(int pIndex, int pStream) const;
  std::optional<OXVideoFrame> getFrameInfo(int pIndex, int pStream) const;

  // For tools that check and mend files ---------------------------------------------------------

  /// The bytes of a frame whatever its stream's format, checked; resizes pBytes. The position
  /// stays. False as for getFrame.
  bool readFrameBytes(int pIndex, int pStream, std::vector<unsigned char>& pBytes);
  /// The four angles of the frame that readFrameBytes() last read: left, top, right, bottom.
  std::vector<float> getFrameAngles() const;
  /// The streams as they stand in the file, and the period noted by the recorder.
  std::vector<streamHeader> getStreamHeaders() const;
  unsigned int getPeriod() const;
  /// Whether the file was closed by its recorder and its index could be used.
  bool hasIndex() const;
  /// What opening found to be damaged, in the order of the file.
  std::vector<OXVideoDamage> getDamage() const;

  /// The last failure: path, byte of the file where there is one, and reason.
  const std::string& getLastError() const { return fLastError; }

 private:
  bool xFail(const std::string& pText);
  bool xRead(OXImage& pImage, std::int64_t pIndex, int pStream);

  std::unique_ptr<detail::OXVideoWriter> fWriter;
  std::unique_ptr<detail::OXVideoReader> fReader;
  std::string fLastError;
  std::atomic<int> fCurrentImage{-1};
  int fCurrentStream = 0;
  bool fUnreadableLogged = false;
};

}  // namespace OX
