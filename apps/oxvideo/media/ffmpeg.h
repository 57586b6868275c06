/// RAII owners for FFmpeg objects. Include from .cpp files only.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavdevice/avdevice.h>
#include <libavformat/avformat.h>
#include <libavutil/display.h>
#include <libavutil/imgutils.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

#include <memory>
#include <string>

namespace OX::cli {

/// Most FFmpeg functions that free take the address of the pointer.
template <auto Free>
struct FreeByAddress {
  template <typename T>
  void operator()(T* pObject) const {
    Free(&pObject);
  }
};

struct FreeScaler {
  void operator()(SwsContext* pContext) const { sws_freeContext(pContext); }
};

using FormatOwner = std::unique_ptr<AVFormatContext, FreeByAddress<avformat_close_input>>;
using DecoderOwner = std::unique_ptr<AVCodecContext, FreeByAddress<avcodec_free_context>>;
using FrameOwner = std::unique_ptr<AVFrame, FreeByAddress<av_frame_free>>;
using PacketOwner = std::unique_ptr<AVPacket, FreeByAddress<av_packet_free>>;
using ScalerOwner = std::unique_ptr<SwsContext, FreeScaler>;

inline std::string ffmpegError(int pCode) {
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(pCode, text, sizeof text);
  return text;
}

}  // namespace OX::cli
