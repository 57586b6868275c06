// The public class over a writer or a reader: keeps the position, the last error and the log.
// Nothing throws: a recording is written in the middle of a delivery, which must not end halfway.
#include <oxframework/oxvideo.h>

#include <exception>
#include <string_view>

#include <oxframework/oxlog.h>
#include "reader.h"
#include "writer.h"

namespace OX {
namespace {

constexpr const char* kCategory = "video.oxvideo";

void report(int pLevel, const char* pFunction, const std::string& pText) {
  ki::log::log(pLevel, kCategory, pText, "", pFunction, 0);
}

/// Runs what may find no memory, be it for a table or for the text of a failure; pTrouble then
/// begins the text. A view, since reading a frame allocates nothing.
template <typename Operation>
bool withoutThrowing(const char* pFunction, std::string_view pTrouble, std::string& pLastError,
                     Operation pOperation) {
  try {
    return pOperation();
  } catch (const std::exception& error) {
    try {
      pLastError.assign(pTrouble).append(": ").append(error.what());
      report(ki::log::kError, pFunction, pLastError);
    } catch (const std::exception&) {
      pLastError.clear();  // no memory for the text either
    }
    return false;
  }
}

}  // namespace

OXVideo::OXVideo() = default;
OXVideo::~OXVideo() = default;

bool OXVideo::xFail(const std::string& pText) {
  fLastError = pText;
  return false;
}

bool OXVideo::recordVideo(const std::string& pPath, unsigned int pPeriod,
                          const std::vector<streamHeader>& pStreams) {
  closeVideo();
  return withoutThrowing("recordVideo", pPath, fLastError, [&] {
    auto writer = std::make_unique<detail::RecordingWriter>();
    if (!writer->open(pPath, pPeriod, pStreams)) {
      report(ki::log::kError, "recordVideo", writer->getError());
      return xFail(writer->getError());
    }
    fWriter = std::move(writer);
    return true;
  });
}

bool OXVideo::write(const void* pData, int pSize, std::int64_t pTimeStamp, std::int8_t pCameraId,
                    float pLeftAngle, float pTopAngle, float pRightAngle, float pBottomAngle) {
  return withoutThrowing("write", "the frame was not recorded", fLastError, [&] {
    if (!fWriter) return xFail("no recording is open");
    if (!pData || pSize <= 0) return xFail("an empty frame cannot be recorded");
    // Logged when it failed: a recorder that goes on must not fill the log.
    if (fWriter->hasFailed()) return false;
    detail::FrameHeader header;
    header.fTimeStamp = pTimeStamp;
    header.fCameraId = pCameraId;
    header.fAngles = {pLeftAngle, pTopAngle, pRightAngle, pBottomAngle};
    if (fWriter->append(
            header, {static_cast<const unsigned char*>(pData), static_cast<std::size_t>(pSize)}))
      return true;
    const std::string text = fWriter->getError() + "; the recording ends after " +
                             std::to_string(fWriter->getNumberOfFrames()) + " frames";
    report(ki::log::kError, "write", text);
    return xFail(text);
  });
}

void OXVideo::closeVideo() {
  if (fWriter)
    withoutThrowing("closeVideo", "the recording has no index", fLastError, [&] {
      // A failed recording was logged when it failed, and a missing index costs no frame.
      const bool failed = fWriter->hasFailed();
      if (fWriter->finish() || failed) return true;
      xFail(fWriter->getError() + "; the recording has no index");
      report(ki::log::kWarning, "closeVideo", fLastError);
      return false;
    });
  fWriter.reset();
  fReader.reset();
  fCurrentStream = 0;
  // The position before the first image, which getNextFrame() then reads.
  fCurrentImage = -1;
}

bool OXVideo::readVideo(const std::string& pPath) {
  closeVideo();
  fUnreadableLogged = false;
  return withoutThrowing("readVideo", pPath, fLastError, [&] {
    auto reader = std::make_unique<detail::RecordingReader>();
    if (!reader->open(pPath)) {
      report(ki::log::kError, "readVideo", reader->getError());
      return xFail(reader->getError());
    }
    const auto& damage = reader->getDamage();
    if (!damage.empty())
      report(ki::log::kWarning, "readVideo",
             pPath + ": at byte " + std::to_string(damage.front().fOffset) + ": " +
                 damage.front().fText +
                 (damage.size() > 1 ? "; damaged in " + std::to_string(damage.size()) + " places"
                                    : ""));
    fReader = std::move(reader);
    return true;
  });
}

bool OXVideo::xRead(OXImage& pImage, std::int64_t pIndex, int pStream) {
  return withoutThrowing("getFrame", "the image was not read", fLastError, [&] {
    if (!fReader) return xFail("no file is open for reading");
    const auto* frame = fReader->find(pIndex, pStream);
    if (!frame)
      return xFail("no image " + std::to_string(pIndex) + " in stream " + std::to_string(pStream));
    const auto result = fReader->read(*frame, pStream, pImage);
    // An unreadable image counts as read, so that a loop over all images gets past it.
    if (result != detail::RecordingReader::Result::kNoRoom) {
      fCurrentImage = static_cast<int>(pIndex);
      fCurrentStream = pStream;
    }
    if (result == detail::RecordingReader::Result::kDone) return true;
    xFail(fReader->getError());
    // Once a file: a replay in a loop would fill the log otherwise.
    if (!fUnreadableLogged) report(ki::log::kError, "getFrame", fLastError);
    fUnreadableLogged = true;
    return false;
  });
}

bool OXVideo::getNextFrame(OXImage& pImage, bool) {
  // In 64 bits, because the position may be the largest int.
  return xRead(pImage, std::int64_t{fCurrentImage} + 1, fCurrentStream);
}

bool OXVideo::getPrecedingFrame(OXImage& pImage, bool) {
  return xRead(pImage, std::int64_t{fCurrentImage} - 1, fCurrentStream);
}

bool OXVideo::getFrame(OXImage& pImage, int pIndex, int pStream, bool) {
  return xRead(pImage, pIndex, pStream);
}

int OXVideo::getNumberOfImages() const { return getStream(fCurrentStream).fNumberOfImages; }

int OXVideo::getNumberOfStreams() const { return fReader ? fReader->getNumberOfStreams() : 0; }

OXVideoStream OXVideo::getStream(int pStream) const {
  if (pStream < 0 || pStream >= getNumberOfStreams()) return {};
  return fReader->getStream(pStream);
}

std::optional<OXVideoFrame> OXVideo::getFrameInfo(int pIndex, int pStream) const {
  const auto* frame = fReader ? fReader->find(pIndex, pStream) : nullptr;
  if (!frame) return std::nullopt;
  return OXVideoFrame{static_cast<std::int64_t>(frame->fOffset), frame->fTimeStamp,
                      frame->fPayloadBytes, frame->fSequence, frame->fCameraId};
}

std::optional<std::int64_t> OXVideo::getTimeStamp(int pIndex, int pStream) const {
  const auto* frame = fReader ? fReader->find(pIndex, pStream) : nullptr;
  return frame ? std::optional(frame->fTimeStamp) : std::nullopt;
}

bool OXVideo::readFrameBytes(int pIndex, int pStream, std::vector<unsigned char>& pBytes) {
  return withoutThrowing("readFrameBytes", "the frame was not read", fLastError, [&] {
    const auto* frame = fReader ? fReader->find(pIndex, pStream) : nullptr;
    if (!frame)
      return xFail("no image " + std::to_string(pIndex) + " in stream " + std::to_string(pStream));
    return fReader->readBytes(*frame, pStream, pBytes) || xFail(fReader->getError());
  });
}

std::vector<float> OXVideo::getFrameAngles() const {
  if (!fReader) return {};
  return {fReader->getAngles().begin(), fReader->getAngles().end()};
}

std::vector<streamHeader> OXVideo::getStreamHeaders() const {
  return fReader ? fReader->getHeader().fStreams : std::vector<streamHeader>{};
}

unsigned int OXVideo::getPeriod() const { return fReader ? fReader->getHeader().fPeriod : 0; }

bool OXVideo::hasIndex() const { return fReader && fReader->hasIndex(); }

std::vector<OXVideoDamage> OXVideo::getDamage() const {
  return fReader ? fReader->getDamage() : std::vector<OXVideoDamage>{};
}

}  // namespace OX
