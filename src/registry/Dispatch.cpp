#include "registry/Dispatch.h"

#include <optional>

#include "platform/Ascii.h"
#include "registry/HostCommands.h"
#include "registry/PortCommands.h"
#include "registry/RequestKeys.h"
#include "registry/StateCommands.h"
#include "registry/WatchCommands.h"

namespace sorvane {
namespace {

bool never(const CommandContext& /*context*/) { return false; }
bool always(const CommandContext& /*context*/) { return true; }
Outcome infoServer(CommandContext& /*context*/) { return Outcome::notRecognised(); }

using Keys = std::array<std::string_view, 4>;
using enum Effect;
constexpr Keys kNewPortKeys = {key::newPort, key::portHost, key::portName, key::portType};

// The order is part of the protocol: the first row that matches a request applies to it.
// clang-format off
constexpr DispatchRule kRules[] = {
    // keys                action                 effect       command              may wait
    {{key::reconnectPort}, "",                    registers,   reconnectPort,       never},
    {{key::findPort},      "",                    reads,       findPort,            findPortMayWait},
    {{key::acceptPort},    "",                    registers,   acceptPort,          never},
    {{key::terminate},     "",                    endsProcess, terminate,           always},
    {{},                   "restart",             endsProcess, restart,             always},
    {kNewPortKeys,         "",                    registers,   newPort,             never},
    {{},                   "needsRefresh",        registers,   needsRefresh,        never},
    {{},                   "setAlertState",       registers,   setAlertState,       never},
    {{},                   "setDatabaseState",    registers,   setDatabaseState,    never},
    {{},                   "databaseStates",      reads,       databaseStates,      databaseStatesMayWait},
    {{},                   "watchPortChanges",    reads,       watchPortChanges,    never},
    {{},                   "didPortsChange",      reads,       didPortsChange,      never},
    {{},                   "changeTimestamp",     reads,       changeTimestamp,     never},
    {{},                   "sorvexecConnectHost", registers,   sorvexecConnectHost, always},
    {{},                   "hostInfo",            reads,       hostInfo,            always},
    {{},                   "hostList",            reads,       hostList,            never},
    {{},                   "",                    reads,       infoServer,          always},
};
// clang-format on

bool hasAll(const Message& request, const Keys& keys) {
  for (const std::string_view key : keys) {
    if (key.empty()) {
      return true;
    }
    if (!request.contains(key)) {
      return false;
    }
  }
  return true;
}

// An action is ASCII, so a value that is no text equals none of them.
std::string_view actionOf(const Message& request) {
  const std::string_view value = request.data("action").value_or("");
  return value.substr(0, value.find('\0'));
}

// Nearly every client writes an action as it stands in the table, so that is compared first.
bool isAction(std::string_view action, std::string_view word) {
  return action.size() == word.size() && (action == word || equalIgnoringCase(action, word));
}

bool isReserved(Effect effect, const HostFacts& host) {
  switch (effect) {
    case reads:
      return false;
    case registers:
      return !host.takesRemoteRegistration;
    case endsProcess:
      return !host.takesRemoteControl;
  }
  return false;
}

}  // namespace

std::span<const DispatchRule> dispatchRules() { return kRules; }

const DispatchRule& ruleFor(const Message& request) {
  std::optional<std::string_view> action;  // read when the first row asks for it
  const DispatchRule* rule = kRules;
  for (;; ++rule) {
    if (!hasAll(request, rule->keys)) {
      continue;
    }
    if (rule->action.empty()) {
      return *rule;
    }
    if (!action) {
      action = actionOf(request);
    }
    if (isAction(*action, rule->action)) {
      return *rule;
    }
  }
}

Outcome carryOut(const DispatchRule& rule, CommandContext& context) {
  if (isReserved(rule.effect, context.host) && !context.sender.isFromThisMachine()) {
    return Reply::none();
  }
  return rule.command(context);
}

}  // namespace sorvane
