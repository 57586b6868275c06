// Files may lack times, rates or whole frames. What is missing is filled in with what players
// assume, so that time always moves forward.
#include "media/mediareader.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "media/ffmpeg.h"
#include "terminal/exitstatus.h"
#include "terminal/interrupt.h"
#include "terminal/text.h"

namespace OX::cli {

namespace {

constexpr double kUsualFps = 25;  // for files without any rate

/// The prefix keeps FFmpeg from taking "a:b.mp4" for protocol "a".
std::string inputUrl(const std::string& pSource) {
  return pSource.find("://") == std::string::npos ? "file:" + pSource : pSource;
}

int stopWhenInterrupted(void*) { return OXInterrupt::requested() ? 1 : 0; }

FormatOwner openInput(const std::string& pSource, FrameSize pTestSize) {
  AVFormatContext* format = avformat_alloc_context();
  if (!format) throw OXFailure("out of memory");
  // Opening a pipe or URL may block for ever; a signal must end it.
  format->interrupt_callback.callback = stopWhenInterrupted;
  const bool isTest = pSource == "test";
  const std::string url =
      isTest ? fmt::format("testsrc2=size={}x{}:rate=30", pTestSize.width, pTestSize.height)
             : inputUrl(pSource);
  const AVInputFormat* input = isTest ? av_find_input_format("lavfi") : nullptr;
  // Frees the context on failure.
  const int result = avformat_open_input(&format, url.c_str(), input, nullptr);
  if (result < 0 && OXInterrupt::requested()) throw OXInterrupted();
  if (result < 0)
    throw OXFailure(
        fmt::format("can't read {}: {}\n  a source is a video file, a picture, or \"test\"",
                    printable(pSource), ffmpegError(result)));
  return FormatOwner(format);
}

/// Reads turns and mirroring from the display matrix of a container or picture.
Orientation parseOrientation(const std::int32_t* pMatrix) {
  const auto at = [&](int i) { return static_cast<double>(pMatrix[i]); };
  const bool mirrored = at(0) * at(4) - at(1) * at(3) < 0;
  std::int32_t matrix[9];
  std::copy(pMatrix, pMatrix + 9, matrix);
  // Mirroring comes before turning: undo it, then read the angle.
  if (mirrored) {
    matrix[0] = -matrix[0];
    matrix[1] = -matrix[1];
  }
  const double degrees = av_display_rotation_get(matrix);
  if (std::isnan(degrees)) return {};
  // Their angle is counterclockwise.
  const int turns = static_cast<int>(std::lround(-degrees / 90)) & 3;
  return {turns, mirrored};
}

/// The index of a video stream in the file; cover pictures of sound files count as well.
int streamIndex(const AVFormatContext& pFormat, int pStream, const std::string& pSource) {
  int streams = 0;
  for (unsigned i = 0; i < pFormat.nb_streams; ++i)
    if (pFormat.streams[i]->codecpar->codec_type == AVMEDIA_TYPE_VIDEO && streams++ == pStream)
      return static_cast<int>(i);
  throw OXUsageError(streams == 1
                         ? fmt::format("{} has no video stream {}: it has one, number 0",
                                       printable(pSource), pStream)
                         : fmt::format("{} has no video stream {}: it has {}, numbered 0 to {}",
                                       printable(pSource), pStream, streams, streams - 1));
}

}  // namespace

struct OXMediaReader::Impl {
  std::string source;
  FormatOwner format;
  DecoderOwner decoder;
  FrameOwner frame{av_frame_alloc()};
  PacketOwner packet{av_packet_alloc()};
  AVStream* stream = nullptr;
  bool draining = false;
  bool started = false;
  double firstTime = 0;
  double time = 0;
  double duration = 0;
  std::int64_t damaged = 0;

  void openDecoder(int pStream);
  void feed();
  void takeTimes();
  double usualDuration() const;
};

OXMediaReader::OXMediaReader(const std::string& pSource, FrameSize pTestSize,
                             const MediaOptions& pOptions)
    : fImpl(std::make_unique<Impl>()) {
  // The library's own messages would run into the progress bar; failures are reported by exception.
  av_log_set_level(AV_LOG_FATAL);
  avdevice_register_all();
  fImpl->source = pSource;
  fImpl->format = openInput(pSource, pTestSize);
  fImpl->openDecoder(pOptions.stream);
}

OXMediaReader::~OXMediaReader() = default;

void OXMediaReader::Impl::openDecoder(int pStream) {
  const auto check = [&](int pResult) {
    if (pResult < 0)
      throw OXFailure(fmt::format("can't read {}: {}", printable(source), ffmpegError(pResult)));
    return pResult;
  };
  check(avformat_find_stream_info(format.get(), nullptr));
  const AVCodec* codec = nullptr;
  int index = av_find_best_stream(format.get(), AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0);
  if (index >= 0 && pStream >= 0)
    index = av_find_best_stream(format.get(), AVMEDIA_TYPE_VIDEO,
                                streamIndex(*format, pStream, source), -1, &codec, 0);
  if (index < 0 || !codec)
    throw OXFailure(fmt::format("{} contains no readable video", printable(source)));
  stream = format->streams[index];
  // Sound and subtitles would be read, queued and thrown away.
  for (unsigned i = 0; i < format->nb_streams; ++i)
    if (static_cast<int>(i) != index) format->streams[i]->discard = AVDISCARD_ALL;
  decoder.reset(avcodec_alloc_context3(codec));
  if (!decoder || !frame || !packet) throw OXFailure("out of memory");
  check(avcodec_parameters_to_context(decoder.get(), stream->codecpar));
  decoder->pkt_timebase = stream->time_base;
  // As many threads as there are processors: large videos decode slower than real time on one.
  decoder->thread_count = 0;
  check(avcodec_open2(decoder.get(), codec, nullptr));
}

/// Sends the decoder the next packet, or the end of the stream.
void OXMediaReader::Impl::feed() {
  while (true) {
    const int read = av_read_frame(format.get(), packet.get());
    if (read == AVERROR_EOF) {
      draining = true;
      // Sending decodes too: the failure is that of a frame which a thread was still working on.
      if (avcodec_send_packet(decoder.get(), nullptr) < 0) ++damaged;
      return;
    }
    // The callback makes the library return this; other errors may follow from the same signal.
    if (read == AVERROR_EXIT || OXInterrupt::requested()) throw OXInterrupted();
    if (read < 0)
      throw OXFailure(fmt::format("reading {} failed: {}", printable(source), ffmpegError(read)));
    const bool isOurs = packet->stream_index == stream->index;
    // A bad packet costs its frame only: the decoder resynchronises.
    if (isOurs && avcodec_send_packet(decoder.get(), packet.get()) < 0) ++damaged;
    av_packet_unref(packet.get());
    if (isOurs) return;
  }
}

double OXMediaReader::Impl::usualDuration() const {
  const AVRational rate = av_guess_frame_rate(format.get(), stream, nullptr);
  return rate.num > 0 && rate.den > 0 ? av_q2d(av_inv_q(rate)) : 1 / kUsualFps;
}

void OXMediaReader::Impl::takeTimes() {
  // Frames without a stamp follow the one before; stamps that go back are held at it.
  const double lastEnd = started ? time + duration : 0;
  const double unit = av_q2d(stream->time_base);
  double now = lastEnd;
  if (frame->best_effort_timestamp != AV_NOPTS_VALUE) {
    const double stamp = static_cast<double>(frame->best_effort_timestamp) * unit;
    if (!started) firstTime = stamp;
    now = stamp - firstTime;
  }
  time = started ? std::max(time, now) : 0;
  duration =
      frame->pkt_duration > 0 ? static_cast<double>(frame->pkt_duration) * unit : usualDuration();
  started = true;
}

const AVFrame* OXMediaReader::next() {
  while (true) {
    const int result = avcodec_receive_frame(fImpl->decoder.get(), fImpl->frame.get());
    if (result == 0) {
      if (fImpl->frame->flags & AV_FRAME_FLAG_CORRUPT || fImpl->frame->decode_error_flags != 0)
        ++fImpl->damaged;
      fImpl->takeTimes();
      // The aspect ratio stated by the container takes precedence.
      fImpl->frame->sample_aspect_ratio =
          av_guess_sample_aspect_ratio(fImpl->format.get(), fImpl->stream, fImpl->frame.get());
      return fImpl->frame.get();
    }
    if (result == AVERROR_EOF) return nullptr;
    if (result == AVERROR(EAGAIN)) {
      // A drained decoder wants nothing more; should one say so, asking again would never end.
      if (fImpl->draining) return nullptr;
      fImpl->feed();
      continue;
    }
    // A frame that failed, and no reason to stop: a decoder with several threads reports failures
    // late, with good frames after them. It bounds the number of failures at the end itself.
    ++fImpl->damaged;
  }
}

double OXMediaReader::time() const { return fImpl->time; }

double OXMediaReader::frameDuration() const { return fImpl->duration; }

Orientation OXMediaReader::orientation() const {
  // Pictures carry the matrix in the frame, videos in the stream.
  if (const AVFrameSideData* data =
          av_frame_get_side_data(fImpl->frame.get(), AV_FRAME_DATA_DISPLAYMATRIX))
    if (data->size >= 9 * sizeof(std::int32_t))
      return parseOrientation(reinterpret_cast<const std::int32_t*>(data->data));
  std::size_t size = 0;
  const std::uint8_t* data =
      av_stream_get_side_data(fImpl->stream, AV_PKT_DATA_DISPLAYMATRIX, &size);
  if (data && size >= 9 * sizeof(std::int32_t))
    return parseOrientation(reinterpret_cast<const std::int32_t*>(data));
  return {};
}

double OXMediaReader::duration() const {
  if (fImpl->format->duration <= 0 || fImpl->source == "test") return 0;
  return static_cast<double>(fImpl->format->duration) / AV_TIME_BASE;
}

std::int64_t OXMediaReader::damagedFrames() const { return fImpl->damaged; }

}  // namespace OX::cli
