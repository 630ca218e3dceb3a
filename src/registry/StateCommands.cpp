#include "registry/StateCommands.h"

#include <cstdint>
#include <memory>
#include <string>

#include "registry/StateSummary.h"

namespace sorvane {
namespace {

// Well below a tenth of a millisecond of work.
constexpr std::size_t kPortsBuiltWithoutWaiting = 500;
constexpr std::size_t kSlotsWalkedWithoutWaiting = 16 * kPortsBuiltWithoutWaiting;
constexpr std::size_t kBytesBuiltWithoutWaiting = 65536;

constexpr std::string_view kAlerts = "alerts";
constexpr std::uint64_t kMostListBytes =
    kMaximumReplyBytes - textEntryBytes("result", 0) - textEntryBytes(kAlerts, 0);

constexpr std::string_view kState = "state";
constexpr std::string_view kDatabaseName = "databaseName";

using CachedList = std::shared_ptr<const std::string> RegistryState::*;
using Setter = void (PortMap::*)(const PortName& name, std::string_view text);

// A request that lacks a key drops the cached list, too. A request that raises changes nothing.
Outcome setText(CommandContext& context, CachedList cachedList, Setter set) {
  const Message& request = context.request;
  const bool complete = request.contains(kState) && request.contains(kDatabaseName);
  std::string_view text;
  std::string_view name;
  if (complete) {
    text = request.requiredText(kState);
    name = request.requiredText(kDatabaseName);
  }
  std::shared_ptr<const std::string> dropped;
  const PortName port(name);
  const bool hasTooMuchLeftBehind = context.registry.with([&](RegistryState& state) {
    if (complete) {
      (state.map.*set)(port, text);  // may raise
    }
    dropped.swap(state.*cachedList);
    return state.map.hasTooMuchLeftBehind();
  });
  if (!complete) {
    return context.result("failed");
  }
  if (hasTooMuchLeftBehind) {  // the text belongs to one of them
    context.registry.dropOldestLeftBehind();
  }
  const Reply reply = context.result("success");
  context.registry.setWatchToDirty();
  return reply;
}

}  // namespace

Outcome setDatabaseState(CommandContext& context) {
  return setText(context, &RegistryState::databaseStateString, &PortMap::setStatus);
}

Outcome setAlertState(CommandContext& context) {
  return setText(context, &RegistryState::databaseAlertString, &PortMap::setAlert);
}

Outcome databaseStates(CommandContext& context) {
  const StateSummary summary = StateSummary::current(context.registry, kMostListBytes);
  context.reply.sharedText("result", summary.states);
  context.reply.sharedText(kAlerts, summary.alerts);
  return Reply::written();
}

bool databaseStatesMayWait(const CommandContext& context) {
  return StateSummary::mustBuildMoreThan({.ports = kPortsBuiltWithoutWaiting,
                                          .slots = kSlotsWalkedWithoutWaiting,
                                          .bytes = kBytesBuiltWithoutWaiting},
                                         context.registry);
}

}  // namespace sorvane
