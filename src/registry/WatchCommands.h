// The commands of those who watch for changes: by polling, or by waiting.
#pragma once

#include "registry/CommandContext.h"

namespace sorvane {

/// "watchPortChanges": puts the sender's record on the watch list, even when it is on it already,
/// and sets it dirty. Reply {"result": "succeed"}.
Outcome watchPortChanges(CommandContext& context);

/// "didPortsChange": puts the sender's record on the watch list unless it is on it. Then returns
/// and clears its dirty flag. Reply {"result": "YES" or "NO"}.
Outcome didPortsChange(CommandContext& context);

/// "awaitPortChanges": does the same as "didPortsChange". If the flag is clear, the request is held
/// for "timeout" seconds: 0 to 300 in decimal digits, 30 for anything else. With 0, the reply is
/// {"result": "NO"} at once.
Outcome awaitPortChanges(CommandContext& context);
/// Writes the reply to a request of `sender` that is held: {"result": "YES"}, which clears the
/// flag, or "NO" if the time is over. Otherwise the request is held on. Needs no `serverLock`;
/// called where requests of the connection are delivered.
Reply answerAwaiting(Registry& registry, const NetConnection& sender, MessageWriter reply,
                     bool isOver);

/// "needsRefresh": sets all watchers dirty. With "force" YES it also advances the forced-refresh
/// number. Reply {"result": "success"}.
Outcome needsRefresh(CommandContext& context);

/// "changeTimestamp": reply {"result": time of the last change}, and "force_refresh" after the
/// first forced refresh.
Outcome changeTimestamp(CommandContext& context);

}  // namespace sorvane
