// A repaired file must read as if it had been recorded without the damage, so frames are copied
// with their stamps, cameras and angles, and in whole turns. A file has one size for each stream:
// which files there will be is known before the first frame is read, from the frames' headers.
#include "recordings/repairer.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <limits>
#include <list>
#include <map>

#include "recordings/inputrecording.h"
#include "terminal/exitstatus.h"
#include "terminal/outputfile.h"

namespace OX::cli {

namespace {

// Four sizes a camera has, and streams that change one by one pass through few combinations. A file
// made to have more must not open a thousand files.
constexpr std::size_t kMostParts = 16;

/// Image indexes of one turn, by stream; -1 for a missing frame.
using Turn = std::vector<int>;
using Sizes = std::vector<FrameSize>;

/// The frames in the order in which they were recorded, turn by turn.
std::map<std::int64_t, Turn> recordedTurns(const OXInputRecording& pRecording) {
  const int streams = pRecording.streams();
  std::map<std::int64_t, Turn> turns;
  for (int stream = 0; stream < streams; ++stream)
    for (int i = 0; i < pRecording.images(stream); ++i) {
      const auto frame = pRecording.video().getFrameInfo(i, stream);
      if (!frame) continue;
      Turn& turn =
          turns.try_emplace(frame->fSequence / streams, Turn(static_cast<std::size_t>(streams), -1))
              .first->second;
      turn[static_cast<std::size_t>(stream)] = i;
    }
  // The recorder may have stopped within the last turn: what exists of it is its beginning.
  if (!turns.empty())
    while (turns.rbegin()->second.back() < 0) turns.rbegin()->second.pop_back();
  return turns;
}

/// The sizes of a turn's frames; empty when one is missing or has no size.
Sizes sizesOf(const OXInputRecording& pRecording, const Turn& pTurn) {
  Sizes sizes;
  for (std::size_t stream = 0; stream < pTurn.size(); ++stream) {
    const auto size = pRecording.imageSize(pTurn[stream], static_cast<int>(stream));
    if (!size) return {};
    sizes.push_back(*size);
  }
  return sizes;
}

/// A frame with its metadata.
struct FrameCopy {
  std::vector<unsigned char> bytes;
  std::int64_t timestampUs;
  std::int8_t camera;
  std::vector<float> angles;
};

bool readTurn(OXInputRecording& pInput, const Turn& pTurn, std::vector<FrameCopy>& pFrames) {
  pFrames.resize(pTurn.size());
  for (std::size_t stream = 0; stream < pTurn.size(); ++stream) {
    FrameCopy& frame = pFrames[stream];
    const int number = static_cast<int>(stream);
    const auto place = pInput.video().getFrameInfo(pTurn[stream], number);
    if (!place || !pInput.video().readFrameBytes(pTurn[stream], number, frame.bytes)) return false;
    frame.timestampUs = place->fTimeStamp;
    frame.camera = place->fCameraId;
    frame.angles = pInput.video().getFrameAngles();
  }
  return true;
}

/// A recording of one size for each stream.
class Part {
 public:
  Part(const OXInputRecording& pInput, const Sizes& pSizes, const std::string& pPath,
       bool pOverwrite, OXOutput& pOut)
      : fFile(pPath, pOverwrite, pOut), fResult{pPath, pSizes, 0} {
    std::vector<streamHeader> headers = pInput.video().getStreamHeaders();
    for (std::size_t stream = 0; stream < headers.size(); ++stream) {
      headers[stream].width = pSizes[stream].width;
      headers[stream].height = pSizes[stream].height;
    }
    if (!fVideo.recordVideo(fFile.temporaryPath(), pInput.video().getPeriod(), headers))
      throw OXFailure(fFile.named(fVideo.getLastError()));
  }

  const Sizes& sizes() const { return fResult.sizes; }

  /// A turn of fewer frames than streams must be the last one.
  bool holds(const Sizes& pTurn) const {
    return std::equal(pTurn.begin(), pTurn.end(), sizes().begin());
  }

  void add(const std::vector<FrameCopy>& pFrames) {
    for (const FrameCopy& frame : pFrames)
      if (!fVideo.write(frame.bytes.data(), static_cast<int>(frame.bytes.size()), frame.timestampUs,
                        frame.camera, frame.angles[0], frame.angles[1], frame.angles[2],
                        frame.angles[3]))
        throw OXFailure(fFile.named(fVideo.getLastError()));
    fResult.frames += static_cast<int>(pFrames.size());
  }

  void close() { fVideo.closeVideo(); }
  void commit() { fFile.commit(); }
  const RepairedFile& result() const { return fResult; }

 private:
  OXOutputFile fFile;
  OXVideo fVideo;
  RepairedFile fResult;
};

/// The sizes that need a file each, the first kMostParts of them. A turn that only began has a
/// place in every file whose sizes begin with its own.
std::vector<Sizes> partSizes(const OXInputRecording& pInput,
                             const std::map<std::int64_t, Turn>& pTurns) {
  Sizes stated;
  for (int stream = 0; stream < pInput.streams(); ++stream)
    stated.push_back(pInput.streamSize(stream));
  std::vector<Sizes> parts;
  for (const auto& [number, turn] : pTurns) {
    Sizes sizes = sizesOf(pInput, turn);
    if (sizes.empty()) continue;
    const auto begins = [&](const Sizes& pPart) {
      return std::equal(sizes.begin(), sizes.end(), pPart.begin());
    };
    if (std::any_of(parts.begin(), parts.end(), begins)) continue;
    if (parts.size() == kMostParts) continue;
    sizes.insert(sizes.end(), stated.begin() + static_cast<std::ptrdiff_t>(sizes.size()),
                 stated.end());
    parts.push_back(sizes);
  }
  // Also where nothing can be kept: the result is then a recording without images.
  if (parts.empty()) parts.push_back(stated);
  // The stated sizes come first: they are what was meant to be recorded.
  const auto first = std::find(parts.begin(), parts.end(), stated);
  if (first != parts.end()) std::rotate(parts.begin(), first, first + 1);
  return parts;
}

/// "a.oxv", "a-2.oxv" and so on.
std::string partPath(const std::string& pOutput, std::size_t pPart) {
  if (pPart == 0) return pOutput;
  const std::filesystem::path path(pOutput);
  return (path.parent_path() /
          fmt::format("{}-{}{}", path.stem().string(), pPart + 1, path.extension().string()))
      .string();
}

/// The number of frames written up to the last one found, by its sequence number.
int writtenFrames(const OXInputRecording& pRecording) {
  std::int64_t written = 0;
  for (int stream = 0; stream < pRecording.streams(); ++stream)
    if (const auto last = pRecording.video().getFrameInfo(pRecording.images(stream) - 1, stream))
      written = std::max(written, last->fSequence + 1);
  return static_cast<int>(std::min<std::int64_t>(written, std::numeric_limits<int>::max()));
}

}  // namespace

RepairResult repair(OXInputRecording& pInput, const RepairOptions& pOptions, OXOutput& pOut,
                    const std::function<void(int)>& pOnFrame) {
  const auto turns = recordedTurns(pInput);
  const std::vector<Sizes> sizes = partSizes(pInput, turns);
  if (sizes.size() > 1 && pOptions.output == "-")
    throw OXUsageError(fmt::format(
        "the images have {} sizes and need a file each: standard output holds one", sizes.size()));
  std::list<Part> parts;
  for (const Sizes& size : sizes) {
    const std::string path = partPath(pOptions.output, parts.size());
    // The second may be the input where the first is not: repair a-2.oxv a.oxv.
    requireDifferentFiles(pInput.path(), path);
    parts.emplace_back(pInput, size, path, pOptions.overwrite, pOut);
  }
  RepairResult result;
  std::vector<FrameCopy> frames;
  for (const auto& [number, turn] : turns) {
    pOnFrame(result.kept);
    const Sizes turnSizes = sizesOf(pInput, turn);
    const auto part = std::find_if(parts.begin(), parts.end(),
                                   [&](const Part& pPart) { return pPart.holds(turnSizes); });
    if (turnSizes.empty() || part == parts.end() || !readTurn(pInput, turn, frames)) continue;
    part->add(frames);
    result.kept += static_cast<int>(turn.size());
  }
  // All are whole before the first gets its name.
  for (Part& part : parts) part.close();
  for (Part& part : parts) {
    // A size of which nothing was readable needs no file, unless there is no other.
    if (part.result().frames == 0 && &part != &parts.front()) continue;
    part.commit();
    result.files.push_back(part.result());
  }
  result.lost = std::max(0, writtenFrames(pInput) - result.kept);
  return result;
}

}  // namespace OX::cli
