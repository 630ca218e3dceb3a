// Whether something has changed at the name server.
#pragma once

#include <chrono>

#include "sorvctl/Session.h"

namespace sorvctl {

/// Asks the name server whether something has changed since this connection has asked for the last
/// time. True when it asks for the first time. The connection counts as a watcher until it closes.
[[nodiscard]] bool hasChanged(Session& session);

/// Asks again and again. Returns true as soon as something has changed, and false when nothing has
/// for `limit`. Throws a Failure as the session does.
[[nodiscard]] bool changesWithin(Session& session, std::chrono::milliseconds limit);

}  // namespace sorvctl
