// Frames carry their recorded times, not a constant rate: only containers with a time for each
// frame are accepted, in microseconds or the finest unit that they have.
#include "media/videoencoder.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <ctime>

#include "media/planes.h"
#include "recordings/recordingreport.h"
#include "terminal/exitstatus.h"
#include "terminal/text.h"

namespace OX::cli {

namespace {

// The unit of recorded stamps, so that nothing is rounded before the container does.
constexpr AVRational kMicroseconds{1, 1'000'000};
// For a stream too short to have a rate; players take it as a hint only.
constexpr AVRational kUsualRate{30, 1};

struct CloseMuxer {
  void operator()(AVFormatContext* pFormat) const {
    if (!(pFormat->oformat->flags & AVFMT_NOFILE)) avio_closep(&pFormat->pb);
    avformat_free_context(pFormat);
  }
};

const AVOutputFormat& containerOf(const std::string& pPath) {
  const AVOutputFormat* format = av_guess_format(nullptr, pPath.c_str(), nullptr);
  if (!format)
    throw OXUsageError(
        fmt::format("{}: unknown type of video file; use .mkv or .mp4", printable(pPath)));
  // Containers with a time for each frame set the first flag; .mp4 and .mov only the second.
  if (!(format->flags & (AVFMT_VARIABLE_FPS | AVFMT_TS_NEGATIVE)) || format->flags & AVFMT_NOFILE)
    throw OXUsageError(fmt::format("{}: this type of file can't keep time stamps; use .mkv or .mp4",
                                   printable(pPath)));
  return *format;
}

/// FFV1 wherever the container holds it: an export that loses nothing is the safer default.
AVCodecID codecOf(const std::string& pCodec, const AVOutputFormat& pFormat) {
  if (pCodec == "ffv1") return AV_CODEC_ID_FFV1;
  if (pCodec == "h264") return AV_CODEC_ID_H264;
  return avformat_query_codec(&pFormat, AV_CODEC_ID_FFV1, FF_COMPLIANCE_NORMAL) == 1
             ? AV_CODEC_ID_FFV1
             : AV_CODEC_ID_H264;
}

}  // namespace

void checkVideoFile(const std::string& pPath, const std::string& pCodec) {
  const AVOutputFormat& format = containerOf(pPath);
  const AVCodecID codec = codecOf(pCodec, format);
  if (avformat_query_codec(&format, codec, FF_COMPLIANCE_NORMAL) != 1)
    throw OXUsageError(fmt::format("{}: this type of file can't hold {}", printable(pPath),
                                   avcodec_get_name(codec)));
}

struct OXVideoEncoder::Impl {
  EncoderOptions options;
  std::unique_ptr<AVFormatContext, CloseMuxer> muxer;
  DecoderOwner encoder;
  FrameOwner raw;      ///< the image as it is
  FrameOwner encoded;  ///< the image in the encoder's format and size
  ScalerOwner scaler;
  PacketOwner packet{av_packet_alloc()};
  AVStream* stream = nullptr;
  std::int64_t lastTick = -1;
  int moved = 0;

  int check(int pResult, const char* pWhat) const {
    if (pResult < 0)
      throw OXFailure(
          fmt::format("{}: {}: {}", printable(options.path), pWhat, ffmpegError(pResult)));
    return pResult;
  }
  void openMuxer();
  void openEncoder(AVCodecID pCodec);
  void prepareFrames();
  void convert(const AVFrame& pFrame);
  void writeHeader();
  void drain(const AVFrame* pFrame);
  void writePacket();
};

void OXVideoEncoder::Impl::openMuxer() {
  AVFormatContext* format = nullptr;
  check(avformat_alloc_output_context2(&format, &containerOf(options.path), nullptr, nullptr),
        "can't prepare the file");
  muxer.reset(format);
}

void OXVideoEncoder::Impl::openEncoder(AVCodecID pCodec) {
  const AVCodec* codec = avcodec_find_encoder(pCodec);
  if (!codec) throw OXFailure(fmt::format("this build can't encode {}", avcodec_get_name(pCodec)));
  encoder.reset(avcodec_alloc_context3(codec));
  stream = avformat_new_stream(muxer.get(), nullptr);
  if (!encoder || !stream || !packet) throw OXFailure("out of memory");
  encoder->width = options.width;
  encoder->height = options.height;
  encoder->pix_fmt =
      pCodec == AV_CODEC_ID_FFV1 ? losslessFormat(options.colorSpace) : AV_PIX_FMT_YUV420P;
  encoder->time_base = kMicroseconds;
  // The bound holds broadcast rates such as 30000/1001 exactly.
  encoder->framerate = options.fps > 0 ? av_d2q(options.fps, 1001000) : kUsualRate;
  // Without reordering a packet's decoding time is its display time, and the first one is 0.
  encoder->max_b_frames = 0;
  // Stated explicitly, or players would guess the matrix by the height.
  if (encoder->pix_fmt != AV_PIX_FMT_BGR0 && encoder->pix_fmt != AV_PIX_FMT_GRAY8) {
    encoder->colorspace = AVCOL_SPC_SMPTE170M;
    encoder->color_range = AVCOL_RANGE_MPEG;
  }
  if (muxer->oformat->flags & AVFMT_GLOBALHEADER) encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  AVDictionary* codecOptions = nullptr;
  // 18 is visually lossless. FFV1's third version checks every slice by itself.
  if (pCodec == AV_CODEC_ID_H264) av_dict_set(&codecOptions, "crf", "18", 0);
  if (pCodec == AV_CODEC_ID_FFV1) av_dict_set(&codecOptions, "level", "3", 0);
  const int result = avcodec_open2(encoder.get(), codec, &codecOptions);
  av_dict_free(&codecOptions);
  check(result, "the encoder refuses the frame format");
}

void OXVideoEncoder::Impl::prepareFrames() {
  raw = newFrame(options.width, options.height, options.colorSpace);
  encoded.reset(av_frame_alloc());
  if (!encoded) throw OXFailure("out of memory");
  encoded->format = encoder->pix_fmt;
  encoded->width = options.width;
  encoded->height = options.height;
  check(av_frame_get_buffer(encoded.get(), 0), "no memory for a frame");
}

/// Into the encoder's size and format.
void OXVideoEncoder::Impl::convert(const AVFrame& pFrame) {
  // Released first, because the library frees it when it needs another.
  scaler.reset(sws_getCachedContext(scaler.release(), pFrame.width, pFrame.height,
                                    static_cast<AVPixelFormat>(pFrame.format), options.width,
                                    options.height, encoder->pix_fmt,
                                    SWS_BICUBIC | SWS_ACCURATE_RND, nullptr, nullptr, nullptr));
  if (!scaler) throw OXFailure("can't convert frames of this size");
  // The encoder may still refer to the frame of the last call.
  check(av_frame_make_writable(encoded.get()), "no memory for a frame");
  sws_scale(scaler.get(), pFrame.data, pFrame.linesize, 0, pFrame.height, encoded->data,
            encoded->linesize);
}

void OXVideoEncoder::Impl::writeHeader() {
  check(avcodec_parameters_from_context(stream->codecpar, encoder.get()),
        "can't copy the codec parameters");
  stream->time_base = encoder->time_base;
  stream->avg_frame_rate = encoder->framerate;
  const std::time_t start = options.startUs / 1'000'000;
  std::tm date{};
  if (start > 0 && ::gmtime_r(&start, &date))
    av_dict_set(
        &muxer->metadata, "creation_time",
        fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:06}Z", date, options.startUs % 1'000'000).c_str(), 0);
  // The prefix keeps a colon in the path from naming a protocol.
  check(avio_open(&muxer->pb, ("file:" + options.file).c_str(), AVIO_FLAG_WRITE),
        "can't create the file");
  check(avformat_write_header(muxer.get(), nullptr), "can't write the header");
}

OXVideoEncoder::OXVideoEncoder(const EncoderOptions& pOptions) : fImpl(std::make_unique<Impl>()) {
  av_log_set_level(AV_LOG_FATAL);
  fImpl->options = pOptions;
  checkVideoFile(pOptions.path, pOptions.codec);
  fImpl->openMuxer();
  fImpl->openEncoder(codecOf(pOptions.codec, *fImpl->muxer->oformat));
  fImpl->prepareFrames();
  fImpl->writeHeader();
}

OXVideoEncoder::~OXVideoEncoder() = default;

/// Containers require stamps to rise by at least their unit, a millisecond in Matroska.
void OXVideoEncoder::Impl::writePacket() {
  const std::int64_t wanted = av_rescale_q(packet->pts, kMicroseconds, stream->time_base);
  const std::int64_t tick = std::max(wanted, lastTick + 1);
  if (tick != wanted) ++moved;
  lastTick = tick;
  packet->pts = packet->dts = tick;
  packet->duration = av_rescale_q(options.usualIntervalUs, kMicroseconds, stream->time_base);
  packet->stream_index = stream->index;
  check(av_interleaved_write_frame(muxer.get(), packet.get()), "can't write a frame");
}

void OXVideoEncoder::Impl::drain(const AVFrame* pFrame) {
  check(avcodec_send_frame(encoder.get(), pFrame), "the encoder failed");
  while (true) {
    const int result = avcodec_receive_packet(encoder.get(), packet.get());
    if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) return;
    check(result, "the encoder failed");
    writePacket();
  }
}

void OXVideoEncoder::add(const CameraImage& pImage) {
  Impl& impl = *fImpl;
  const bool hasSize = pImage.width == impl.options.width && pImage.height == impl.options.height;
  // Made for each image that has another size: a recording has few changes, but may have many such
  // images; scaling one costs far more.
  const FrameOwner other =
      hasSize ? nullptr : newFrame(pImage.width, pImage.height, pImage.colorSpace);
  AVFrame* frame = other ? other.get() : impl.raw.get();
  // The encoder may still refer to the frame of the last call.
  impl.check(av_frame_make_writable(frame), "no memory for a frame");
  fillFrame(pImage, *frame);
  if (other || frame->format != impl.encoder->pix_fmt) {
    impl.convert(*frame);
    frame = impl.encoded.get();
  }
  frame->pts = stampDifference(pImage.timestampUs, impl.options.startUs);
  impl.drain(frame);
}

void OXVideoEncoder::finish() {
  // Delayed frames come first, or the trailer would not index them.
  fImpl->drain(nullptr);
  fImpl->check(av_write_trailer(fImpl->muxer.get()), "can't finish the file");
  fImpl->check(avio_closep(&fImpl->muxer->pb), "can't close the file");
}

int OXVideoEncoder::moved() const { return fImpl->moved; }

}  // namespace OX::cli
