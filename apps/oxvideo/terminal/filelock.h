/// Tells whether another process is writing a file, as recorders do under a lock.
#pragma once

#include <string>

namespace OX::cli {

/// "process 4711 (oxbroker)", or "another process" when the system doesn't tell; empty when no one
/// has locked the file, and when that can't be found out.
std::string lockOwner(const std::string& pPath);

}  // namespace OX::cli
