// libyuv has no direct conversion between YUY2 and 24-bit RGB: both directions go through 32-bit
// pixels, here in strips that stay in the first-level cache.
#include <libyuv.h>

#include <memory>
#include <vector>

#include "peers.h"

namespace OX::benchmarks {
namespace {

constexpr int kStripRows = 8;

using Strip = std::shared_ptr<std::vector<unsigned char>>;

Strip makeStrip(int pWidth, int pRows) {
  return std::make_shared<std::vector<unsigned char>>(std::size_t{4} * pWidth * pRows);
}

/// YUY2 to 24 bits by way of 32 bits. pPack is ARGBToRAW or ARGBToRGB24.
template <typename Pack>
void toPacked(const Job& pJob, const unsigned char* pSource, unsigned char* pStrip, Pack pPack) {
  for (int y = 0; y < pJob.height; y += kStripRows) {
    libyuv::YUY2ToARGB(pSource + 2 * y * pJob.width, 2 * pJob.width, pStrip, 4 * pJob.width,
                       pJob.width, kStripRows);
    pPack(pStrip, 4 * pJob.width, pJob.destination + 3 * y * pJob.width, 3 * pJob.width, pJob.width,
          kStripRows);
  }
}

template <typename Pack>
Run toPackedRun(const Job& pJob, Pack pPack) {
  Strip strip = makeStrip(pJob.width, kStripRows);
  if (!pJob.resizes()) {
    return [=] { toPacked(pJob, pJob.source, strip->data(), pPack); };
  }
  // Four bytes of YUY2 serve as a 32-bit pixel: decimation first, then conversion of what is left.
  Strip small = makeStrip(pJob.width / 2, pJob.height);
  return [=] {
    libyuv::ARGBScale(pJob.source, 2 * pJob.sourceWidth, pJob.sourceWidth / 2, pJob.sourceHeight,
                      small->data(), 2 * pJob.width, pJob.width / 2, pJob.height,
                      libyuv::kFilterNone);
    toPacked(pJob, small->data(), strip->data(), pPack);
  };
}

Run sameSizeFromRGB(const Job& pJob) {
  Strip strip = makeStrip(pJob.width, kStripRows);
  return [=] {
    for (int y = 0; y < pJob.height; y += kStripRows) {
      libyuv::RAWToARGB(pJob.source + 3 * y * pJob.width, 3 * pJob.width, strip->data(),
                        4 * pJob.width, pJob.width, kStripRows);
      libyuv::ARGBToYUY2(strip->data(), 4 * pJob.width, pJob.destination + 2 * y * pJob.width,
                         2 * pJob.width, pJob.width, kStripRows);
    }
  };
}

/// Only the rows that are kept are unpacked, then thinned out, then converted.
Run smallerFromRGB(const Job& pJob) {
  const int ratio = pJob.sourceWidth / pJob.width;
  Strip wide = makeStrip(pJob.sourceWidth, kStripRows);
  Strip strip = makeStrip(pJob.width, kStripRows);
  return [=] {
    for (int y = 0; y < pJob.height; y += kStripRows) {
      libyuv::RAWToARGB(pJob.source + 3 * y * ratio * pJob.sourceWidth,
                        3 * ratio * pJob.sourceWidth, wide->data(), 4 * pJob.sourceWidth,
                        pJob.sourceWidth, kStripRows);
      libyuv::ARGBScale(wide->data(), 4 * pJob.sourceWidth, pJob.sourceWidth, kStripRows,
                        strip->data(), 4 * pJob.width, pJob.width, kStripRows, libyuv::kFilterNone);
      libyuv::ARGBToYUY2(strip->data(), 4 * pJob.width, pJob.destination + 2 * y * pJob.width,
                         2 * pJob.width, pJob.width, kStripRows);
    }
  };
}

Run largerFromRGB(const Job& pJob) {
  Strip small = makeStrip(pJob.sourceWidth, pJob.sourceHeight);
  Strip large = makeStrip(pJob.width, pJob.height);
  return [=] {
    libyuv::RAWToARGB(pJob.source, 3 * pJob.sourceWidth, small->data(), 4 * pJob.sourceWidth,
                      pJob.sourceWidth, pJob.sourceHeight);
    libyuv::ARGBScale(small->data(), 4 * pJob.sourceWidth, pJob.sourceWidth, pJob.sourceHeight,
                      large->data(), 4 * pJob.width, pJob.width, pJob.height, libyuv::kFilterNone);
    libyuv::ARGBToYUY2(large->data(), 4 * pJob.width, pJob.destination, 2 * pJob.width, pJob.width,
                       pJob.height);
  };
}

Run fromRGBRun(const Job& pJob) {
  if (!pJob.resizes()) return sameSizeFromRGB(pJob);
  return pJob.width < pJob.sourceWidth ? smallerFromRGB(pJob) : largerFromRGB(pJob);
}

Run lumaRun(const Job& pJob) {
  if (pJob.resizes()) return {};
  return [=] {
    libyuv::YUY2ToY(pJob.source, 2 * pJob.width, pJob.destination, pJob.width, pJob.width,
                    pJob.height);
  };
}

}  // namespace

Run libyuvRun(const Job& pJob) {
  switch (pJob.kind) {
    case Job::kToRGB:
      return toPackedRun(pJob, libyuv::ARGBToRAW);
    case Job::kToBGR:
      return toPackedRun(pJob, libyuv::ARGBToRGB24);
    case Job::kToLuma:
      return lumaRun(pJob);
    case Job::kFromRGB:
      return fromRGBRun(pJob);
    default:
      return {};
  }
}

}  // namespace OX::benchmarks
