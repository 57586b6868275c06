// The options of `push`. What it does is OXPusher's.
#include <algorithm>
#include <memory>

#include "commands/commands.h"
#include "device/pusher.h"
#include "terminal/exitstatus.h"

namespace OX::cli {

void addPush(OXCommandLine& pLine, Context& pContext) {
  OXVerb verb =
      addVerb(pLine, pContext,
              {"push", "feeds cameras with a video, a picture or a moving test picture",
               "oxvideo push test --camera 0 --camera 1\n"
               "  oxvideo push film.mp4 --camera 0 --loop\n"
               "  oxvideo push pictures/ --camera 0 --fps 10\n"
               "  oxvideo push /dev/video0 --camera 0 --reconnect\n"
               "  oxvideo push lavfi:mandelbrot=size=640x480:rate=30 --camera 0\n"
               "  ffmpeg -v error -i film.mp4 -c copy -f matroska - | oxvideo push - "
               "--camera 0\n"
               "Frames that the camera doesn't take, because nobody wants that many, are "
               "skipped;\n"
               "frames that came too late are dropped. Cameras and RTSP are read at their "
               "own pace.\n"
               "A source without an end (test, a picture, --loop) exits with 0 when "
               "stopped, or 3 if frames\n"
               "were dropped. A film or a number of frames that a signal cuts short "
               "exits with 130 (SIGINT)."});
  const auto options = std::make_shared<PushOptions>();
  verb.option("SOURCE", options->source,
              "a video file, a picture, a folder or pattern of pictures (25 a second, or --fps), a "
              "camera (/dev/video0), a URL (rtsp://...), \"-\" (standard input), \"lavfi:\" and a "
              "filter graph, or \"test\"")
      .required();
  verb.option("--camera", options->cameras, "camera to feed; can be repeated")
      .required()
      .valueName("N")
      .range(0, 255);
  verb.option("--size", options->size,
              "160x120, 320x240, 640x480 or 1280x960 (default: what the camera expects, followed "
              "as it changes)")
      .valueName("WxH");
  verb.option("--fps", options->fps, "frames per second (default: what the camera expects)")
      .valueName("F");
  verb.option("--frames", options->frames, "stop after this many frames per camera")
      .valueName("N")
      .range(std::int64_t{1}, std::int64_t{1} << 53);
  verb.option("--fit", options->fit,
              "a source of another aspect ratio gets black bars (pad, the default) or is stretched")
      .oneOf({"pad", "stretch"});
  verb.option("--input-format", options->inputFormat,
              "FFmpeg's name of the source's format, where it can't be found out")
      .valueName("NAME");
  verb.flag("--loop", options->loop, "restart at the end");
  verb.flag("--anyway", options->anyway, "also feed a camera that somebody else is feeding");
  verb.flag("--reconnect", options->reconnect, "wait for the broker and go on when it is gone");
  verb.flag("--json", options->asJson, "print a summary as JSON at the end");
  verb.onRun([&pContext, options] {
    // Two feeds of one camera would alternate on it.
    auto sorted = options->cameras;
    std::sort(sorted.begin(), sorted.end());
    if (std::adjacent_find(sorted.begin(), sorted.end()) != sorted.end())
      throw OXUsageError("the same camera was given twice");
    pContext.status = OXPusher(pContext.broker, pContext.out, pContext.err, *options).run();
  });
}

}  // namespace OX::cli
