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
  ///
  /// Raises NSException before anything is built when both lists together would have more than
  /// `mostBytes`.
  [[nodiscard]] static StateSummary current(Registry& registry, std::uint64_t mostBytes);

  /// Caches both lists. If the registry has changed since `version`, only the alert list is cached:
  /// the state list may hold a port whose connection has closed meanwhile.
  void cache(Registry& registry, std::uint64_t version) const;

  /// What it takes to build the lists.
  struct Work {
    std::size_t ports;    ///< entries of the map
    std::size_t slots;    ///< slots of the map
    std::uint64_t bytes;  ///< of both lists
  };
  /// True when `current` would have to build the lists, and one of the numbers is greater than
  /// that of `work`.
  [[nodiscard]] static bool mustBuildMoreThan(const Work& work, Registry& registry);
};

}  // namespace sorvane
