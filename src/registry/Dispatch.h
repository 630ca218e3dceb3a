// The order in which requests are recognised.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string_view>

#include "registry/CommandContext.h"

namespace sorvane {

/// What a command does beyond reading. The settings may reserve it for this machine.
enum class Effect : std::uint8_t {
  reads,        ///< changes nothing but what concerns the sender's own polling
  registers,    ///< changes the registry or the lists
  endsProcess,  ///< ends the process
};

/// One row of the dispatch table: which requests it matches, and the command that carries them out.
struct DispatchRule {
  /// A request must have all of them, whatever their values. The unused places at the end are
  /// empty.
  std::array<std::string_view, 4> keys;
  /// The text of "action" must be this, in any letter case. Empty for a row that does not ask.
  std::string_view action;
  Effect effect;
  Prepare prepare;  ///< null: there is nothing to prepare
  Command command;
  MayWait mayWait;
};

/// Returns all rules in their order. The first rule that matches a request applies to it; the last
/// rule matches every request.
[[nodiscard]] std::span<const DispatchRule> dispatchRules();

/// Returns the rule that applies to a request.
[[nodiscard]] const DispatchRule& ruleFor(const Message& request);

/// Returns whether the settings reserve the effect for this machine while the sender is on another.
[[nodiscard]] bool isReservedFrom(const CommandContext& context, Effect effect);

/// Does what comes before the command of the rule and needs no `serverLock`. Returns false when the
/// command must not be carried out: its effect is reserved from the sender. The reply is then nil.
[[nodiscard]] inline bool prepare(const DispatchRule& rule, CommandContext& context) {
  if (rule.effect != Effect::reads && isReservedFrom(context, rule.effect)) {
    return false;
  }
  if (rule.prepare != nullptr) {
    rule.prepare(context);
  }
  return true;
}

}  // namespace sorvane
