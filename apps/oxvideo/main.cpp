// Hands the arguments to the library that tests call as well.
#include <exception>

#include "program.h"
#include "terminal/exitstatus.h"
#include "terminal/interrupt.h"
#include "terminal/output.h"

int main(int pCount, char** pArguments) {
  OX::cli::reserveStandardDescriptors();
  OX::cli::OXOutput out(1, "standard output"), err(2, "standard error");
  try {
    OX::cli::OXInterrupt::install();
    return OX::cli::runProgram({pArguments + 1, pArguments + pCount}, out, err);
  } catch (const std::exception& error) {
    err.tryLine(std::string("oxvideo: ") + error.what());
    return OX::cli::kFailed;
  }
}
