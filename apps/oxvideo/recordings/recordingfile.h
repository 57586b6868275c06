/// An .oxv file opened for a verb that reads it: failures are exceptions with the file's own text.
#pragma once

#include <string>
#include <vector>

#include <oxframework/oxvideo.h>
#include "media/cameraimage.h"

namespace OX::cli {

/// One thread only.
class OXRecordingFile {
 public:
  /// Throws OXFailure that says why the file can't be read.
  explicit OXRecordingFile(const std::string& pPath);

  OXVideo& video() { return fVideo; }
  const OXVideo& video() const { return fVideo; }
  const std::string& path() const { return fPath; }

  int streams() const { return fVideo.getNumberOfStreams(); }
  /// Images of one stream, and of all.
  int images(int pStream) const { return fVideo.getStream(pStream).fNumberOfImages; }
  int allImages() const;
  /// Throws OXUsageError for a stream that the file doesn't have.
  void requireStream(int pStream) const;

  /// The frame's bytes, valid until the next call; null when it is damaged or has not the size that
  /// its stream's format asks for. error() then says why.
  const std::vector<unsigned char>* bytes(int pIndex, int pStream);
  /// The same as an image that can be shown; pixels is null where bytes() is. The pixels stay ours
  /// until the next call.
  CameraImage image(int pIndex, int pStream);
  const std::string& error() const { return fError; }

 private:
  const std::string fPath;
  OXVideo fVideo;
  std::vector<unsigned char> fBytes;
  std::string fError;
};

/// Throws OXUsageError when a verb would overwrite the file that it reads.
void requireDifferentFiles(const std::string& pInput, const std::string& pOutput);

}  // namespace OX::cli
