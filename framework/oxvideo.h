/// Recordings of raw frames, the .oxv file: its writer and its reader.
///
/// A file holds one or more streams, each of one image format, and frames with their pixels as
/// received, time stamp, camera and angles. The layout is in docs/oxv-format.md.
/// One OXVideo has at most one file open, for writing or for reading. One thread at a time, except
/// getCurrentImage(), which any thread may call.
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
class RecordingReader;
class RecordingWriter;
}  // namespace detail

/// The format of one stream, as stored in the file.
struct streamHeader {
  int width;       ///< pixels
  int height;      ///< pixels
  int colorSpace;  ///< identifier
  int pixelDepth;  ///< bits of a sample, always 8
};
static_assert(sizeof(streamHeader) == 16);

/// The description of a stream of an open file.
struct OXVideoStream {
  int fWidth = -1;        ///< pixels, as the file says
  int fHeight = -1;       ///< pixels, as the file says
  int fColorSpace = 255;  ///< identifier; 255 when the file's is outside 0..254
  int fResolution = -1;   ///< by exact size, else -1
  std::int64_t fFrameBytes =
      0;  ///< of each frame in the stream's format; 0 when no frame can have it
  int fNumberOfImages = 0;
};

/// A frame's position in the file, and what is known of it without reading its pixels.
struct OXVideoFrame {
  std::int64_t fOffset = 0;     ///< of its header, in bytes
  std::int64_t fTimeStamp = 0;  ///< microseconds
  std::int64_t fPayloadBytes = 0;
  std::int64_t fSequence = 0;  ///< its number among all frames that were written, from 0
  std::int8_t fCameraId = 0;
};

/// A range of the file that should hold whole frames and does not.
struct OXVideoDamage {
  std::int64_t fOffset = 0;
  std::int64_t fBytes = 0;
  const char* fText = "";  ///< a constant
};

/// Failures return false and never throw; getLastError() has the text. A file that cannot be
/// opened, a recording that ends because the disk is full, and damage found when opening are
/// logged, each as one record; so is the first damaged frame of an open file, while further ones
/// only return false.
class OX_API OXVideo {
 public:
  OXVideo();
  /// Only closes the file: a recording that was not closed keeps its frames but has no index.
  ~OXVideo();
  OXVideo(const OXVideo&) = delete;
  OXVideo& operator=(const OXVideo&) = delete;

  // Writing -------------------------------------------------------------------------------------

  /// Starts a recording with 1 to 64 streams, after closing an open file. pPeriod is stored in the
  /// file for its readers.
  /// Writes only to regular files, not through a symbolic link, and not while another recorder has
  /// the file open. Refuses an existing file that is neither empty nor an .oxv file.
  bool recordVideo(const std::string& pPath, unsigned int pPeriod,
                   const std::vector<streamHeader>& pStreams);

  /// Appends one frame of pSize bytes, 1 or more; angles in radians. Frames go to the streams in
  /// turn: the first to stream 0, the next to stream 1, and so on. When it returns true, the frame
  /// survives a crash of this process. The first failure (disk full, file too large) removes the
  /// partial frame and ends the recording, which is whole up to the frame before; every later call
  /// returns false. Also false when no recording is open.
  bool write(const void* pData, int pSize, std::int64_t pTimeStamp, std::int8_t pCameraId,
             float pLeftAngle, float pTopAngle, float pRightAngle, float pBottomAngle);

  /// Ends a recording with its index, or closes a file that is being read. Harmless when none is
  /// open.
  void closeVideo();

  // Reading -------------------------------------------------------------------------------------

  /// Opens a file, after closing an open one. Uses the index at its end, or scans the file for
  /// frames when the index is missing or damaged. The position is before the first image.
  bool readVideo(const std::string& pPath);

  /// Read the pixels and fields of an image into pImage: the one after the last one read, the one
  /// before it, or number pIndex (from 0) of a stream, which becomes the current stream. Indexes
  /// count the images of one stream. Allocate nothing.
  /// False when there is no such image, when it is damaged or its size does not match the stream's
  /// format, and when pImage is too small; pImage is then unchanged, except that damaged pixels are
  /// detected only after they were copied.
  /// An unreadable image still counts as read, so that the next call continues after it; not so
  /// when pImage is too small. pFirst has no effect: every read sets the image's format.
  bool getNextFrame(OXImage& pImage, bool pFirst);
  bool getPrecedingFrame(OXImage& pImage, bool pFirst);
  bool getFrame(OXImage& pImage, int pIndex, int pStream, bool pFirst);

  /// The number of images of the current stream (stream 0 at first); 0 when no file is being read.
  int getNumberOfImages() const;
  int getNumberOfStreams() const;
  /// The description of a stream; a default OXVideoStream when it does not exist.
  OXVideoStream getStream(int pStream) const;
  /// The index of the last image read, -1 before the first. Thread-safe.
  int getCurrentImage() const { return fCurrentImage.load(); }
  /// An image's time stamp in microseconds, or its frame's description, without reading the file.
  std::optional<std::int64_t> getTimeStamp(int pIndex, int pStream) const;
  std::optional<OXVideoFrame> getFrameInfo(int pIndex, int pStream) const;

  // For tools that check and repair files ---------------------------------------------------------

  /// Reads and checks the bytes of a frame of any size; resizes pBytes. The position does not
  /// change. False as for getFrame().
  bool readFrameBytes(int pIndex, int pStream, std::vector<unsigned char>& pBytes);
  /// The angles of the frame that readFrameBytes() last read: left, top, right, bottom, in radians.
  std::vector<float> getFrameAngles() const;
  /// The streams as stored in the file, and the period stored by the recorder.
  std::vector<streamHeader> getStreamHeaders() const;
  unsigned int getPeriod() const;
  /// Whether the file was closed by its recorder and has a valid index.
  bool hasIndex() const;
  /// The damage found when opening, in the order of the file.
  std::vector<OXVideoDamage> getDamage() const;

  /// The last failure: path, offset in the file where there is one, and reason.
  const std::string& getLastError() const { return fLastError; }

 private:
  bool xFail(const std::string& pText);
  bool xRead(OXImage& pImage, std::int64_t pIndex, int pStream);

  std::unique_ptr<detail::RecordingWriter> fWriter;
  std::unique_ptr<detail::RecordingReader> fReader;
  std::string fLastError;
  std::atomic<int> fCurrentImage{-1};
  int fCurrentStream = 0;
  bool fUnreadableLogged = false;
};

}  // namespace OX
