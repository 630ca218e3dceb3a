// The commands that make the program a name server.
#pragma once

#include "registry/CommandContext.h"

namespace sorvane {

/// "newPort": hands out a number and fills the sender's record, which is not found before
/// "acceptPort". Reply {"portNumber"}.
Outcome newPort(CommandContext& context);

/// "acceptPort": enters the sender's record under its name and marks the watchers. The reply is the
/// request.
Outcome acceptPort(CommandContext& context);

/// "reconnectPort": fills the sender's record with what the request carries and enters it, as
/// "acceptPort" does. The reply is the request.
Outcome reconnectPort(CommandContext& context);

/// "findPort": where the port of that name is, or {"notFound"}. No reply at all to a remote user of
/// a server that is configured for this machine only.
Outcome findPort(CommandContext& context);

/// True when "findPort" will write a line.
bool findPortMayWait(const CommandContext& context);

}  // namespace sorvane
