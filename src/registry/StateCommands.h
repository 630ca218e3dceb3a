// The commands about the state and the alert of each database.
#pragma once

#include "registry/CommandContext.h"

namespace sorvane {

/// "setDatabaseState": sets the state of the database of that name, if there is one, and marks the
/// watchers. Reply {"result": "success"}, or "failed" without "state" or "databaseName". In either
/// case the kept state list is dropped.
Outcome setDatabaseState(CommandContext& context);

/// "setAlertState": the same for the alert, whose hour begins, and the kept alert list.
Outcome setAlertState(CommandContext& context);

/// "databaseStates": reply {"result": state list, "alerts": alert list}.
Outcome databaseStates(CommandContext& context);

/// True when "databaseStates" has so long a list to build that other connections would notice.
bool databaseStatesMayWait(const CommandContext& context);

}  // namespace sorvane
