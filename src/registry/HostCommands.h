// The commands about this host and its launchers, and those that end the process.
#pragma once

#include <cstdint>

#include "registry/CommandContext.h"

namespace sorvane {

/// "terminate" and "restart": end the process without an answer. It does not start itself again.
Outcome terminate(CommandContext& context);
Outcome restart(CommandContext& context);

/// "sorvexecConnectHost": a launcher presents itself. Reply {"result": "connected"} when it runs on
/// this machine, which its ethernet address tells, else "failed"; none without "hostName" and
/// "portHostAddress".
Outcome sorvexecConnectHost(CommandContext& context);

/// "hostInfo": reply {"result": name|ethernet address|address|product version|system version}, or
/// "local only" to a remote user of a server that is configured for this machine only.
Outcome hostInfo(CommandContext& context);

/// "hostList": reply {"result": host keys joined by "|"}, from the second list for an address that
/// has an alias.
Outcome hostList(CommandContext& context);

}  // namespace sorvane
