/// The words of one camera for the states of a grabber, which all cameras share.
#pragma once

#include <string>

namespace OX {

/// A null text writes no record.
struct GrabberTexts {
  const char* category;        ///< of the records
  const char* sourceFile;      ///< the path that the error of a failed opening carries
  unsigned int openErrorLine;  ///< and its line: clients match on it
  bool namesModule;            ///< whether records of failures begin with the module's name
  const char* closeError;
  const char* started;
  const char* stopped;
};

}  // namespace OX
