/// One camera's texts for the grabber's state machine, which all cameras share.
#pragma once

#include <string>

namespace OX {

/// A null text means that no record is written.
struct GrabberTexts {
  const char* category;        ///< of the records
  const char* sourceFile;      ///< the path in the error of a failed opening
  unsigned int openErrorLine;  ///< the line in that error: clients match on it
  bool namesModule;            ///< whether records of failures begin with the module's name
  const char* closeError;
  const char* started;
  const char* stopped;
};

}  // namespace OX
