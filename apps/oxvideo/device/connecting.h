/// Connects to a broker, or says why not and what to do.
#pragma once

#include <boost/shared_ptr.hpp>
#include <string>

namespace OX {
class OXRemoteBroker;
}

namespace OX::cli {

/// Connects and registers with the broker under a name, within two seconds. Throws OXFailure that
/// names the address, also when what listens there is no broker, and that shows how to start one;
/// OXError when a broker refuses the name.
boost::shared_ptr<OXRemoteBroker> connectToBroker(const std::string& pAddress,
                                                  const std::string& pName);

/// The command that starts a broker with cameras at an address, as it works in the user's shell.
/// Further options end in a blank.
std::string brokerCommand(const std::string& pAddress, const std::string& pOptions = "");

}  // namespace OX::cli
