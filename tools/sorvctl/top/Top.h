// The command "top".
#pragma once

#include <chrono>

#include "sorvctl/Session.h"

namespace sorvctl::top {

/// Shows the databases of the session's name server on the terminal until a key or a signal ends
/// it. Returns the exit status. Whatever happens, the terminal is put back.
int run(const Session& session, std::chrono::milliseconds interval);

}  // namespace sorvctl::top
