#include "registry/Dispatch.h"

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
constexpr Keys kNewPortKeys = {key::newPort, key::portHost, key::portName, key::portType};

// The order is part of the protocol: the first row that matches a request applies to it.
// clang-format off
constexpr DispatchRule kRules[] = {
    // keys                action                 command              may wait
    {{key::reconnectPort}, "",                    reconnectPort,       never},
    {{key::findPort},      "",                    findPort,            findPortMayWait},
    {{key::acceptPort},    "",                    acceptPort,          never},
    {{key::terminate},     "",                    terminate,           always},
    {{},                   "restart",             restart,             always},
    {kNewPortKeys,         "",                    newPort,             never},
    {{},                   "needsRefresh",        needsRefresh,        never},
    {{},                   "setAlertState",       setAlertState,       never},
    {{},                   "setDatabaseState",    setDatabaseState,    never},
    {{},                   "databaseStates",      databaseStates,      databaseStatesMayWait},
    {{},                   "watchPortChanges",    watchPortChanges,    never},
    {{},                   "didPortsChange",      didPortsChange,      never},
    {{},                   "changeTimestamp",     changeTimestamp,     never},
    {{},                   "sorvexecConnectHost", sorvexecConnectHost, always},
    {{},                   "hostInfo",            hostInfo,            always},
    {{},                   "hostList",            hostList,            never},
    {{},                   "",                    infoServer,          always},
};
// clang-format on

// Nearly every client writes an action as it stands in the table, so that is compared first.
bool isAction(std::string_view action, std::string_view word) {
  return action.size() == word.size() && (action == word || equalIgnoringCase(action, word));
}

bool matches(const DispatchRule& rule, const Message& request, std::string_view action) {
  if (!rule.action.empty() && !isAction(action, rule.action)) {
    return false;
  }
  for (const std::string_view key : rule.keys) {
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

}  // namespace

std::span<const DispatchRule> dispatchRules() { return kRules; }

const DispatchRule& ruleFor(const Message& request) {
  const std::string_view action = actionOf(request);
  const DispatchRule* rule = kRules;
  while (!matches(*rule, request, action)) {
    ++rule;
  }
  return *rule;
}

}  // namespace sorvane
