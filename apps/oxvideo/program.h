/// The program as a function, so that tests can run command lines without a process.
#pragma once

#include <string>
#include <vector>

#include "terminal/output.h"

namespace OX::cli {

/// Runs one command line (without the program's name) and returns an ExitStatus or 128 + a signal.
/// Data goes to pOut, everything else to pErr. Call OXInterrupt::install() first if signals should
/// end a verb cleanly.
int runProgram(const std::vector<std::string>& pArguments, OXOutput& pOut, OXOutput& pErr);

}  // namespace OX::cli
