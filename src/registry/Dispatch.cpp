#include "registry/Dispatch.h"

#include <iterator>
#include <optional>
#include <utility>

#include "platform/Ascii.h"
#include "registry/ChangeCommands.h"
#include "registry/ContinuityCommand.h"
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
    // keys                action                 effect       prepare               command              may wait
    {{key::reconnectPort}, "",                    registers,   prepareReconnectPort, reconnectPort,       never},
    {{key::findPort},      "",                    reads,       nullptr,              findPort,            findPortMayWait},
    {{key::acceptPort},    "",                    registers,   prepareAcceptPort,    acceptPort,          never},
    {{key::terminate},     "",                    endsProcess, nullptr,              terminate,           always},
    {{},                   "restart",             endsProcess, nullptr,              restart,             always},
    {kNewPortKeys,         "",                    registers,   nullptr,              newPort,             never},
    {{},                   "needsRefresh",        registers,   nullptr,              needsRefresh,        never},
    {{},                   "setAlertState",       registers,   nullptr,              setAlertState,       never},
    {{},                   "setDatabaseState",    registers,   nullptr,              setDatabaseState,    never},
    {{},                   "databaseStates",      reads,       nullptr,              databaseStates,      databaseStatesMayWait},
    {{},                   "watchPortChanges",    reads,       nullptr,              watchPortChanges,    never},
    {{},                   "didPortsChange",      reads,       nullptr,              didPortsChange,      never},
    {{},                   "changeTimestamp",     reads,       nullptr,              changeTimestamp,     never},
    {{},                   "sorvexecConnectHost", registers,   nullptr,              sorvexecConnectHost, always},
    {{},                   "hostInfo",            reads,       nullptr,              hostInfo,            always},
    {{},                   "hostList",            reads,       nullptr,              hostList,            never},
    {{},                   "awaitPortChanges",    reads,       nullptr,              awaitPortChanges,    never},
    {{},                   "portChanges",         reads,       nullptr,              portChanges,         portChangesMayWait},
    {{},                   "forgetPort",          registers,   nullptr,              forgetPort,          never},
    {{},                   "continuity",          reads,       nullptr,              continuity,          never},
    {{},                   "",                    reads,       nullptr,              infoServer,          always},
};
// clang-format on

// An action is ASCII, so a value that is no text equals none of them.
std::string_view actionOf(const Message& request) {
  const std::string_view value = request.data("action").value_or("");
  return value.substr(0, value.find('\0'));
}

// Nearly every client writes an action as it stands in the table, so that is compared first.
bool isAction(std::string_view action, std::string_view word) {
  return action.size() == word.size() && (action == word || equalIgnoringCase(action, word));
}

bool mayBeRemote(Effect effect, const HostFacts& host) {
  switch (effect) {
    case registers:
      return host.takesRemoteRegistration;
    case endsProcess:
      return host.takesRemoteControl;
    case reads:
      break;
  }
  return true;
}

// A request whose action is read when the first row asks for it. Each row is compared by code of
// its own: comparing with a text that the compiler knows takes neither a call nor a look at the
// table.
class RequestToMatch {
 public:
  explicit RequestToMatch(const Message& request) : request_(request) {}

  /// Returns the first row that matches.
  template <std::size_t... rows>
  const DispatchRule& firstOf(std::index_sequence<rows...> /*rows*/) {
    const DispatchRule* found = nullptr;
    static_cast<void>(((matches<rows>() && (found = &kRules[rows]) != nullptr) || ...));
    return *found;
  }

 private:
  template <std::size_t row>
  bool matches() {
    constexpr Keys keys = kRules[row].keys;
    constexpr std::string_view word = kRules[row].action;
    return has(keys[0]) && has(keys[1]) && has(keys[2]) && has(keys[3]) &&
           (word.empty() || isAction(action(), word));
  }
  // An unused place of the keys is no condition.
  [[nodiscard]] bool has(std::string_view key) const {
    return key.empty() || request_.contains(key);
  }
  std::string_view action() {
    if (!action_) {
      action_ = actionOf(request_);
    }
    return *action_;
  }

  const Message& request_;
  std::optional<std::string_view> action_;
};

}  // namespace

std::span<const DispatchRule> dispatchRules() { return kRules; }

const DispatchRule& ruleFor(const Message& request) {
  return RequestToMatch(request).firstOf(std::make_index_sequence<std::size(kRules)>());
}

bool isReservedFrom(const CommandContext& context, Effect effect) {
  return !mayBeRemote(effect, context.host) && !context.sender.isFromThisMachine();
}

}  // namespace sorvane
