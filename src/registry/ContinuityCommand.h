// What administrators ask before and after an upgrade in place.
#pragma once

#include "registry/CommandContext.h"

namespace sorvane {

/// "continuity": tells whether this is the same registry as before, and what it has gone through.
/// Reply {"result": "succeed", "instance", "upgrades", "crashes", "attempts", "refused", "begun",
/// "process"}.
Outcome continuity(CommandContext& context);

}  // namespace sorvane
