// The commands of those who want to know what has changed, and of those who clear up.
#pragma once

#include "registry/CommandContext.h"

namespace sorvane {

/// "portChanges": tells the names that have changed since the position of "instance" and "since",
/// at most "limit" of them: 1 to 10000 in decimal digits, 1000 for anything else, and about a
/// mebibyte, but at least one. Reply {"instance", "sequence", "more", "restart"}, and for each name
/// an entry with the entries of a row. A position that is not of this registry, or too old,
/// restarts: everything is told. Costs as much as it tells. The inner lock is held for a slice at a
/// time.
Outcome portChanges(CommandContext& context);
bool portChangesMayWait(const CommandContext& context);

/// "forgetPort": removes the port of the name "name" if its connection has ended, and sets all
/// watchers dirty. Reply {"result": "success" or "failed"}.
Outcome forgetPort(CommandContext& context);

}  // namespace sorvane
