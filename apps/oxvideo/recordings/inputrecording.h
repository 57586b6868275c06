/// A recording that a verb reads: OXVideo with exceptions for its failures, whose texts they carry,
/// and with the size of each image. The bytes of the file are the framework's business.
///
/// A stream has one format, but not all of its frames need to have its size: a recorder writes what
/// the camera delivers, and a camera is raised when another subscriber wants more.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include <oxframework/oxvideo.h>
#include "media/cameraimage.h"
#include "media/framesize.h"

namespace OX::cli {

/// One thread only.
class OXInputRecording {
 public:
  /// Throws OXFailure that says why the file can't be read, and what to do about it.
  explicit OXInputRecording(const std::string& pPath);

  OXVideo& video() { return fVideo; }
  const OXVideo& video() const { return fVideo; }
  const std::string& path() const { return fPath; }

  int streams() const { return fVideo.getNumberOfStreams(); }
  /// Number of images in one stream, and in all.
  int images(int pStream) const { return fVideo.getStream(pStream).fNumberOfImages; }
  int allImages() const;
  /// Throws OXUsageError for a stream that the file lacks.
  void requireStream(int pStream) const;

  /// The size that the stream's header states.
  FrameSize streamSize(int pStream) const;
  /// The size of an image, told by the number of its bytes without reading them: the stream's, or
  /// the camera size in the stream's colour space that has as many, if the stream has one itself.
  /// Nothing when none has.
  std::optional<FrameSize> imageSize(int pIndex, int pStream) const;

  /// The frame's bytes, valid until the next call; null when it is damaged or no image. error()
  /// then says why.
  const std::vector<unsigned char>* bytes(int pIndex, int pStream);
  /// The same with its description; pixels is null where bytes() is, and valid as long.
  CameraImage image(int pIndex, int pStream);
  const std::string& error() const { return fError; }

 private:
  const std::string fPath;
  OXVideo fVideo;
  std::vector<unsigned char> fBytes;
  std::string fError;
};

/// Throws OXUsageError when a verb would overwrite its own input.
void requireDifferentFiles(const std::string& pInput, const std::string& pOutput);

}  // namespace OX::cli
