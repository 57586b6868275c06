#include "video_file.h"

#include <algorithm>
#include <cmath>
#include <sstream>

#include "media/ffmpeg.h"

namespace OX::test {

using namespace OX::cli;

const Rgb kQuadrants[4] = {{200, 30, 30}, {30, 180, 40}, {40, 60, 200}, {220, 210, 40}};

Rgb quadrantAt(double pX, double pY) { return kQuadrants[(pY < 0.5 ? 0 : 2) + (pX < 0.5 ? 0 : 1)]; }

namespace {

struct OutputCloser {
  void operator()(AVFormatContext* pContext) const {
    avio_closep(&pContext->pb);
    avformat_free_context(pContext);
  }
};
using OutputOwner = std::unique_ptr<AVFormatContext, OutputCloser>;

/// By the definition of luma and colour differences, without any table of coefficients.
std::array<int, 3> toYuv(const Rgb& pRgb, const VideoFile& pVideo) {
  const bool isHd = pVideo.matrix == AVCOL_SPC_BT709 ||
                    (pVideo.matrix == AVCOL_SPC_UNSPECIFIED && pVideo.height >= 720);
  const double kr = isHd ? 0.2126 : 0.299, kb = isHd ? 0.0722 : 0.114;
  const double r = pRgb[0] / 255.0, g = pRgb[1] / 255.0, b = pRgb[2] / 255.0;
  const double y = kr * r + (1 - kr - kb) * g + kb * b;
  const double u = (b - y) / (2 * (1 - kb)), v = (r - y) / (2 * (1 - kr));
  const bool isFull = pVideo.range == AVCOL_RANGE_JPEG;
  const auto chroma = [&](double p) {
    return static_cast<int>(std::lround(128 + p * (isFull ? 255 : 224)));
  };
  return {static_cast<int>(std::lround(isFull ? y * 255 : 16 + y * 219)), chroma(u), chroma(v)};
}

void style(AVFrame& pFrame, int pIndex, const VideoFile& pVideo) {
  const AVPixFmtDescriptor* desc = av_pix_fmt_desc_get(pVideo.format);
  const bool isRgb = desc->flags & AV_PIX_FMT_FLAG_RGB;
  for (int c = 0; c < 3; ++c) {
    const AVComponentDescriptor& part = desc->comp[c];
    const int shiftX = !isRgb && c > 0 ? desc->log2_chroma_w : 0;
    const int shiftY = !isRgb && c > 0 ? desc->log2_chroma_h : 0;
    for (int y = 0; y < pVideo.height >> shiftY; ++y)
      for (int x = 0; x < pVideo.width >> shiftX; ++x) {
        const double placeX = ((x << shiftX) + 0.5) / pVideo.width;
        const double placeY = ((y << shiftY) + 0.5) / pVideo.height;
        const Rgb rgb =
            pVideo.color ? pVideo.color(pIndex, placeX, placeY) : quadrantAt(placeX, placeY);
        const auto value = isRgb ? rgb : toYuv(rgb, pVideo);
        pFrame.data[part.plane][y * pFrame.linesize[part.plane] + x * part.step + part.offset] =
            static_cast<std::uint8_t>(value[static_cast<std::size_t>(c)]);
      }
  }
}

bool drain(AVCodecContext& pEncoder, AVFormatContext& pOutput, int pDamagedFrame) {
  const PacketOwner packet(av_packet_alloc());
  while (avcodec_receive_packet(&pEncoder, packet.get()) == 0) {
    if (packet->pts == pDamagedFrame) std::fill_n(packet->data + 16, 8, 0);
    packet->duration = 1;
    av_packet_rescale_ts(packet.get(), pEncoder.time_base, pOutput.streams[0]->time_base);
    if (av_interleaved_write_frame(&pOutput, packet.get()) < 0) return false;
  }
  return true;
}

DecoderOwner openEncoder(const VideoFile& pVideo, bool pGlobalHeader) {
  const AVCodec* codec = avcodec_find_encoder_by_name(pVideo.codec);
  DecoderOwner encoder(avcodec_alloc_context3(codec));
  encoder->width = pVideo.width;
  encoder->height = pVideo.height;
  encoder->pix_fmt = pVideo.format;
  encoder->time_base = {1, pVideo.fps};
  encoder->framerate = {pVideo.fps, 1};
  encoder->colorspace = pVideo.matrix;
  encoder->color_range = pVideo.range;
  encoder->sample_aspect_ratio = pVideo.pixelAspect;
  encoder->thread_count = 1;
  if (pGlobalHeader) encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  if (avcodec_open2(encoder.get(), codec, nullptr) < 0) encoder.reset();
  return encoder;
}

bool addStream(AVFormatContext& pOutput, const AVCodecContext& pEncoder, const VideoFile& pVideo) {
  AVStream* stream = avformat_new_stream(&pOutput, nullptr);
  if (!stream || avcodec_parameters_from_context(stream->codecpar, &pEncoder) < 0) return false;
  stream->time_base = pEncoder.time_base;
  stream->avg_frame_rate = pEncoder.framerate;
  stream->sample_aspect_ratio = pVideo.pixelAspect;
  if (pVideo.displayMatrix.empty()) return true;
  std::uint8_t* data =
      av_stream_new_side_data(stream, AV_PKT_DATA_DISPLAYMATRIX, 9 * sizeof(std::int32_t));
  if (!data) return false;
  std::copy(pVideo.displayMatrix.begin(), pVideo.displayMatrix.end(),
            reinterpret_cast<std::int32_t*>(data));
  return true;
}

}  // namespace

bool writeVideo(const std::string& pPath, const VideoFile& pVideo) {
  AVFormatContext* raw = nullptr;
  if (avformat_alloc_output_context2(&raw, nullptr, nullptr, pPath.c_str()) < 0) return false;
  const OutputOwner output(raw);
  const DecoderOwner encoder = openEncoder(pVideo, output->oformat->flags & AVFMT_GLOBALHEADER);
  if (!encoder || !addStream(*output, *encoder, pVideo) ||
      avio_open(&output->pb, pPath.c_str(), AVIO_FLAG_WRITE) < 0 ||
      avformat_write_header(output.get(), nullptr) < 0)
    return false;
  for (int i = 0; i < pVideo.frames; ++i) {
    const FrameOwner frame(av_frame_alloc());
    frame->format = pVideo.format;
    frame->width = pVideo.width;
    frame->height = pVideo.height;
    frame->pts = i;
    if (av_frame_get_buffer(frame.get(), 0) < 0) return false;
    style(*frame, i, pVideo);
    if (avcodec_send_frame(encoder.get(), frame.get()) < 0 ||
        !drain(*encoder, *output, pVideo.damagedFrame))
      return false;
  }
  return avcodec_send_frame(encoder.get(), nullptr) >= 0 &&
         drain(*encoder, *output, pVideo.damagedFrame) && av_write_trailer(output.get()) >= 0;
}

std::string quadrantFaults(const std::vector<unsigned char>& pRgb, int pWidth, int pHeight,
                           const Rgb (&pExpected)[4], int pTolerance) {
  std::ostringstream faults;
  for (int i = 0; i < 4; ++i) {
    const int x = pWidth * (i % 2 ? 3 : 1) / 4, y = pHeight * (i / 2 ? 3 : 1) / 4;
    const unsigned char* pixel = pRgb.data() + (y * pWidth + x) * 3;
    const Rgb& expected = pExpected[i];
    for (std::size_t c = 0; c < 3; ++c)
      if (std::abs(pixel[c] - expected[c]) > pTolerance) {
        faults << "quadrant " << i << " is " << int(pixel[0]) << "," << int(pixel[1]) << ","
               << int(pixel[2]) << " and not " << expected[0] << "," << expected[1] << ","
               << expected[2] << "\n";
        break;
      }
  }
  return faults.str();
}

}  // namespace OX::test
