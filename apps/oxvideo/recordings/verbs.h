/// The verbs for recordings that need no broker. Each function adds some of them.
#pragma once

#include "commands/commands.h"

namespace OX::cli {

/// info, verify, repair.
void addInspection(CLI::App& pRoot, Context& pContext);
/// import, export.
void addExchange(CLI::App& pRoot, Context& pContext);

}  // namespace OX::cli
