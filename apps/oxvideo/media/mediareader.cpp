// Files may lack times, rates or whole frames. What is missing is filled in with what players
// assume, so that time always moves forward. Every wait ends: by data, a signal, or a time limit.
#include "media/mediareader.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdarg>
#include <filesystem>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "media/ffmpeg.h"
#include "media/pictures.h"
#include "media/pipeinput.h"
#include "terminal/exitstatus.h"
#include "terminal/interrupt.h"
#include "terminal/text.h"

namespace OX::cli {

namespace {

using Clock = std::chrono::steady_clock;

constexpr double kUsualFps = 25;  // for files without any rate
// For cameras, whose driver says that there is no frame yet instead of waiting for one.
constexpr std::chrono::milliseconds kAskAgain{5};

/// Why the library failed: its own message says what is wrong with a filter graph or a file, its
/// error only that something is. The messages would otherwise run into the progress bar.
class LastMessage {
 public:
  static void install() { av_log_set_callback(&LastMessage::xKeep); }
  static std::string take() {
    const std::lock_guard guard(fGuard);
    return std::exchange(fText, {});
  }

 private:
  static void xKeep(void* pSource, int pLevel, const char* pFormat, va_list pArguments) {
    if (pLevel > AV_LOG_ERROR) return;
    char line[512];
    int withPrefix = 0;
    av_log_format_line2(pSource, pLevel, pFormat, pArguments, line, sizeof line, &withPrefix);
    std::string text = line;
    text.erase(text.find_last_not_of(" \n") + 1);
    const std::lock_guard guard(fGuard);
    // The first one is the cause, the later ones report its consequences.
    if (fText.empty()) fText = text;
  }

  static inline std::mutex fGuard;
  static inline std::string fText;
};

/// "Invalid argument (No such filter: 'foo')"
std::string reason(int pError) {
  std::string error = ffmpegError(pError);
  const std::string message = LastMessage::take();
  if (message.empty()) return error;
  // Some messages say all of it.
  return message.ends_with(error) ? printable(message)
                                  : fmt::format("{} ({})", error, printable(message));
}

/// The prefix keeps FFmpeg from taking "a:b.mp4" for protocol "a".
std::string inputUrl(const std::string& pSource, FrameSize pTestSize, MediaKind pKind) {
  switch (pKind) {
    case MediaKind::kTest:
      return fmt::format("testsrc2=size={}x{}:rate=30", pTestSize.width, pTestSize.height);
    case MediaKind::kGraph:
      return pSource.starts_with("lavfi:") ? pSource.substr(6) : pSource;
    case MediaKind::kFile:
      return "file:" + pSource;
    default:
      return pSource;
  }
}

const AVInputFormat* inputFormat(const std::string& pFormat, MediaKind pKind) {
  if (pKind == MediaKind::kTest || pKind == MediaKind::kGraph) return av_find_input_format("lavfi");
  if (!pFormat.empty()) return av_find_input_format(pFormat.c_str());
  return pKind == MediaKind::kWebcam ? av_find_input_format("v4l2") : nullptr;
}

std::string webcamsHere() {
  std::vector<std::string> names;
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator("/dev", ignored))
    if (entry.path().filename().string().starts_with("video")) names.push_back(entry.path());
  std::ranges::sort(names);
  return names.empty() ? "this machine has none (no /dev/video*)"
                       : "this machine has " + join(names);
}

std::string openFailure(const std::string& pSource, MediaKind pKind, int pError) {
  const std::string why = reason(pError);
  const std::string source = printable(pSource);
  switch (pKind) {
    case MediaKind::kWebcam:
      return fmt::format("can't open camera {}: {}\n  cameras: {}", source, why, webcamsHere());
    case MediaKind::kGraph:
      return fmt::format(
          "can't read {}: {}\n  a filter graph looks like lavfi:testsrc2=size=640x480:rate=30",
          source, why);
    case MediaKind::kLive:
    case MediaKind::kUrl:
    case MediaKind::kPipe:
      return fmt::format("can't read {}: {}", source, why);
    default:
      return fmt::format(
          "can't read {}: {}\n  a source is a video file, a picture, a folder of pictures, a "
          "camera (/dev/video0),\n  a URL, \"-\", \"lavfi:\" and a filter graph, or \"test\"",
          source, why);
  }
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
  Impl(const std::string& pSource, FrameSize pTestSize, const MediaOptions& pOptions)
      : source(pSource),
        testSize(pTestSize),
        options(pOptions),
        kind(mediaKind(pSource, pOptions)) {}

  const std::string source;
  const FrameSize testSize;
  const MediaOptions options;
  const MediaKind kind;
  std::atomic<bool> cancelled{false};
  Clock::time_point giveUp = Clock::time_point::max();
  /// Outlives the format, which reads from it.
  std::unique_ptr<OXPipeInput> pipe;
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
  std::atomic<std::int64_t> damaged{0};

  // Of a folder of pictures, each of which is a file of its own.
  std::vector<std::string> pictures;
  std::size_t nextPicture = 0;
  std::unique_ptr<OXMediaReader> picture;
  std::optional<FrameSize> firstSize;
  std::string remark;

  bool isCancelled() const { return cancelled || OXInterrupt::requested(); }
  bool mustStop() const { return isCancelled() || Clock::now() > giveUp; }
  /// Throws if the library was stopped while it waited. Called after what may wait.
  void checkStopped();
  /// Calls what may wait for the source; no longer than the source may be silent.
  template <typename Call>
  int waitFor(Call pCall) {
    giveUp = Clock::now() + options.longestSilence;
    const int result = pCall();
    if (result < 0) checkStopped();
    giveUp = Clock::time_point::max();
    return result;
  }

  void open();
  void openDecoder();
  int readPacket();
  void feed();
  void takeTimes();
  double usualDuration() const;
  const AVFrame* nextOfFile();
  const AVFrame* nextPictureFrame();
};

OXMediaReader::OXMediaReader(const std::string& pSource, FrameSize pTestSize,
                             const MediaOptions& pOptions) {
  LastMessage::install();
  avdevice_register_all();
  fImpl = std::make_unique<Impl>(pSource, pTestSize, pOptions);
  LastMessage::take();
  if (fImpl->kind == MediaKind::kPictures) {
    fImpl->pictures = listPictures(pSource);
    return;
  }
  fImpl->open();
  fImpl->openDecoder();
}

OXMediaReader::~OXMediaReader() = default;

void OXMediaReader::cancel() { fImpl->cancelled = true; }

void OXMediaReader::Impl::checkStopped() {
  if (isCancelled()) throw OXInterrupted();
  if (Clock::now() > giveUp)
    throw OXFailure(fmt::format("no data from {} for {:g} s", printable(source),
                                std::chrono::duration<double>(options.longestSilence).count()));
}

void OXMediaReader::Impl::open() {
  AVFormatContext* context = avformat_alloc_context();
  if (!context) throw OXFailure("out of memory");
  FormatOwner owner(context);
  // Opening a pipe or URL may block for ever; a signal must end it.
  context->interrupt_callback = {
      [](void* pThis) { return static_cast<const Impl*>(pThis)->mustStop() ? 1 : 0; }, this};
  if (kind == MediaKind::kPipe) {
    pipe = std::make_unique<OXPipeInput>(source, [this] { return mustStop(); });
    context->pb = pipe->context();
  }
  // Drivers of cameras wait without looking at the callback.
  if (kind == MediaKind::kWebcam) context->flags |= AVFMT_FLAG_NONBLOCK;
  if (isLive(kind)) context->flags |= AVFMT_FLAG_NOBUFFER;
  const std::string url = inputUrl(source, testSize, kind);
  const int result = waitFor([&] {
    // Frees the context on failure.
    context = owner.release();
    return avformat_open_input(&context, url.c_str(), inputFormat(options.format, kind), nullptr);
  });
  if (result < 0 && pipe && pipe->isEmpty())
    throw OXFailure(fmt::format("can't read {}: it ended before anything came", printable(source)));
  if (result < 0) throw OXFailure(openFailure(source, kind, result));
  format.reset(context);
}

void OXMediaReader::Impl::openDecoder() {
  const auto check = [&](int pResult) {
    if (pResult < 0)
      throw OXFailure(fmt::format("can't read {}: {}", printable(source), reason(pResult)));
    return pResult;
  };
  check(waitFor([&] { return avformat_find_stream_info(format.get(), nullptr); }));
  const AVCodec* codec = nullptr;
  int index = av_find_best_stream(format.get(), AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0);
  if (index >= 0 && options.stream >= 0)
    index = av_find_best_stream(format.get(), AVMEDIA_TYPE_VIDEO,
                                streamIndex(*format, options.stream, source), -1, &codec, 0);
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
  // As many threads as there are processors: large videos decode slower than real time on one. Of a
  // live source each thread that works on a frame of its own would add a frame of delay.
  decoder->thread_count = 0;
  if (isLive(kind)) decoder->thread_type = FF_THREAD_SLICE;
  check(avcodec_open2(decoder.get(), codec, nullptr));
}

int OXMediaReader::Impl::readPacket() {
  return waitFor([&] {
    while (true) {
      const int read = av_read_frame(format.get(), packet.get());
      if (read != AVERROR(EAGAIN) || mustStop()) return read;
      OXInterrupt::waitUntil(Clock::now() + kAskAgain);
    }
  });
}

/// Sends the decoder the next packet, or the end of the stream.
void OXMediaReader::Impl::feed() {
  while (true) {
    const int read = readPacket();
    if (read == AVERROR_EOF) {
      draining = true;
      // Sending decodes too: the failure is that of a frame which a thread was still working on.
      if (avcodec_send_packet(decoder.get(), nullptr) < 0) ++damaged;
      return;
    }
    if (read < 0)
      throw OXFailure(fmt::format("reading {} failed: {}", printable(source), reason(read)));
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

const AVFrame* OXMediaReader::Impl::nextOfFile() {
  while (true) {
    const int result = avcodec_receive_frame(decoder.get(), frame.get());
    if (result == 0) {
      if (frame->flags & AV_FRAME_FLAG_CORRUPT || frame->decode_error_flags != 0) ++damaged;
      takeTimes();
      // The aspect ratio stated by the container takes precedence.
      frame->sample_aspect_ratio = av_guess_sample_aspect_ratio(format.get(), stream, frame.get());
      return frame.get();
    }
    if (result == AVERROR_EOF) return nullptr;
    if (result == AVERROR(EAGAIN)) {
      // A drained decoder wants nothing more; should one say so, asking again would never end.
      if (draining) return nullptr;
      feed();
      continue;
    }
    // A frame that failed, and no reason to stop: a decoder with several threads reports failures
    // late, with good frames after them. It bounds the number of failures at the end itself.
    ++damaged;
  }
}

/// A picture that can't be read costs its own frame only.
const AVFrame* OXMediaReader::Impl::nextPictureFrame() {
  while (nextPicture < pictures.size()) {
    checkStopped();
    const std::size_t index = nextPicture++;
    const std::string& path = pictures[index];
    const AVFrame* shown = nullptr;
    try {
      picture = std::make_unique<OXMediaReader>(path, testSize);
      shown = picture->next();
    } catch (const OXFailure& failure) {
      if (remark.empty()) remark = failure.what();
    }
    if (!shown) {
      ++damaged;
      if (remark.empty()) remark = printable(path) + " can't be decoded";
      continue;
    }
    duration = 1 / options.pictureFps;
    time = static_cast<double>(index) * duration;
    const FrameSize size{shown->width, shown->height};
    if (!firstSize) firstSize = size;
    if (size != *firstSize && remark.empty())
      remark = fmt::format(
          "the pictures have different sizes ({} is {}x{}, the first one {}x{}): "
          "each is fitted on its own",
          printable(path), size.width, size.height, firstSize->width, firstSize->height);
    return shown;
  }
  return nullptr;
}

const AVFrame* OXMediaReader::next() {
  return fImpl->pictures.empty() ? fImpl->nextOfFile() : fImpl->nextPictureFrame();
}

std::string OXMediaReader::remark() const { return fImpl->remark; }

double OXMediaReader::time() const { return fImpl->time; }

double OXMediaReader::frameDuration() const { return fImpl->duration; }

Orientation OXMediaReader::orientation() const {
  if (fImpl->picture) return fImpl->picture->orientation();
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
  if (!fImpl->pictures.empty())
    return static_cast<double>(fImpl->pictures.size()) / fImpl->options.pictureFps;
  if (fImpl->format->duration <= 0 || fImpl->kind == MediaKind::kTest) return 0;
  return static_cast<double>(fImpl->format->duration) / AV_TIME_BASE;
}

std::int64_t OXMediaReader::damagedFrames() const { return fImpl->damaged; }

}  // namespace OX::cli
