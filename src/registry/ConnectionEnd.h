// What happens to the registry when a connection ends.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "registry/Registry.h"

namespace sorvane {

/// What the end of a connection has removed that somebody should be told of.
struct ConnectionEnd {
  /// The key of the launcher host that was removed, NAME@ADDRESS, or nothing.
  std::optional<std::string> removedHost;
  /// How many ports that ended connections had left behind were dropped since the last end of a
  /// connection: they took more than they may.
  std::uint64_t droppedPorts = 0;
};

/// Forgets what the connection of this record had registered, in this order: takes the record off
/// the watch list, notes the time, removes the port of its name, removes the host of a launcher,
/// and sets the remaining watchers dirty. A null record only notes the time and sets the watchers
/// dirty. Takes no `serverLock`, so that a long command delays no closing.
///
/// The port is removed by name alone, on purpose: an entry that another connection has made under
/// that name since goes, too. Ports under further names of the record stay, on purpose, too: see
/// `Registry::endPort`. `connection` is the descriptor of the connection, which must be open still:
/// see PortMap.
[[nodiscard]] ConnectionEnd endConnection(Registry& registry, PortDescriptor* record,
                                          int connection = PortMap::kNoConnection);

}  // namespace sorvane
