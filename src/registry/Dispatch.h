// The order in which requests are recognised.
#pragma once

#include <span>

#include "registry/CommandContext.h"

namespace sorvane {

/// One rule: which requests it takes, and what they cause.
struct DispatchRule {
  KeySet keys;  ///< all of these must be present, whatever their values
  Word action;  ///< the command word, or `Word::none` for any request
  Command carryOut;
  MayWait mayWait;

  [[nodiscard]] bool matches(const RequestKeys& request) const {
    return request.holds(keys) && (action == Word::none || action == request.action());
  }
};

/// All rules; the first that matches a request is its own. The last one matches any.
[[nodiscard]] std::span<const DispatchRule> dispatchRules();

/// The rule of a request.
[[nodiscard]] const DispatchRule& ruleFor(const RequestKeys& request);

}  // namespace sorvane
