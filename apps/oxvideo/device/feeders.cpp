// The list is read from the front: [id, address, name, ...].
#include "device/feeders.h"

#include <oxframework/oxerror.h>

namespace OX::cli {

namespace {

/// The service says "unix:PATH (process 7)" where the broker adds the user: "(process 7, user 0)".
bool isSame(const std::string& pAddress, const std::string& pFeeder) {
  return pAddress == pFeeder ||
         (pFeeder.ends_with(')') &&
          pAddress.starts_with(pFeeder.substr(0, pFeeder.size() - 1) + ", "));
}

}  // namespace

bool isStillThere(OXSession& pSession, const std::string& pFeeder) {
  if (pFeeder.empty() || pFeeder == "local") return true;
  OXValue connections;
  try {
    connections = pSession.call("OXBroker", "getConnections", OXValue(OXValue::Array()));
  } catch (const OXError&) {
    if (!pSession.isConnected()) throw;
    return true;
  }
  if (!connections.isArray()) return true;
  for (const OXValue& connection : connections.toArray()) {
    if (!connection.isArray() || connection.getSize() < 3) return true;
    for (const int field : {1, 2})
      if (connection[field].isString() && isSame(connection[field].toString(), pFeeder))
        return true;
  }
  return false;
}

}  // namespace OX::cli
