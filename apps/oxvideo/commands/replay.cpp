#include <fmt/format.h>

#include <cmath>
#include <filesystem>
#include <memory>

#include "commands/commands.h"
#include "device/session.h"
#include "device/vocabulary.h"
#include "terminal/exitstatus.h"

namespace OX::cli {

namespace {

struct PlayOptions {
  std::string file;
  int mode = 1;
  bool loop = false;
  std::string range;
  int stream = 0;
};

void needFileCamera(OXSession& pSession) {
  if (!pSession.deviceHas("setVideo"))
    throw OXFailure(
        "this broker's device replays no files\n"
        "  a file camera is had by the entry name=\"source\" value=\"FileCam\" in the broker's "
        "VideoInput.xml");
}

bool isOnThisMachine(const std::string& pBroker) {
  for (const char* start : {"unix:", "127.", "localhost:", "[::1]:"})
    if (pBroker.starts_with(start)) return true;
  return false;
}

void play(Context& pContext, const PlayOptions& pOptions) {
  OXValue range;
  if (!pOptions.range.empty()) {
    const auto [first, last] = parseRange(pOptions.range);
    range = OXValue::array(first, last);
  }
  // The path is opened by the broker, whose working directory is another.
  const std::string path = std::filesystem::absolute(pOptions.file).string();
  std::error_code ignored;
  // A missing file is only noted in the broker's log: say it here where that can be known.
  if (isOnThisMachine(pContext.broker) && !std::filesystem::is_regular_file(path, ignored))
    throw OXFailure("there is no file " + printable(path));
  OXSession session(pContext.broker, "play");
  needFileCamera(session);
  session.device("setVideo", path, range, pOptions.loop, pOptions.mode, pOptions.stream);
  // Opens the file now, so that one that can't be replayed is refused here.
  session.device("startFrameGrabber");
}

void addPlay(OXCommandLine& pLine, Context& pContext) {
  OXVerb verb =
      addVerb(pLine, pContext,
              {"play", "lets a file camera replay an .oxv file", "oxvideo play drive.oxv --loop"});
  const auto options = std::make_shared<PlayOptions>();
  verb.option("FILE", options->file, "the file, on the broker's machine").required();
  verb.option("--mode", options->mode,
              "0: image by image (next, previous, speed); 1: as recorded (the default)")
      .range(0, 1);
  verb.flag("--loop", options->loop, "start again at the end instead of staying on the last image");
  verb.option("--range", options->range, "only these images, counted from 0").valueName("A:B");
  verb.option("--stream", options->stream, "which stream of the file (default 0)").notNegative();
  verb.onRun([&pContext, options] { play(pContext, *options); });
}

/// A verb without arguments that calls one method of the file camera.
void addStep(OXCommandLine& pLine, Context& pContext, const Verb& pVerb, const char* pMethod) {
  OXVerb verb = addVerb(pLine, pContext, pVerb);
  verb.onRun([&pContext, pMethod, name = std::string(pVerb.name)] {
    OXSession session(pContext.broker, name);
    needFileCamera(session);
    const OXValue result = session.device(pMethod);
    if (result.isInt()) pContext.out.line(std::to_string(result.toInt()));
  });
}

void addSpeed(OXCommandLine& pLine, Context& pContext) {
  OXVerb verb =
      addVerb(pLine, pContext,
              {"speed", "sets how many images a second mode 0 shows", "oxvideo speed 12.5"});
  const auto speed = std::make_shared<double>(0);
  verb.option("F", *speed, "images a second, above 0").required();
  verb.onRun([&pContext, speed] {
    if (!std::isfinite(*speed) || *speed <= 0) throw OXUsageError("a speed is a number above 0");
    OXSession session(pContext.broker, "speed");
    needFileCamera(session);
    session.device("replaySpeed", *speed);
  });
}

}  // namespace

void addReplay(OXCommandLine& pLine, Context& pContext) {
  addPlay(pLine, pContext);
  addStep(pLine, pContext,
          {"next", "shows the next image, in mode 0, at the next request", "oxvideo next"},
          "nextImage");
  addStep(
      pLine, pContext,
      {"previous", "shows the previous image, in mode 0, at the next request", "oxvideo previous"},
      "previousImage");
  addSpeed(pLine, pContext);
  addStep(pLine, pContext,
          {"position", "prints the number of the current image", "oxvideo position"},
          "getCurrentImageNumber");
}

}  // namespace OX::cli
