/// Small video files made for tests: lossless, every pixel known.
#pragma once

extern "C" {
#include <libavutil/pixfmt.h>
#include <libavutil/rational.h>
}

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace OX::test {

using Rgb = std::array<int, 3>;

struct VideoFile {
  int width = 320;
  int height = 240;
  int frames = 3;
  int fps = 10;
  const char* codec = "ffv1";  ///< by name; png is decoded on several threads
  int damagedFrame = -1;       ///< of png: its width and height become 0
  AVPixelFormat format = AV_PIX_FMT_BGR0;
  AVColorSpace matrix = AVCOL_SPC_UNSPECIFIED;
  AVColorRange range = AVCOL_RANGE_UNSPECIFIED;
  AVRational pixelAspect = {1, 1};
  std::vector<std::int32_t> displayMatrix;  ///< nine numbers, or none
  /// The colour at a place (0 to 1 on both sides) of a frame; the four quadrants by default.
  std::function<Rgb(int pFrame, double pX, double pY)> color;
};

/// Red and green above blue and yellow.
extern const Rgb kQuadrants[4];
Rgb quadrantAt(double pX, double pY);

/// The container goes by the path's ending (.mkv, .mov). False when that fails.
bool writeVideo(const std::string& pPath, const VideoFile& pVideo);

/// Where the middle of each quadrant isn't what it should be, in words; empty when all are.
std::string quadrantFaults(const std::vector<unsigned char>& pRgb, int pWidth, int pHeight,
                           const Rgb (&pExpected)[4], int pTolerance);

}  // namespace OX::test
