// Follows many name servers at the same time.
#pragma once

#include <chrono>
#include <functional>
#include <vector>

#include "sorvctl/Session.h"
#include "sorvctl/net/Servers.h"

namespace sorvctl::net {

/// Prints a line for each change at the servers that `current` returns, and for each server that
/// answers, does not, or is no longer among them, until a signal ends it. `current` is called again
/// and again, on the caller's thread. `session` has the options of the command line.
void watch(const Session& session, std::chrono::milliseconds interval,
           const std::function<std::vector<Server>()>& current);

}  // namespace sorvctl::net
