// The broker opens the file, on its machine; what can be checked on this side is checked first.
#include <fmt/format.h>

#include <filesystem>
#include <memory>

#include "commands/commands.h"
#include "device/session.h"
#include "device/vocabulary.h"
#include "recordings/inputrecording.h"
#include "terminal/exitstatus.h"
#include "terminal/json.h"

namespace OX::cli {

namespace {

struct Options {
  std::string file;
  int mode = 1;
  bool loop = false;
  std::string range;
  int stream = 0;
  bool asJson = false;
};
/// Images to replay; all when first is -1.
using Range = std::pair<int, int>;
constexpr Range kAll{-1, -1};

bool isOnThisMachine(const std::string& pBroker) {
  for (const char* start : {"unix:", "127.", "localhost:", "[::1]:"})
    if (pBroker.starts_with(start)) return true;
  return false;
}

/// The device only logs what is wrong with a file, or replays nothing.
void requireReplayable(const std::string& pPath, int pStream, const Range& pRange) {
  OXInputRecording recording(pPath);
  recording.requireStream(pStream);
  const int images = recording.images(pStream);
  if (images == 0) throw OXFailure(printable(pPath) + " has no images");
  // A range may end after the last image, as the device allows.
  if (pRange.first >= images)
    throw OXUsageError(fmt::format("--range {}:{}: {} has images 0 to {}", pRange.first,
                                   pRange.second, printable(pPath), images - 1));
}

void play(Context& pContext, const Options& pOptions) {
  const Range range = pOptions.range.empty() ? kAll : parseRange(pOptions.range);
  // The broker opens the path and has another working directory.
  const std::string path = std::filesystem::absolute(pOptions.file).string();
  if (isOnThisMachine(pContext.broker)) requireReplayable(path, pOptions.stream, range);
  OXSession session(pContext.broker, "play");
  session.requireFileCamera();
  session.device("setVideo", path,
                 range == kAll ? OXValue() : OXValue::array(range.first, range.second),
                 pOptions.loop, pOptions.mode, pOptions.stream);
  // Opens the file now: an unreadable one is refused here, not at the first request.
  session.device("startFrameGrabber");
  if (!pOptions.asJson) return;
  OXJson images = nullptr;
  if (range != kAll) {
    images = OXJson::array();
    images.append(range.first);
    images.append(range.second);
  }
  pContext.out.line(OXJson({{"file", path},
                            {"mode", pOptions.mode},
                            {"loop", pOptions.loop},
                            {"range", images},
                            {"stream", pOptions.stream}})
                        .text());
}

}  // namespace

void addPlay(OXCommandLine& pLine, Context& pContext) {
  OXVerb verb =
      addVerb(pLine, pContext,
              {"play", "makes a file camera replay an .oxv file",
               "oxvideo play drive.oxv --loop\n"
               "The device must be a file camera, also for next, previous, speed and position:\n"
               "  oxbroker --load libvideoinput.so --source file --listen 127.0.0.1:9741 &\n"
               "  oxvideo play drive.oxv --loop --broker 127.0.0.1:9741"});
  const auto options = std::make_shared<Options>();
  verb.option("FILE", options->file, "file to replay, on the broker's machine").required();
  verb.option("--mode", options->mode,
              "0: image by image (next, previous, speed); 1: as recorded (the default)")
      .range(0, 1);
  verb.flag("--loop", options->loop, "restart at the end instead of staying on the last image");
  verb.option("--range", options->range, "only images A to B, counted from 0").valueName("A:B");
  verb.option("--stream", options->stream, "stream of the file (default 0)").notNegative();
  verb.flag("--json", options->asJson, "print what is replayed as JSON");
  verb.onRun([&pContext, options] { play(pContext, *options); });
}

}  // namespace OX::cli
