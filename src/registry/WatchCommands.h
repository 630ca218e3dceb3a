// The commands of those who watch for changes, by polling.
#pragma once

#include "registry/CommandContext.h"

namespace sorvane {

/// "watchPortChanges": puts the sender's record on the watch list, once more if it is there, and
/// sets its flag. Reply {"result": "succeed"}.
Outcome watchPortChanges(CommandContext& context);

/// "didPortsChange": puts the sender's record on the watch list unless it is there; then tells and
/// clears its flag. Reply {"result": "YES" or "NO"}.
Outcome didPortsChange(CommandContext& context);

/// "needsRefresh": marks all watchers; with "force" YES it advances the forced-refresh number, too.
/// Reply {"result": "success"}.
Outcome needsRefresh(CommandContext& context);

/// "changeTimestamp": reply {"result": time of the last change}, and "force_refresh" once there was
/// a forced refresh.
Outcome changeTimestamp(CommandContext& context);

}  // namespace sorvane
