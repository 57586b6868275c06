// The class of the framework reports failures by return values; verbs want exceptions.
#include "recordings/inputrecording.h"

#include <fmt/format.h>

#include <filesystem>

#include <oxframework/oxdefinitions.h>
#include "terminal/exitstatus.h"
#include "terminal/text.h"

namespace OX::cli {

OXInputRecording::OXInputRecording(const std::string& pPath) : fPath(pPath) {
  // Damage is no failure: getDamage() lists it, and what is intact can be read.
  if (!fVideo.readVideo(pPath)) throw OXFailure(fVideo.getLastError());
}

int OXInputRecording::allImages() const {
  int sum = 0;
  for (int stream = 0; stream < streams(); ++stream) sum += images(stream);
  return sum;
}

void OXInputRecording::requireStream(int pStream) const {
  if (pStream < 0 || pStream >= streams())
    throw OXUsageError(fmt::format("{} has no stream {}; the last one is {}", printable(fPath),
                                   pStream, streams() - 1));
}

const std::vector<unsigned char>* OXInputRecording::bytes(int pIndex, int pStream) {
  if (!fVideo.readFrameBytes(pIndex, pStream, fBytes)) {
    fError = fVideo.getLastError();
    return nullptr;
  }
  // The file class accepts frames of any size; whoever converts pixels relies on the stream's.
  // 0 for a format that no frame can have: then no frame matches.
  const auto expected = static_cast<std::size_t>(fVideo.getStream(pStream).fFrameBytes);
  if (fBytes.size() == expected) return &fBytes;
  const auto place = fVideo.getFrameInfo(pIndex, pStream);
  fError = fmt::format("{}: at byte {}: a frame of {} bytes in a stream whose frames have {}",
                       fPath, place ? place->fOffset : 0, fBytes.size(), expected);
  return nullptr;
}

CameraImage OXInputRecording::image(int pIndex, int pStream) {
  CameraImage image;
  const OXVideoStream stream = fVideo.getStream(pStream);
  image.width = stream.fWidth;
  image.height = stream.fHeight;
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
  if (std::filesystem::equivalent(pInput, pOutput, ignored))
    throw OXUsageError("the output is the same file as the input: " + printable(pInput));
}

}  // namespace OX::cli
