// A repaired file must read as if it had been recorded without the damage, so frames are copied
// with their stamps, cameras and angles, and in whole turns.
#include "recordings/repairer.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <map>

#include "recordings/inputrecording.h"
#include "terminal/exitstatus.h"

namespace OX::cli {

namespace {

/// Image indexes of one turn, by stream; -1 for a missing frame.
using Turn = std::vector<int>;

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

/// A frame with its metadata.
struct FrameCopy {
  std::vector<unsigned char> bytes;
  std::int64_t timestampUs;
  std::int8_t camera;
  std::vector<float> angles;
};

/// Frames of any size are kept: a repair does not judge what was recorded.
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

void writeTurn(OXVideo& pOutput, const std::vector<FrameCopy>& pFrames) {
  for (const FrameCopy& frame : pFrames)
    if (!pOutput.write(frame.bytes.data(), static_cast<int>(frame.bytes.size()), frame.timestampUs,
                       frame.camera, frame.angles[0], frame.angles[1], frame.angles[2],
                       frame.angles[3]))
      throw OXFailure(pOutput.getLastError());
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

RepairResult repair(OXInputRecording& pInput, const std::string& pOutput,
                    const std::function<void(int)>& pOnFrame) {
  OXVideo output;
  if (!output.recordVideo(pOutput, pInput.video().getPeriod(), pInput.video().getStreamHeaders()))
    throw OXFailure(output.getLastError());
  RepairResult result;
  std::vector<FrameCopy> frames;
  // A failed write throws and leaves a valid recording of the turns before it.
  for (const auto& [number, turn] : recordedTurns(pInput)) {
    pOnFrame(result.kept);
    if (!readTurn(pInput, turn, frames)) continue;
    writeTurn(output, frames);
    result.kept += static_cast<int>(turn.size());
  }
  output.closeVideo();
  result.lost = std::max(0, writtenFrames(pInput) - result.kept);
  return result;
}

}  // namespace OX::cli
