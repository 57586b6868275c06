/// The verbs. Each function adds one or more of them to the program's command line.
#pragma once

#include <string>

#include "terminal/arguments.h"
#include "terminal/output.h"
#include "terminal/text.h"

namespace OX::cli {

/// What every verb gets: filled by the common options, then read by the verb that runs.
struct Context {
  OXOutput& out;
  OXOutput& err;
  std::string broker = "127.0.0.1:9740";
  std::string color = "auto";
  int status = 0;  ///< what the verb that ran ended with

  OXTextStyle style() const { return OXTextStyle(wantsColor(color, out.isTerminal())); }
};

/// Adds a verb with the options that all share. pExample is a command line that works, shown by
/// --help; pRun gives the status.
struct Verb {
  const char* name;
  const char* description;
  const char* example;
};
OXVerb addVerb(OXCommandLine& pLine, Context& pContext, const Verb& pVerb);
void addCommonOptions(OXVerb& pVerb, Context& pContext);

/// A verb without arguments of its own that calls one method of a file camera and prints what it
/// answers, if that is a number.
void addFileCameraCall(OXCommandLine& pLine, Context& pContext, const Verb& pVerb,
                       const char* pMethod);

void addCameras(OXCommandLine& pLine, Context& pContext);
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
