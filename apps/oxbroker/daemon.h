/// The daemon from start to end: broker, services, modules and server.
#pragma once

#include <functional>
#include <iosfwd>

#include "options.h"

namespace OX::daemon {

/// Writes "listening on ADDRESS" lines to pOut once calls are served, serves until pWait returns,
/// and closes everything. Returns kDone, or kFailed after a message on pErr. Never throws.
int serve(const Options& pOptions, std::ostream& pOut, std::ostream& pErr,
          const std::function<void()>& pWait);

}  // namespace OX::daemon
