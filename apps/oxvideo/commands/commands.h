/// The verbs of the command line: one source and one function each.
#pragma once

#include <string>

#include "terminal/arguments.h"
#include "terminal/output.h"
#include "terminal/text.h"

namespace OX::cli {

/// Passed to every verb. The common options fill it in before the verb runs.
struct Context {
  OXOutput& out;
  OXOutput& err;
  std::string broker = "127.0.0.1:9740";
  std::string color = "auto";
  bool isVerbose = false;  ///< errors name the place in the source that raised them
  int status = 0;          ///< exit status, set by the verb

  OXTextStyle style() const { return OXTextStyle(wantsColor(color, out.isTerminal())); }
};

/// The example is a command line that works, and what else --help should say after it.
struct Verb {
  const char* name;
  const char* description;
  const char* example;
};
/// Adds a verb with the common options.
OXVerb addVerb(OXCommandLine& pLine, Context& pContext, const Verb& pVerb);
void addCommonOptions(OXVerb& pVerb, Context& pContext);

/// Adds a verb that calls one method of a file camera. With --json, or if the method returns it,
/// the verb prints the number of the current image.
void addFileCameraCall(OXCommandLine& pLine, Context& pContext, const Verb& pVerb,
                       const char* pMethod);

void addCameras(OXCommandLine& pLine, Context& pContext);
void addSubscribers(OXCommandLine& pLine, Context& pContext);
void addSnapshot(OXCommandLine& pLine, Context& pContext);
void addMulti(OXCommandLine& pLine, Context& pContext);
void addWatch(OXCommandLine& pLine, Context& pContext);
void addPush(OXCommandLine& pLine, Context& pContext);
void addGet(OXCommandLine& pLine, Context& pContext);
void addSet(OXCommandLine& pLine, Context& pContext);
void addAngles(OXCommandLine& pLine, Context& pContext);
void addRecord(OXCommandLine& pLine, Context& pContext);
void addPlay(OXCommandLine& pLine, Context& pContext);
void addNext(OXCommandLine& pLine, Context& pContext);
void addPrevious(OXCommandLine& pLine, Context& pContext);
void addSpeed(OXCommandLine& pLine, Context& pContext);
void addPosition(OXCommandLine& pLine, Context& pContext);
void addInfo(OXCommandLine& pLine, Context& pContext);
void addVerify(OXCommandLine& pLine, Context& pContext);
void addRepair(OXCommandLine& pLine, Context& pContext);
void addImport(OXCommandLine& pLine, Context& pContext);
void addExport(OXCommandLine& pLine, Context& pContext);
void addModules(OXCommandLine& pLine, Context& pContext);
void addMethods(OXCommandLine& pLine, Context& pContext);
void addCall(OXCommandLine& pLine, Context& pContext);

}  // namespace OX::cli
