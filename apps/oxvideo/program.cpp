// Every error becomes one line on standard error and an exit status here, and nowhere else.
#include "program.h"

#include <cstdlib>

#include <oxframework/oxerror.h>
#include <oxframework/oxlog.h>
#include <oxframework/version.h>
#include "commands/commands.h"
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

int run(const std::vector<std::string>& pArguments, Context& pContext) {
  OXCommandLine line(
      "oxvideo", "Inspects, feeds and records the cameras of a broker, and calls its modules.",
      "oxvideo " OX_VERSION,
      "Exit status: 0 done, 1 failed, 2 usage error, 3 done with losses (frames dropped or "
      "missing),\n"
      "128 + signal number if a signal cut the work short.\n"
      "Try: oxvideo cameras; oxvideo push test --camera 0; oxvideo snapshot -o a.png");
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
    return failed(context, error.toString(), kFailed);
  } catch (const std::exception& error) {
    return failed(context, error.what(), kFailed);
  }
}

}  // namespace OX::cli
