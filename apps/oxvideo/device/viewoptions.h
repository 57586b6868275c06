/// The options of a verb that looks through one camera, and the stream that they mean.
#pragma once

#include <string>

#include "device/session.h"
#include "terminal/arguments.h"

namespace OX::cli {

struct LookOptions {
  int camera = 0;
  std::string resolution;  ///< empty: what the camera runs at
  std::string colorSpace = "kRGB";
};

/// Adds --camera, --resolution and --colorspace.
void addLookOptions(OXVerb& pVerb, LookOptions& pOptions);

/// Checks the names, without a broker. Throws OXUsageError.
void checkNames(const LookOptions& pOptions);

/// The stream meant. Where no resolution is asked for it is the camera's own, so that looking
/// changes nothing.
Stream streamOf(const LookOptions& pOptions, OXSession& pSession);

}  // namespace OX::cli
