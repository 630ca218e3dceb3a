// The commands of those who watch for changes, by polling.
#pragma once

#include "registry/CommandContext.h"

namespace sorvane {

/// "watchPortChanges": puts the sender's record on the watch list, even when it is on it already,
/// and sets it dirty. Reply {"result": "succeed"}.
Outcome watchPortChanges(CommandContext& context);

/// "didPortsChange": puts the sender's record on the watch list unless it is on it. Then returns
/// and clears its dirty flag. Reply {"result": "YES" or "NO"}.
Outcome didPortsChange(CommandContext& context);

/// "needsRefresh": sets all watchers dirty. With "force" YES it also advances the forced-refresh
/// number. Reply {"result": "success"}.
Outcome needsRefresh(CommandContext& context);

/// "changeTimestamp": reply {"result": time of the last change}, and "force_refresh" after the
/// first forced refresh.
Outcome changeTimestamp(CommandContext& context);

}  // namespace sorvane
