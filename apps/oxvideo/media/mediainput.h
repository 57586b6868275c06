/// The kinds of sources that videos are read from.
#pragma once

#include <chrono>
#include <string>

namespace OX::cli {

/// What of a source to read, and how.
struct MediaOptions {
  int stream = -1;       ///< of its video streams, from 0; -1: the one that the library thinks best
  std::string format{};  ///< FFmpeg's name of the input format; empty: found by the content
  double pictureFps = 25;  ///< of a folder or pattern of pictures
  /// A source that sends nothing for so long has failed.
  std::chrono::milliseconds longestSilence{10000};
};

/// How sources differ in what the reader does.
enum class MediaKind {
  kTest,      ///< the moving test picture
  kGraph,     ///< "lavfi:" and a filter graph
  kWebcam,    ///< a device: frames come at its own pace
  kLive,      ///< a network stream that comes at its own pace, such as RTSP
  kUrl,       ///< other URLs, which are read like files
  kPipe,      ///< standard input or a named pipe
  kPictures,  ///< a folder or pattern of pictures
  kFile,
};

/// Looks at the name, and at the file if there is one. Throws OXUsageError for a format that FFmpeg
/// doesn't have.
MediaKind mediaKind(const std::string& pSource, const MediaOptions& pOptions);

/// Whether frames come at the source's own pace: those that nobody takes in time are lost.
inline bool isLive(MediaKind pKind) {
  return pKind == MediaKind::kWebcam || pKind == MediaKind::kLive;
}

}  // namespace OX::cli
