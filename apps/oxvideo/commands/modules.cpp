// The modules of a broker, one per line for scripts.
#include <memory>

#include "commands/commands.h"
#include "device/jsonvalues.h"
#include "device/session.h"

namespace OX::cli {

void addModules(OXCommandLine& pLine, Context& pContext) {
  OXVerb verb =
      addVerb(pLine, pContext, {"modules", "lists the modules of the broker", "oxvideo modules"});
  const auto asJson = std::make_shared<bool>(false);
  verb.flag("--json", *asJson, "print a JSON array");
  verb.onRun([&pContext, asJson] {
    OXSession session(pContext.broker, "modules");
    const OXValue modules = session.call("OXBroker", "getModuleList", OXValue(OXValue::Array()));
    if (*asJson) {
      pContext.out.line(toJson(modules));
      return;
    }
    for (const OXValue& module : modules.toArray()) pContext.out.line(printable(module.toString()));
  });
}

}  // namespace OX::cli
