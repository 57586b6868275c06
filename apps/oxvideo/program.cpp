#include "program.h"

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <sstream>

#include <oxframework/oxerror.h>
#include <oxframework/oxlog.h>
#include "commands/commands.h"
#include "recordings/verbs.h"
#include "terminal/exitstatus.h"
#include "terminal/interrupt.h"

namespace OX::cli {

namespace {

void addAllVerbs(CLI::App& pRoot, Context& pContext) {
  for (const auto add :
       {addCameras, addSnapshot, addMulti, addWatch, addPush, addGetAndSet, addAngles, addRecord,
        addReplay, addInspection, addExchange, addModules, addMethods, addCall})
    add(pRoot, pContext);
}

std::string wrongUseText(const CLI::App& pRoot, const CLI::ParseError& pError) {
  const auto verbs = pRoot.get_subcommands();
  const std::string help =
      "\n  see: oxvideo " + (verbs.empty() ? "" : verbs[0]->get_name() + " ") + "--help";
  const auto unknown = pRoot.remaining();
  if (verbs.empty() && !unknown.empty())
    return "there is no verb or option \"" + unknown.front() + "\"" + help;
  return (verbs.empty() ? "say what to do" : std::string(pError.what())) + help;
}

int failed(Context& pContext, const std::string& pText, int pStatus) {
  const OXPaint paint(wantsColor(pContext.color, pContext.err.isTerminal()));
  pContext.err.note("oxvideo: " + paint.red("error:") + " " + printable(pText));
  return pStatus;
}

/// Help and version go to standard output with status 0, the rest is wrong use.
int answerParser(const CLI::App& pRoot, const CLI::ParseError& pError, Context& pContext) {
  std::ostringstream out, err;
  if (pRoot.exit(pError, out, err) != 0)
    return failed(pContext, wrongUseText(pRoot, pError), kWrongUse);
  pContext.out.write(out.str());
  return kDone;
}

int run(const std::vector<std::string>& pArguments, Context& pContext) {
  CLI::App root("Looks into a broker's cameras, feeds them, and calls its modules.", "oxvideo");
  root.require_subcommand(1);
  root.set_version_flag("--version", "oxvideo " OX_VERSION);
  root.footer(
      "Exit status: 0 done, 1 failed, 2 wrong use, 3 done with losses (frames dropped or "
      "missing),\n"
      "128 + signal when a signal cut the work short.\n"
      "Try: oxvideo cameras; oxvideo push test --camera 0; oxvideo snapshot -o a.png");
  addCommonOptions(root, pContext);
  addAllVerbs(root, pContext);
  try {
    // The parser takes its arguments from the back.
    root.parse(std::vector<std::string>(pArguments.rbegin(), pArguments.rend()));
  } catch (const CLI::ParseError& error) {
    return answerParser(root, error, pContext);
  }
  return pContext.status;
}

}  // namespace

int runProgram(const std::vector<std::string>& pArguments, OXOutput& pOut, OXOutput& pErr) {
  // What this program has to say it says itself.
  ki::log::setLevel(0);
  Context context{pOut, pErr};
  if (const char* address = std::getenv("OXVIDEO_BROKER"); address && *address)
    context.broker = address;
  try {
    return run(pArguments, context);
  } catch (const OXOutputClosed&) {
    // Whoever closes our output has seen enough: oxvideo watch | head -1.
    return kDone;
  } catch (const OXInterrupted&) {
    return OXInterrupt::status();
  } catch (const OXUsageError& error) {
    return failed(context, error.what(), kWrongUse);
  } catch (const OXError& error) {
    return failed(context, error.toString(), kFailed);
  } catch (const std::exception& error) {
    return failed(context, error.what(), kFailed);
  }
}

}  // namespace OX::cli
