// FFmpeg's own protocol for pipes blocks in read(), which only a signal to that very thread ends.
#include "media/pipeinput.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "media/ffmpeg.h"
#include "terminal/exitstatus.h"
#include "terminal/text.h"

namespace OX::cli {

namespace {

constexpr int kBufferBytes = 64 * 1024;
constexpr int kSliceMs = 50;

}  // namespace

OXPipeInput::OXPipeInput(const std::string& pSource, std::function<bool()> pIsCancelled)
    : fIsCancelled(std::move(pIsCancelled)), fIsOwned(pSource != "-"), fDescriptor(STDIN_FILENO) {
  // Not blocking: opening a named pipe would wait for its writer.
  if (fIsOwned) fDescriptor = ::open(pSource.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fDescriptor < 0)
    throw OXFailure(fmt::format("can't read {}: {}", printable(pSource), std::strerror(errno)));
  if (::isatty(fDescriptor))
    throw OXFailure(
        "standard input is a terminal; pipe a video into it, as in:\n"
        "  ffmpeg -i film.mp4 -c copy -f matroska - | oxvideo push - --camera 0");
  auto* const buffer = static_cast<unsigned char*>(av_malloc(kBufferBytes));
  if (buffer)
    fContext =
        avio_alloc_context(buffer, kBufferBytes, 0, this, &OXPipeInput::xRead, nullptr, nullptr);
  if (fContext) return;
  av_free(buffer);
  if (fIsOwned) ::close(fDescriptor);
  throw OXFailure("out of memory");
}

OXPipeInput::~OXPipeInput() {
  // The library may have replaced the buffer.
  av_freep(&fContext->buffer);
  avio_context_free(&fContext);
  if (fIsOwned) ::close(fDescriptor);
}

int OXPipeInput::xRead(void* pThis, unsigned char* pTarget, int pSize) {
  OXPipeInput& self = *static_cast<OXPipeInput*>(pThis);
  while (!self.fIsCancelled()) {
    pollfd ready = {self.fDescriptor, POLLIN, 0};
    const int count = ::poll(&ready, 1, kSliceMs);
    if (count == 0 || (count < 0 && errno == EINTR)) continue;
    if (count < 0) return AVERROR(errno);
    const ssize_t got = ::read(self.fDescriptor, pTarget, static_cast<std::size_t>(pSize));
    if (got > 0) {
      self.fIsEmpty = false;
      return static_cast<int>(got);
    }
    if (got == 0) return AVERROR_EOF;
    if (errno != EINTR && errno != EAGAIN) return AVERROR(errno);
  }
  return AVERROR_EXIT;
}

}  // namespace OX::cli
