// The list is read from the front: [id, address, name, ...].
#include "device/feeders.h"

#include <oxframework/oxerror.h>

namespace OX::cli {

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
      if (connection[field].isString() && connection[field].toString() == pFeeder) return true;
  }
  return false;
}

}  // namespace OX::cli
