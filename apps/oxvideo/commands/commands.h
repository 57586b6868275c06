/// The verbs. Each function adds one or more of them to the program's command line.
#pragma once

#include <string>

#include "terminal/output.h"
#include "terminal/text.h"

namespace CLI {
class App;
}

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
CLI::App* addVerb(CLI::App& pRoot, Context& pContext, const Verb& pVerb);
void addCommonOptions(CLI::App& pApp, Context& pContext);

void addModules(CLI::App& pRoot, Context& pContext);
void addMethods(CLI::App& pRoot, Context& pContext);
void addCall(CLI::App& pRoot, Context& pContext);
void addCameras(CLI::App& pRoot, Context& pContext);
void addPush(CLI::App& pRoot, Context& pContext);
void addSnapshot(CLI::App& pRoot, Context& pContext);
void addWatch(CLI::App& pRoot, Context& pContext);
void addGetAndSet(CLI::App& pRoot, Context& pContext);
void addMulti(CLI::App& pRoot, Context& pContext);
void addAngles(CLI::App& pRoot, Context& pContext);
void addRecord(CLI::App& pRoot, Context& pContext);
void addReplay(CLI::App& pRoot, Context& pContext);

}  // namespace OX::cli
