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

  OXPaint paint() const { return OXPaint(wantsColor(color, out.isTerminal())); }
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

void addModules(OXCommandLine& pLine, Context& pContext);
void addMethods(OXCommandLine& pLine, Context& pContext);
void addCall(OXCommandLine& pLine, Context& pContext);
void addCameras(OXCommandLine& pLine, Context& pContext);
void addPush(OXCommandLine& pLine, Context& pContext);
void addSnapshot(OXCommandLine& pLine, Context& pContext);
void addWatch(OXCommandLine& pLine, Context& pContext);
void addGetAndSet(OXCommandLine& pLine, Context& pContext);
void addMulti(OXCommandLine& pLine, Context& pContext);
void addAngles(OXCommandLine& pLine, Context& pContext);
void addRecord(OXCommandLine& pLine, Context& pContext);
void addReplay(OXCommandLine& pLine, Context& pContext);

}  // namespace OX::cli
