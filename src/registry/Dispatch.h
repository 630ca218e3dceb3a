// The order in which requests are recognised.
#pragma once

#include <array>
#include <span>
#include <string_view>

#include "registry/CommandContext.h"

namespace sorvane {

/// One row of the dispatch table: which requests it matches, and the command that carries them out.
struct DispatchRule {
  /// A request must have all of them, whatever their values. The unused places at the end are
  /// empty.
  std::array<std::string_view, 4> keys;
  /// The text of "action" must be this, in any letter case. Empty for a row that does not ask.
  std::string_view action;
  Command carryOut;
  MayWait mayWait;
};

/// Returns all rules in their order. The first rule that matches a request applies to it; the last
/// rule matches every request.
[[nodiscard]] std::span<const DispatchRule> dispatchRules();

/// Returns the rule that applies to a request.
[[nodiscard]] const DispatchRule& ruleFor(const Message& request);

}  // namespace sorvane
