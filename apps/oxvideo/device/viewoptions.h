/// The options of a verb that looks through one camera, and the stream that they mean.
#pragma once

#include <string>

#include "device/session.h"
#include "terminal/arguments.h"

namespace OX::cli {

struct ViewOptions {
  int camera = 0;
  std::string resolution;  ///< empty: what the camera runs at
  std::string colorSpace = "kRGB";
};

/// Adds --camera, --resolution and --colorspace.
void addViewOptions(OXVerb& pVerb, ViewOptions& pOptions);

/// Checks the names, without a broker. Throws OXUsageError.
void checkNames(const ViewOptions& pOptions);

/// The stream meant. Where no resolution is asked for it is the camera's own, so that looking
/// changes nothing.
StreamRequest streamRequest(const ViewOptions& pOptions, OXSession& pSession);

}  // namespace OX::cli
