/// Connects to a server within a time limit.
#pragma once

#include <chrono>
#include <string>

#include <oxframework/oxdescriptor.h>

namespace OX::wire {

/// Returns a socket connected to an address. Throws OXError that names the address and the reason
/// of the failure.
OXDescriptor connectTo(const std::string& pAddress, std::chrono::milliseconds pTimeout);

}  // namespace OX::wire
