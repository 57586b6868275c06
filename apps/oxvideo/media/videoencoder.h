/// Writes a video file frame by frame, each at its own time.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "media/cameraimage.h"

namespace OX::cli {

struct EncoderOptions {
  std::string path;   ///< named in messages; the extension selects the container
  std::string file;   ///< where to write, whatever its name is
  std::string codec;  ///< "ffv1", "h264", or "" for the default of the container
  int width = 0;
  int height = 0;
  int colorSpace = 0;
  double fps = 0;                    ///< a hint for players; 0: unknown
  std::int64_t usualIntervalUs = 0;  ///< how long the last frame is shown
  std::int64_t startUs = 0;          ///< time stamp of the first frame, stored as the creation date
};

/// Throws OXUsageError when no video file can have that name or hold the codec.
void checkVideoFile(const std::string& pPath, const std::string& pCodec);

/// FFV1 keeps every byte of kYUV422 and the other formats in planes.h; H.264 is lossy.
/// One thread only. All failures throw OXFailure with the name of the file.
class OXVideoEncoder {
 public:
  explicit OXVideoEncoder(const EncoderOptions& pOptions);
  /// Closes the file; without finish() it is not complete.
  ~OXVideoEncoder();
  OXVideoEncoder(const OXVideoEncoder&) = delete;
  OXVideoEncoder& operator=(const OXVideoEncoder&) = delete;

  /// Adds an image of the colour space given in the options; one of another size is scaled.
  void add(const CameraImage& pImage);
  void finish();

  /// Frames that had to be moved because their stamp was not later than the one before, in the
  /// container's unit of time.
  int moved() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> fImpl;
};

}  // namespace OX::cli
