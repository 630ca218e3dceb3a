// The commands about the state and the alert of each database.
#pragma once

#include "registry/CommandContext.h"

namespace sorvane {

/// "setDatabaseState": sets the state of the database of that name, if there is one, and sets the
/// watchers dirty. Reply {"result": "success"}, or "failed" without "state" or "databaseName". Both
/// drop the cached state list.
Outcome setDatabaseState(CommandContext& context);

/// "setAlertState": the same for the alert, whose hour starts again, and the cached alert list.
Outcome setAlertState(CommandContext& context);

/// "databaseStates": reply {"result": state list, "alerts": alert list}.
Outcome databaseStates(CommandContext& context);

/// True when "databaseStates" must build so long a list that other connections would notice.
bool databaseStatesMayWait(const CommandContext& context);

}  // namespace sorvane
