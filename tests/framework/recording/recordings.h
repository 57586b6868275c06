/// Recordings for tests, in a temporary folder, and frames described as text.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include <oxframework/oxdefinitions.h>
#include <oxframework/oxvideo.h>

namespace OX::test {

using Octets = std::vector<unsigned char>;

/// A new empty folder, removed with its owner.
class Folder {
 public:
  Folder() {
    std::string name = (std::filesystem::temp_directory_path() / "oxvideo-XXXXXX").string();
    if (!::mkdtemp(name.data())) throw std::runtime_error("no temporary folder");
    fPath = name;
  }
  ~Folder() {
    std::error_code ignored;
    std::filesystem::remove_all(fPath, ignored);
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  std::string operator/(const std::string& pName) const { return (fPath / pName).string(); }

 private:
  std::filesystem::path fPath;
};

inline Octets contentOf(const std::string& pPath) {
  std::ifstream file(pPath, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

inline void store(const std::string& pPath, const Octets& pBytes) {
  // A new file, since file systems flush a file that is truncated and closed, which takes time.
  std::filesystem::remove(pPath);
  std::ofstream file(pPath, std::ios::binary);
  file.write(reinterpret_cast<const char*>(pBytes.data()),
             static_cast<std::streamsize>(pBytes.size()));
}

/// A stream small enough to try every byte of a file: 4 x 2 pixels of 3 bytes.
inline const streamHeader kTiny{4, 2, kRGB, 8};
inline constexpr int kTinyBytes = 24;

/// Different for each frame and each byte.
inline Octets pixelsOf(int pFrame, int pSize) {
  Octets pixels(static_cast<std::size_t>(pSize));
  for (std::size_t i = 0; i < pixels.size(); ++i)
    pixels[i] = static_cast<unsigned char>(pFrame * 37 + static_cast<int>(i) * 11 + 5);
  return pixels;
}

inline std::int64_t stampOf(int pFrame) { return 1'600'000'000'000'000 + pFrame * 33'333LL; }

inline bool append(OXVideo& pVideo, int pFrame, int pSize = kTinyBytes) {
  return pVideo.write(pixelsOf(pFrame, pSize).data(), pSize, stampOf(pFrame),
                      static_cast<std::int8_t>(pFrame % 5 - 2), 0.5f, float(pFrame), -1.0f, 2.0f);
}

/// A closed recording of pFrames frames, to the streams in turn.
inline void record(const std::string& pPath, int pFrames,
                   const std::vector<streamHeader>& pStreams = {kTiny}) {
  OXVideo video;
  if (!video.recordVideo(pPath, 0, pStreams)) throw std::runtime_error(video.getLastError());
  for (int i = 0; i < pFrames; ++i)
    if (!append(video, i)) throw std::runtime_error(video.getLastError());
  video.closeVideo();
}

/// An image with more room than a tiny frame needs, its pixels all 0xEE.
inline OXImage& blank(OXImage& pImage) {
  std::fill_n(pImage.fData, pImage.fCapacityBytes, static_cast<unsigned char>(0xEE));
  pImage.fTimeStamp = -7;
  return pImage;
}

/// "frame 3" when the image is exactly what append() wrote for that frame, otherwise what differs.
inline std::string describe(const OXImage& pImage) {
  if (pImage.fTimeStamp == -7) return "untouched";
  const auto frame = static_cast<int>((pImage.fTimeStamp - stampOf(0)) / 33'333);
  const std::string name = "frame " + std::to_string(frame);
  if (pImage.fTimeStamp != stampOf(frame)) return "stamp " + std::to_string(pImage.fTimeStamp);
  if (pImage.fWidth != 4 || pImage.fHeight != 2 || pImage.fNbLayers != 3 ||
      pImage.fColorSpace != kRGB)
    return name + " with another format";
  if (pImage.fCameraId != frame % 5 - 2) return name + " with another camera";
  if (pImage.fLeftAngle != 0.5f || pImage.fTopAngle != float(frame) ||
      pImage.fRightAngle != -1.0f || pImage.fBottomAngle != 2.0f)
    return name + " with other angles";
  const Octets pixels = pixelsOf(frame, kTinyBytes);
  if (!std::equal(pixels.begin(), pixels.end(), pImage.fData)) return name + " with other pixels";
  if (pImage.fData[kTinyBytes] != 0xEE) return name + " and a byte too many";
  return name;
}

}  // namespace OX::test
