#include "registry/Dispatch.h"

#include "registry/HostCommands.h"
#include "registry/PortCommands.h"
#include "registry/StateCommands.h"
#include "registry/WatchCommands.h"

namespace sorvane {
namespace {

bool never(const CommandContext& /*context*/) { return false; }
bool always(const CommandContext& /*context*/) { return true; }
Outcome infoServer(CommandContext& /*context*/) { return Outcome::notRecognised(); }

constexpr KeySet kAny = 0;
constexpr Word kNoWord = Word::none;
constexpr KeySet kNewPortKeys = keySet(Key::newPort, Key::portHost, Key::portName, Key::portType);

// The order is part of the protocol: a request that fits several rules belongs to the first.
// clang-format off
constexpr DispatchRule kRules[] = {
    // keys present                 action                     command              may wait
    {keySet(Key::reconnectPort),    kNoWord,                   reconnectPort,       never},
    {keySet(Key::findPort),         kNoWord,                   findPort,            findPortMayWait},
    {keySet(Key::acceptPort),       kNoWord,                   acceptPort,          never},
    {keySet(Key::terminate),        kNoWord,                   terminate,           always},
    {kAny,                          Word::restart,             restart,             always},
    {kNewPortKeys,                  kNoWord,                   newPort,             never},
    {kAny,                          Word::needsRefresh,        needsRefresh,        never},
    {kAny,                          Word::setAlertState,       setAlertState,       never},
    {kAny,                          Word::setDatabaseState,    setDatabaseState,    never},
    {kAny,                          Word::databaseStates,      databaseStates,      databaseStatesMayWait},
    {kAny,                          Word::watchPortChanges,    watchPortChanges,    never},
    {kAny,                          Word::didPortsChange,      didPortsChange,      never},
    {kAny,                          Word::changeTimestamp,     changeTimestamp,     never},
    {kAny,                          Word::sorvexecConnectHost, sorvexecConnectHost, always},
    {kAny,                          Word::hostInfo,            hostInfo,            always},
    {kAny,                          Word::hostList,            hostList,            never},
    {kAny,                          kNoWord,                   infoServer,          always},
};
// clang-format on

}  // namespace

std::span<const DispatchRule> dispatchRules() { return kRules; }

const DispatchRule& ruleFor(const RequestKeys& request) {
  const DispatchRule* rule = kRules;
  while (!rule->matches(request)) {
    ++rule;
  }
  return *rule;
}

}  // namespace sorvane
