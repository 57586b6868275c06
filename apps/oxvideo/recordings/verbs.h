/// The verbs for recordings that need no broker. Each function adds some of them.
#pragma once

#include "commands/commands.h"

namespace OX::cli {

/// info, verify, repair.
void addInspection(OXCommandLine& pLine, Context& pContext);
/// import, export.
void addExchange(OXCommandLine& pLine, Context& pContext);

}  // namespace OX::cli
