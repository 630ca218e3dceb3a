// The commands about this host and its launchers, and those that end the process.
#pragma once

#include "registry/CommandContext.h"

namespace sorvane {

namespace key {
inline constexpr std::string_view terminate = "terminate";
}  // namespace key

/// "terminate" and "restart": end the process without a reply. It does not start itself again.
Outcome terminate(CommandContext& context);
Outcome restart(CommandContext& context);

/// "sorvexecConnectHost": a launcher presents itself. Reply {"result": "connected"} when it runs on
/// this machine, which its ethernet address tells, else "failed". No reply without "hostName" and
/// "portHostAddress".
Outcome sorvexecConnectHost(CommandContext& context);

/// "hostInfo": reply {"result": name|ethernet address|address|product version|system version}. A
/// remote user of a server that is configured for this machine only gets "local only".
Outcome hostInfo(CommandContext& context);

/// "hostList": reply {"result": host keys joined by "|"}. An address that has an alias gets the
/// second list.
Outcome hostList(CommandContext& context);

}  // namespace sorvane
