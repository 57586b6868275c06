#include <CLI/CLI.hpp>
#include <memory>

#include "commands.h"
#include "device/jsonvalues.h"
#include "device/session.h"

namespace OX::cli {

void addModules(CLI::App& pRoot, Context& pContext) {
  CLI::App* verb =
      addVerb(pRoot, pContext, {"modules", "lists the modules of the broker", "oxvideo modules"});
  const auto asJson = std::make_shared<bool>(false);
  verb->add_flag("--json", *asJson, "as a JSON array");
  verb->callback([&pContext, asJson] {
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
