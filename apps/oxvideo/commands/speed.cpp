// The device takes any float; a speed that means nothing is refused before it is asked.
#include <cmath>
#include <memory>

#include "commands/commands.h"
#include "device/session.h"
#include "terminal/exitstatus.h"

namespace OX::cli {

void addSpeed(OXCommandLine& pLine, Context& pContext) {
  OXVerb verb =
      addVerb(pLine, pContext,
              {"speed", "sets how many images a second mode 0 shows", "oxvideo speed 12.5"});
  const auto speed = std::make_shared<double>(0);
  verb.option("F", *speed, "images a second, above 0").required();
  verb.onRun([&pContext, speed] {
    if (!std::isfinite(*speed) || *speed <= 0) throw OXUsageError("a speed is a number above 0");
    OXSession session(pContext.broker, "speed");
    session.requireFileCamera();
    session.device("replaySpeed", *speed);
  });
}

}  // namespace OX::cli
