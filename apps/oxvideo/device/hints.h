/// Adds to an error of the device what would have been right: its own texts are fixed and only say
/// what was wrong.
#pragma once

#include <string>

namespace OX {
class OXError;
}

namespace OX::cli {

/// One line, such as "this device has cameras 0 and 1"; empty when there is nothing to add. Asks
/// the broker at the address over a connection of its own. Never throws.
std::string hintFor(const OXError& pError, const std::string& pBroker);

}  // namespace OX::cli
