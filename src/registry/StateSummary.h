// The summary lists of database states and alerts.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "registry/Registry.h"

namespace sorvane {

/// Both lists are NAME:TEXT entries joined by "|", in the same order; either may be empty.
struct StateSummary {
  std::shared_ptr<const std::string> states;  ///< every database; "running" where none was set
  std::shared_ptr<const std::string> alerts;  ///< the databases whose alert is fresh

  /// Returns the cached lists when both are there; otherwise builds and caches both. An alert is
  /// therefore still reported after its hour while both are cached. `serverLock` must be held.
  [[nodiscard]] static StateSummary current(Registry& registry);

  /// Caches both lists. If the registry has changed since `version`, only the alert list is cached:
  /// the state list may hold a port whose connection has closed meanwhile.
  void cache(Registry& registry, std::uint64_t version) const;

  /// True when `current` would have to build the lists, and the map has more than `ports` entries
  /// or more than `slots` slots.
  [[nodiscard]] static bool mustBuildFromMoreThan(std::size_t ports, std::size_t slots,
                                                  Registry& registry);
};

}  // namespace sorvane
