// The device accepts any float; a speed that makes no sense is refused on this side.
#include <cmath>
#include <memory>

#include "commands/commands.h"
#include "device/session.h"
#include "terminal/exitstatus.h"

namespace OX::cli {

void addSpeed(OXCommandLine& pLine, Context& pContext) {
  OXVerb verb =
      addVerb(pLine, pContext, {"speed", "sets the replay rate of mode 0", "oxvideo speed 12.5"});
  const auto speed = std::make_shared<double>(0);
  verb.option("F", *speed, "images per second, above 0").required();
  verb.onRun([&pContext, speed] {
    if (!std::isfinite(*speed) || *speed <= 0) throw OXUsageError("the speed must be above 0");
    OXSession session(pContext.broker, "speed");
    session.requireFileCamera();
    session.device("replaySpeed", *speed);
  });
}

}  // namespace OX::cli
