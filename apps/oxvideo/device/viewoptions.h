/// The options of verbs that view one camera, and the stream that they select.
#pragma once

#include <string>

#include "device/outcome.h"
#include "device/session.h"
#include "terminal/arguments.h"

namespace OX::cli {

struct ViewOptions {
  int camera = 0;
  std::string resolution;  ///< empty: the camera's current one
  std::string colorSpace = "kRGB";
  RateWish rate;
};

/// Adds --force-fps, beside the --fps of the verb.
void addForceFps(OXVerb& pVerb, RateWish& pWish);
/// Adds both, for a verb that looks once.
void addLookRate(OXVerb& pVerb, RateWish& pWish);

/// What a verb that looks once subscribes with, unless told otherwise: the lowest rate, since a
/// higher one could speed up cameras for everybody.
int lookRate(const RateWish& pWish);
/// The rate that was asked for, else the one that the camera runs at.
int rateToRunAt(const ViewOptions& pOptions, OXSession& pSession);

/// Adds --camera, --resolution and --colorspace.
void addViewOptions(OXVerb& pVerb, ViewOptions& pOptions);

/// Checks the names before a connection is made. Throws OXUsageError.
void checkNames(const ViewOptions& pOptions);

/// The selected stream. The default resolution is the camera's current one, so that viewing changes
/// nothing.
StreamRequest streamRequest(const ViewOptions& pOptions, OXSession& pSession);

}  // namespace OX::cli
