// GStreamer's video converter, as its videoconvert and videoscale elements use it, on one thread
// and with nearest-neighbour sampling, which is what our kernels do.
#include <gst/video/video.h>

#include <memory>

#include "peers.h"

namespace OX::benchmarks {
namespace {

bool formatsOf(Job::Kind pKind, GstVideoFormat& pSource, GstVideoFormat& pDestination) {
  pSource = GST_VIDEO_FORMAT_YUY2;
  switch (pKind) {
    case Job::kToRGB:
      pDestination = GST_VIDEO_FORMAT_RGB;
      return true;
    case Job::kToBGR:
      pDestination = GST_VIDEO_FORMAT_BGR;
      return true;
    case Job::kToLuma:
      pDestination = GST_VIDEO_FORMAT_GRAY8;
      return true;
    case Job::kToYUV:
      pDestination = GST_VIDEO_FORMAT_v308;
      return true;
    case Job::kFromRGB:
      pSource = GST_VIDEO_FORMAT_RGB;
      pDestination = GST_VIDEO_FORMAT_YUY2;
      return true;
    default:
      return false;
  }
}

/// A mapped frame on memory that stays ours.
std::shared_ptr<GstVideoFrame> map(GstVideoInfo& pInfo, const unsigned char* pData) {
  GstBuffer* buffer =
      gst_buffer_new_wrapped_full(static_cast<GstMemoryFlags>(0), const_cast<unsigned char*>(pData),
                                  pInfo.size, 0, pInfo.size, nullptr, nullptr);
  std::shared_ptr<GstVideoFrame> frame(new GstVideoFrame, [](GstVideoFrame* pFrame) {
    gst_video_frame_unmap(pFrame);
    delete pFrame;
  });
  gst_video_frame_map(frame.get(), &pInfo, buffer, GST_MAP_READWRITE);
  gst_buffer_unref(buffer);
  return frame;
}

}  // namespace

Run gstreamerRun(const Job& pJob) {
  GstVideoFormat sourceFormat, destinationFormat;
  if (!formatsOf(pJob.kind, sourceFormat, destinationFormat)) return {};
  gst_init(nullptr, nullptr);
  GstVideoInfo source, destination;
  gst_video_info_set_format(&source, sourceFormat, pJob.sourceWidth, pJob.sourceHeight);
  gst_video_info_set_format(&destination, destinationFormat, pJob.width, pJob.height);
  // Rows of all sizes here are multiples of four bytes, GStreamer's own alignment, so have no gaps.
  GstStructure* config = gst_structure_new(
      "config", GST_VIDEO_CONVERTER_OPT_RESAMPLER_METHOD, GST_TYPE_VIDEO_RESAMPLER_METHOD,
      GST_VIDEO_RESAMPLER_METHOD_NEAREST, GST_VIDEO_CONVERTER_OPT_CHROMA_RESAMPLER_METHOD,
      GST_TYPE_VIDEO_RESAMPLER_METHOD, GST_VIDEO_RESAMPLER_METHOD_NEAREST,
      GST_VIDEO_CONVERTER_OPT_THREADS, G_TYPE_UINT, 1, nullptr);
  std::shared_ptr<GstVideoConverter> converter(
      gst_video_converter_new(&source, &destination, config), gst_video_converter_free);
  if (!converter) return {};
  auto from = map(source, pJob.source);
  auto to = map(destination, pJob.destination);
  return [=] { gst_video_converter_frame(converter.get(), from.get(), to.get()); };
}

}  // namespace OX::benchmarks
