// What a name server has gone through without losing what is registered.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "sorvctl/Session.h"

namespace sorvctl {

struct Continuity {
  std::string instance;        ///< names the registry, which upgrades keep
  std::uint64_t upgrades = 0;  ///< in place, that this name server has gone through
  std::uint64_t crashes = 0;   ///< serving processes that were replaced after their death
  std::uint64_t attempts = 0;  ///< upgrades that were tried
  std::string refused;         ///< why the last one was put off or refused; empty: it was not
};

/// Asks the server. Nothing when it is of an earlier version, which does not know the question.
[[nodiscard]] std::optional<Continuity> readContinuity(Session& session);

}  // namespace sorvctl
