// swscale converts and resizes in one call. Point sampling is its fastest way, and the one that
// takes the same pixels as ours.
extern "C" {
#include <libswscale/swscale.h>
}

#include <memory>

#include "peers.h"

namespace OX::benchmarks {
namespace {

struct Formats {
  AVPixelFormat source, destination;
  int sourceBytes, destinationBytes;  // per pixel
};

bool formatsOf(Job::Kind pKind, Formats& pFormats) {
  switch (pKind) {
    case Job::kToRGB:
      pFormats = {AV_PIX_FMT_YUYV422, AV_PIX_FMT_RGB24, 2, 3};
      return true;
    case Job::kToBGR:
      pFormats = {AV_PIX_FMT_YUYV422, AV_PIX_FMT_BGR24, 2, 3};
      return true;
    case Job::kToLuma:
      pFormats = {AV_PIX_FMT_YUYV422, AV_PIX_FMT_GRAY8, 2, 1};
      return true;
    case Job::kFromRGB:
      pFormats = {AV_PIX_FMT_RGB24, AV_PIX_FMT_YUYV422, 3, 2};
      return true;
    default:
      return false;
  }
}

}  // namespace

Run swscaleRun(const Job& pJob) {
  Formats formats{};
  if (!formatsOf(pJob.kind, formats)) return {};
  std::shared_ptr<SwsContext> context(
      sws_getContext(pJob.sourceWidth, pJob.sourceHeight, formats.source, pJob.width, pJob.height,
                     formats.destination, SWS_POINT, nullptr, nullptr, nullptr),
      sws_freeContext);
  if (!context) return {};
  return [=] {
    const int sourceRow = formats.sourceBytes * pJob.sourceWidth;
    const int destinationRow = formats.destinationBytes * pJob.width;
    sws_scale(context.get(), &pJob.source, &sourceRow, 0, pJob.sourceHeight, &pJob.destination,
              &destinationRow);
  };
}

}  // namespace OX::benchmarks
