// Every error becomes one line on standard error and an exit status here, and nowhere else.
#include "program.h"

#include <cstdlib>

#include <oxframework/oxerror.h>
#include <oxframework/oxlog.h>
#include <oxframework/version.h>
#include "commands/commands.h"
#include "device/hints.h"
#include "terminal/exitstatus.h"
#include "terminal/interrupt.h"

namespace OX::cli {

namespace {

void addAllVerbs(OXCommandLine& pLine, Context& pContext) {
  // In the order of the help: viewing, feeding, settings, recording, replay, files, the broker.
  for (const auto add : {addCameras, addSnapshot, addMulti,   addWatch,  addPush,       addGet,
                         addSet,     addAngles,   addRecord,  addPlay,   addNext,       addPrevious,
                         addSpeed,   addPosition, addInfo,    addVerify, addRepair,     addImport,
                         addExport,  addModules,  addMethods, addCall,   addSubscribers})
    add(pLine, pContext);
}

int failed(Context& pContext, const std::string& pText, int pStatus) {
  const OXTextStyle style(wantsColor(pContext.color, pContext.err.isTerminal()));
  pContext.err.tryLine("oxvideo: " + style.red("error:") + " " + printable(pText));
  return pStatus;
}

/// The device's own words; where they come from is of use only to somebody who has the source.
std::string errorText(const OXError& pError, bool pIsVerbose) {
  const OXError placeless(pError.getModuleName(), pError.getFunctionName(), pError.getDescription(),
                          "", 0);
  return pIsVerbose ? pError.toString() : placeless.toString();
}

int run(const std::vector<std::string>& pArguments, Context& pContext) {
  OXCommandLine line(
      "oxvideo", "Inspects, feeds and records the cameras of a broker, and calls its modules.",
      "oxvideo " OX_VERSION,
      "Exit status:\n"
      "  0    done\n"
      "  1    failed; standard error says why\n"
      "  2    wrong usage; nothing was done\n"
      "  3    done, but incomplete: frames dropped, missing or damaged\n"
      "  130  interrupted by Ctrl-C (128 + the number of the signal; 143 for SIGTERM)\n"
      "Examples:\n"
      "  oxvideo cameras\n"
      "  oxvideo push test --camera 0 --frames 300\n"
      "  oxvideo snapshot -o a.png\n"
      "oxvideo VERB --help describes a verb.");
  OXVerb program = line.program();
  addCommonOptions(program, pContext);
  addAllVerbs(line, pContext);
  pContext.out.write(line.run(pArguments));
  return pContext.status;
}

}  // namespace

int runProgram(const std::vector<std::string>& pArguments, OXOutput& pOut, OXOutput& pErr) {
  // Errors are reported by this program; records of the framework would repeat them.
  ki::log::setLevel(0);
  Context context{pOut, pErr};
  // Before parsing, so that --broker overrides it.
  if (const char* address = std::getenv("OXVIDEO_BROKER"); address && *address)
    context.broker = address;
  try {
    return run(pArguments, context);
  } catch (const OXOutputClosed&) {
    // The reader has seen enough, as in: oxvideo watch | head -1.
    return kDone;
  } catch (const OXInterrupted&) {
    return OXInterrupt::status();
  } catch (const OXUsageError& error) {
    return failed(context, error.what(), kUsageError);
  } catch (const OXError& error) {
    const int status = failed(context, errorText(error, context.isVerbose), kFailed);
    // Looked for after the error is out: the broker may take its time to answer.
    if (const std::string hint = hintFor(error, context.broker); !hint.empty())
      context.err.tryLine("  " + hint);
    return status;
  } catch (const std::exception& error) {
    return failed(context, error.what(), kFailed);
  }
}

}  // namespace OX::cli
