/// The program: arguments in, exit status out.
#pragma once

#include <string>
#include <vector>

#include "terminal/output.h"

namespace OX::cli {

/// Runs one command line (without the program's name) and returns an ExitStatus or 128 + a signal.
/// Data goes to pOut, everything else to pErr. OXInterrupt::install() comes before, if wanted.
int runProgram(const std::vector<std::string>& pArguments, OXOutput& pOut, OXOutput& pErr);

}  // namespace OX::cli
