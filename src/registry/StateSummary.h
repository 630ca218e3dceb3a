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

  /// The kept lists when both stand, else both built anew and kept. A fresh alert is therefore
  /// reported past its hour while both stand. Needs `serverLock`.
  [[nodiscard]] static StateSummary current(Registry& registry);

  /// Keeps both lists, which were begun when the state list had been dropped `version` times. A
  /// connection that closed since has dropped it once more: what was built may hold its port, and
  /// only the alert list is kept.
  void keep(Registry& registry, std::uint64_t version) const;

  /// True when `current` would build the lists from more than `ports` entries, or from a map that
  /// so many have left that it has more than `slots`.
  [[nodiscard]] static bool mustBuildFromMoreThan(std::size_t ports, std::size_t slots,
                                                  Registry& registry);
};

}  // namespace sorvane
