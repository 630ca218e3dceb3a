#include "registry/StateCommands.h"

#include <memory>
#include <string>

#include "registry/StateSummary.h"

namespace sorvane {
namespace {

// Well below a tenth of a millisecond of work.
constexpr std::size_t kPortsBuiltWithoutWaiting = 500;
constexpr std::size_t kSlotsWalkedWithoutWaiting = 16 * kPortsBuiltWithoutWaiting;

constexpr std::string_view kState = "state";
constexpr std::string_view kDatabaseName = "databaseName";

using CachedList = std::shared_ptr<const std::string> RegistryState::*;
using Setter = void (PortDescriptor::*)(std::optional<std::string_view>);

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
  context.registry.with([&](RegistryState& state) { dropped.swap(state.*cachedList); });
  if (!complete) {
    return context.result("failed");
  }
  if (const auto record = context.registry.port(name)) {
    (*record.*set)(text);
  }
  const Reply reply = context.result("success");
  context.registry.setWatchToDirty();
  return reply;
}

}  // namespace

Outcome setDatabaseState(CommandContext& context) {
  return setText(context, &RegistryState::databaseStateString, &PortDescriptor::setPortStatus);
}

Outcome setAlertState(CommandContext& context) {
  return setText(context, &RegistryState::databaseAlertString, &PortDescriptor::setAlertStatus);
}

Outcome databaseStates(CommandContext& context) {
  const StateSummary summary = StateSummary::current(context.registry);
  context.reply.sharedText("result", summary.states);
  context.reply.sharedText("alerts", summary.alerts);
  return Reply::written();
}

bool databaseStatesMayWait(const CommandContext& context) {
  return StateSummary::mustBuildFromMoreThan(kPortsBuiltWithoutWaiting, kSlotsWalkedWithoutWaiting,
                                             context.registry);
}

}  // namespace sorvane
