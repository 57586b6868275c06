#include <exception>

#include "interrupt.h"
#include "output.h"
#include "program.h"
#include "status.h"

int main(int pCount, char** pArguments) {
  OX::cli::OXOutput out(1), err(2);
  try {
    OX::cli::OXInterrupt::install();
    return OX::cli::runProgram({pArguments + 1, pArguments + pCount}, out, err);
  } catch (const std::exception& error) {
    err.note(std::string("oxvideo: ") + error.what());
    return OX::cli::kFailed;
  }
}
