/// Whether those who pushed to a camera are still connected.
#pragma once

#include <string>

#include "device/session.h"

namespace OX::cli {

/// Whether pFeeder, as OXVideoStatus names it, is a connection that still exists: a push of someone
/// who has gone is no conflict. True also when that can't be told (a module of the broker, a broker
/// that has no list of connections). Throws OXError when the connection is lost.
bool isStillThere(OXSession& pSession, const std::string& pFeeder);

}  // namespace OX::cli
