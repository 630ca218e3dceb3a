// The commands that make the program a name server.
#pragma once

#include "registry/CommandContext.h"

namespace sorvane {

namespace key {
inline constexpr std::string_view acceptPort = "acceptPort";
inline constexpr std::string_view findPort = "findPort";
inline constexpr std::string_view newPort = "newPort";
inline constexpr std::string_view reconnectPort = "reconnectPort";
}  // namespace key

/// "newPort": hands out a port number and fills the sender's record. The port is not found before
/// "acceptPort". Reply {"portNumber"}.
Outcome newPort(CommandContext& context);

/// "acceptPort": enters the sender's record under its name and sets all watchers dirty. The reply
/// is the request.
void prepareAcceptPort(CommandContext& context);
Outcome acceptPort(CommandContext& context);

/// "reconnectPort": fills the sender's record with what the request carries, then does what
/// "acceptPort" does. The reply is the request.
void prepareReconnectPort(CommandContext& context);
Outcome reconnectPort(CommandContext& context);

/// "findPort": replies where the port of that name is, or {"notFound"}. A remote user of a server
/// that is configured for this machine only gets no reply.
Outcome findPort(CommandContext& context);

/// True when "findPort" will write a line to the log or the console.
bool findPortMayWait(const CommandContext& context);

}  // namespace sorvane
