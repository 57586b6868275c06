// The class of the framework reports failures by return values; verbs want exceptions.
#include "recordings/inputrecording.h"

#include <fmt/format.h>
#include <unistd.h>

#include <filesystem>

#include <oxframework/oxdefinitions.h>
#include "terminal/exitstatus.h"
#include "terminal/text.h"

namespace OX::cli {

namespace {

namespace fs = std::filesystem;

/// The class of the framework has the system's words; here they are those of a user.
std::string whyUnreadable(const std::string& pPath, const std::string& pError) {
  std::error_code error;
  const auto status = fs::status(pPath, error);
  if (status.type() == fs::file_type::not_found) return pPath + " does not exist";
  if (status.type() == fs::file_type::directory)
    return pPath + " is a folder; a recording is an .oxv file";
  if (fs::is_regular_file(status) && ::access(pPath.c_str(), R_OK) != 0)
    return "no permission to read " + pPath;
  if (pError.find("not an .oxv file") == std::string::npos || fs::path(pPath).extension() == ".oxv")
    return pError;
  return fmt::format("{}\n  a video must be imported first: oxvideo import {} {}", pError,
                     shellWord(pPath),
                     shellWord(fs::path(pPath).replace_extension(".oxv").filename().string()));
}

}  // namespace

OXInputRecording::OXInputRecording(const std::string& pPath) : fPath(pPath) {
  // Damage is no failure: getDamage() lists it, and what is intact can be read.
  if (!fVideo.readVideo(pPath)) throw OXFailure(whyUnreadable(pPath, fVideo.getLastError()));
}

int OXInputRecording::allImages() const {
  int sum = 0;
  for (int stream = 0; stream < streams(); ++stream) sum += images(stream);
  return sum;
}

void OXInputRecording::requireStream(int pStream) const {
  if (pStream < 0 || pStream >= streams())
    throw OXUsageError(
        streams() == 1
            ? fmt::format("{} has no stream {}: it has one, number 0", printable(fPath), pStream)
            : fmt::format("{} has no stream {}: it has {}, numbered 0 to {}", printable(fPath),
                          pStream, streams(), streams() - 1));
}

FrameSize OXInputRecording::streamSize(int pStream) const {
  const OXVideoStream stream = fVideo.getStream(pStream);
  return {stream.fWidth, stream.fHeight};
}

std::optional<FrameSize> OXInputRecording::imageSize(int pIndex, int pStream) const {
  const OXVideoStream stream = fVideo.getStream(pStream);
  const auto place = fVideo.getFrameInfo(pIndex, pStream);
  // 0 for a format that no frame can have: then there are no images either.
  if (!place || stream.fFrameBytes == 0) return std::nullopt;
  if (place->fPayloadBytes == stream.fFrameBytes) return streamSize(pStream);
  // No camera goes from another size to one of these; and a header that states millions of pixels
  // must not make small images be scaled to them.
  if (stream.fResolution < 0) return std::nullopt;
  const std::int64_t layers = getLayersFromColorSpace(stream.fColorSpace);
  for (const int resolution : {kQQVGA, kQVGA, kVGA, k4VGA}) {
    FrameSize size;
    setSizeFromResolution(resolution, size.width, size.height);
    if (std::int64_t{size.width} * size.height * layers == place->fPayloadBytes) return size;
  }
  return std::nullopt;
}

const std::vector<unsigned char>* OXInputRecording::bytes(int pIndex, int pStream) {
  if (!fVideo.readFrameBytes(pIndex, pStream, fBytes)) {
    fError = fVideo.getLastError();
    return nullptr;
  }
  // The file class accepts frames of any size; whoever converts pixels relies on imageSize().
  if (imageSize(pIndex, pStream)) return &fBytes;
  const auto place = fVideo.getFrameInfo(pIndex, pStream);
  fError =
      fmt::format("{}: at byte {}: a frame of {} bytes in a stream whose frames have {}", fPath,
                  place ? place->fOffset : 0, fBytes.size(), fVideo.getStream(pStream).fFrameBytes);
  return nullptr;
}

CameraImage OXInputRecording::image(int pIndex, int pStream) {
  CameraImage image;
  const OXVideoStream stream = fVideo.getStream(pStream);
  const FrameSize size = imageSize(pIndex, pStream).value_or(streamSize(pStream));
  image.width = size.width;
  image.height = size.height;
  image.colorSpace = stream.fColorSpace;
  image.layers = getLayersFromColorSpace(stream.fColorSpace);
  if (const auto place = fVideo.getFrameInfo(pIndex, pStream)) {
    image.timestampUs = place->fTimeStamp;
    image.camera = place->fCameraId;
  }
  if (const auto* pixels = bytes(pIndex, pStream)) image.pixels = pixels->data();
  return image;
}

void requireDifferentFiles(const std::string& pInput, const std::string& pOutput) {
  std::error_code ignored;
  // Compares the files and not the names, which a link or "./" would disguise. For an
  // output that does not exist yet the answer is no, and the error can be ignored.
  if (fs::equivalent(pInput, pOutput, ignored))
    throw OXUsageError("the output is the same file as the input: " + printable(pInput));
}

}  // namespace OX::cli
