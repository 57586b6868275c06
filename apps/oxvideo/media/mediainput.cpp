// A name that is a file is that file, whatever it looks like: "50%d.png" may exist.
#include "media/mediainput.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <string_view>

#include "media/ffmpeg.h"
#include "media/pictures.h"
#include "terminal/exitstatus.h"
#include "terminal/text.h"

namespace OX::cli {

namespace {

using namespace std::string_view_literals;

constexpr std::array kLiveSchemes{"rtsp"sv, "rtsps"sv, "rtmp"sv, "rtmps"sv,
                                  "rtp"sv,  "udp"sv,   "srt"sv,  "mms"sv};

bool isDevice(const AVInputFormat* pFormat) {
  const AVInputFormat* device = nullptr;
  while ((device = av_input_video_device_next(device)))
    if (device == pFormat) return true;
  return false;
}

MediaKind kindOfFile(const std::string& pPath) {
  struct stat status {};
  if (::stat(pPath.c_str(), &status) != 0) {
    if (pPath.starts_with("/dev/video")) return MediaKind::kWebcam;
    return isPicturePattern(pPath) ? MediaKind::kPictures : MediaKind::kFile;
  }
  if (S_ISDIR(status.st_mode)) return MediaKind::kPictures;
  if (S_ISFIFO(status.st_mode)) return MediaKind::kPipe;
  return S_ISCHR(status.st_mode) && pPath.starts_with("/dev/video") ? MediaKind::kWebcam
                                                                    : MediaKind::kFile;
}

}  // namespace

MediaKind mediaKind(const std::string& pSource, const MediaOptions& pOptions) {
  avdevice_register_all();
  if (!pOptions.format.empty()) {
    const AVInputFormat* format = av_find_input_format(pOptions.format.c_str());
    if (!format)
      throw OXUsageError(
          fmt::format("unknown input format {}: \"ffmpeg -demuxers\" and \"ffmpeg "
                      "-devices\" list what there is",
                      printable(pOptions.format)));
    if (pOptions.format == "lavfi") return MediaKind::kGraph;
    if (isDevice(format)) return MediaKind::kWebcam;
  }
  if (pSource == "test") return MediaKind::kTest;
  if (pSource.starts_with("lavfi:")) return MediaKind::kGraph;
  if (pSource == "-") return MediaKind::kPipe;
  if (const auto end = pSource.find("://"); end != std::string::npos)
    return std::ranges::count(kLiveSchemes, std::string_view(pSource).substr(0, end))
               ? MediaKind::kLive
               : MediaKind::kUrl;
  return kindOfFile(pSource);
}

}  // namespace OX::cli
