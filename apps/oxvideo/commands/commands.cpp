#include "commands.h"

#include <CLI/CLI.hpp>

namespace OX::cli {

void addCommonOptions(CLI::App& pApp, Context& pContext) {
  pApp.add_option("--broker", pContext.broker,
                  "where the broker is: HOST:PORT or unix:PATH (default OXVIDEO_BROKER from the "
                  "environment, else 127.0.0.1:9740)")
      ->type_name("ADDRESS")
      ->group("Common options");
  pApp.add_option("--color", pContext.color, "colours in the output (default auto)")
      ->check(CLI::IsMember({"auto", "always", "never"}))
      ->type_name("WHEN")
      ->group("Common options");
}

CLI::App* addVerb(CLI::App& pRoot, Context& pContext, const Verb& pVerb) {
  CLI::App* verb = pRoot.add_subcommand(pVerb.name, pVerb.description);
  verb->footer(std::string("Example:\n  ") + pVerb.example);
  addCommonOptions(*verb, pContext);
  return verb;
}

}  // namespace OX::cli
