// The device accepts any float; a speed that makes no sense is refused on this side.
#include <memory>

#include "commands/commands.h"
#include "device/session.h"
#include "terminal/json.h"

namespace OX::cli {

void addSpeed(OXCommandLine& pLine, Context& pContext) {
  OXVerb verb =
      addVerb(pLine, pContext,
              {"speed", "sets the replay rate of mode 0",
               "oxvideo speed 12.5\nThe device must be a file camera: see oxvideo play --help."});
  struct Options {
    double speed = 0;
    bool asJson = false;
  };
  const auto options = std::make_shared<Options>();
  verb.option("RATE", options->speed, "images per second").required().range(0.0001, 10000.0);
  verb.flag("--json", options->asJson, "print the rate as JSON");
  verb.onRun([&pContext, options] {
    OXSession session(pContext.broker, "speed");
    session.requireFileCamera();
    session.device("replaySpeed", options->speed);
    if (options->asJson) pContext.out.line(OXJson({{"images_per_second", options->speed}}).text());
  });
}

}  // namespace OX::cli
