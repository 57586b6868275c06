// The broker opens the file, on its machine; what can be checked on this side is checked first.
#include <filesystem>
#include <memory>

#include "commands/commands.h"
#include "device/session.h"
#include "device/vocabulary.h"
#include "terminal/exitstatus.h"

namespace OX::cli {

namespace {

struct Options {
  std::string file;
  int mode = 1;
  bool loop = false;
  std::string range;
  int stream = 0;
};

bool isOnThisMachine(const std::string& pBroker) {
  for (const char* start : {"unix:", "127.", "localhost:", "[::1]:"})
    if (pBroker.starts_with(start)) return true;
  return false;
}

void play(Context& pContext, const Options& pOptions) {
  OXValue range;
  if (!pOptions.range.empty()) {
    const auto [first, last] = parseRange(pOptions.range);
    range = OXValue::array(first, last);
  }
  // The broker opens the path and has another working directory.
  const std::string path = std::filesystem::absolute(pOptions.file).string();
  std::error_code ignored;
  // The device only logs a missing file. Report it here if the broker is on this machine.
  if (isOnThisMachine(pContext.broker) && !std::filesystem::is_regular_file(path, ignored))
    throw OXFailure("no such file: " + printable(path));
  OXSession session(pContext.broker, "play");
  session.requireFileCamera();
  session.device("setVideo", path, range, pOptions.loop, pOptions.mode, pOptions.stream);
  // Opens the file now: an unreadable one is refused here, not at the first request.
  session.device("startFrameGrabber");
}

}  // namespace

void addPlay(OXCommandLine& pLine, Context& pContext) {
  OXVerb verb =
      addVerb(pLine, pContext,
              {"play", "makes a file camera replay an .oxv file", "oxvideo play drive.oxv --loop"});
  const auto options = std::make_shared<Options>();
  verb.option("FILE", options->file, "file to replay, on the broker's machine").required();
  verb.option("--mode", options->mode,
              "0: image by image (next, previous, speed); 1: as recorded (the default)")
      .range(0, 1);
  verb.flag("--loop", options->loop, "restart at the end instead of staying on the last image");
  verb.option("--range", options->range, "only images A to B, counted from 0").valueName("A:B");
  verb.option("--stream", options->stream, "stream of the file (default 0)").notNegative();
  verb.onRun([&pContext, options] { play(pContext, *options); });
}

}  // namespace OX::cli
