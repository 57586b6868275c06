// Common options are added to each verb and to the program, so that they may come before the verb
// or after it.
#include "commands/commands.h"

#include <memory>

#include "device/session.h"
#include "terminal/exitstatus.h"
#include "terminal/json.h"

namespace OX::cli {

void addCommonOptions(OXVerb& pVerb, Context& pContext) {
  pVerb
      .option("--broker", pContext.broker,
              "address of the broker: HOST:PORT or unix:PATH (default: $OXVIDEO_BROKER, else "
              "127.0.0.1:9740)")
      .valueName("ADDRESS")
      .group("Common options");
  pVerb.option("--color", pContext.color, "when to colour the output (default auto)")
      .oneOf({"auto", "always", "never"})
      .valueName("WHEN")
      .group("Common options");
  pVerb.flag("-v,--verbose", pContext.isVerbose, "name the source file and line of an error")
      .group("Common options");
}

OXVerb addVerb(OXCommandLine& pLine, Context& pContext, const Verb& pVerb) {
  OXVerb verb =
      pLine.addVerb(pVerb.name, pVerb.description, std::string("Example:\n  ") + pVerb.example);
  addCommonOptions(verb, pContext);
  return verb;
}

void addFileCameraCall(OXCommandLine& pLine, Context& pContext, const Verb& pVerb,
                       const char* pMethod) {
  OXVerb verb = addVerb(pLine, pContext, pVerb);
  const auto asJson = std::make_shared<bool>(false);
  verb.flag("--json", *asJson, "print the number of the current image as JSON");
  verb.onRun([&pContext, pMethod, asJson, name = std::string(pVerb.name)] {
    OXSession session(pContext.broker, name);
    session.requireFileCamera();
    const OXValue result = session.device(pMethod);
    const int position =
        (result.isInt() ? result : session.device("getCurrentImageNumber")).toInt();
    if (*asJson)
      pContext.out.line(OXJson({{"position", position}}).text());
    else if (result.isInt())
      pContext.out.line(std::to_string(position));
    if (position >= 0) return;
    pContext.err.tryLine("nothing is being replayed; start with: oxvideo play FILE");
    // A number was asked for and printed; a step that wasn't made is a failure.
    if (!result.isInt()) pContext.status = kFailed;
  });
}

}  // namespace OX::cli
