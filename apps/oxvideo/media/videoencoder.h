/// A video file that is being made, frame by frame, each at its own time.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "media/cameraimage.h"

namespace OX::cli {

struct EncoderOptions {
  std::string path;   ///< its ending says what kind of file it is
  std::string codec;  ///< "ffv1", "h264", or "" for what suits the ending
  int width = 0;
  int height = 0;
  int colorSpace = 0;
  double fps = 0;                    ///< for players that want to know; 0: unknown
  std::int64_t usualIntervalUs = 0;  ///< how long the last frame is shown
  std::int64_t startUs = 0;          ///< time stamp of the first frame; noted as its date
};

/// FFV1 keeps every byte of kYUV422 and the other formats in planes.h; H.264 is for looking at.
/// One thread only. Everything throws OXFailure with the file's name.
class OXVideoEncoder {
 public:
  explicit OXVideoEncoder(const EncoderOptions& pOptions);
  /// Takes a file away that was not finished.
  ~OXVideoEncoder();
  OXVideoEncoder(const OXVideoEncoder&) = delete;
  OXVideoEncoder& operator=(const OXVideoEncoder&) = delete;

  /// A frame of the size and colour space of the wishes.
  void add(const CameraImage& pImage);
  void finish();

  /// Frames whose stamps did not rise by at least the file's own unit and were moved behind the
  /// frame before.
  int moved() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> fImpl;
};

}  // namespace OX::cli
