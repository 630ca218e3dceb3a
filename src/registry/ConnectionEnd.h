// What happens to the registry when a connection ends.
#pragma once

#include <optional>
#include <string>

#include "registry/Registry.h"

namespace sorvane {

/// Forgets what the connection of this record had registered, in this order: takes the record off
/// the watch list, notes the time, removes the port of its name, removes the host of a launcher,
/// and sets the remaining watchers dirty. A null record only notes the time and sets the watchers
/// dirty. Takes no `serverLock`, so that a long command delays no closing.
///
/// The port is removed by name alone, on purpose: an entry that another connection has made under
/// that name since goes, too.
///
/// Returns the key of the launcher host that was removed, NAME@ADDRESS, or nothing.
[[nodiscard]] std::optional<std::string> endConnection(Registry& registry, PortDescriptor* record);

}  // namespace sorvane
