#include "registry/StateCommands.h"

#include <memory>
#include <string>

#include "registry/StateSummary.h"

namespace sorvane {
namespace {

// Well below a tenth of a millisecond of work.
constexpr std::size_t kPortsBuiltWithoutWaiting = 500;
constexpr std::size_t kSlotsWalkedWithoutWaiting = 16 * kPortsBuiltWithoutWaiting;

using KeptList = std::shared_ptr<const std::string> RegistryState::*;
using Setter = void (PortDescriptor::*)(std::optional<std::string_view>);

// A request that lacks a key drops the kept list, too; one that raises leaves everything as it was.
Outcome setText(CommandContext& context, KeptList keptList, Setter set) {
  const RequestKeys& request = context.request;
  const bool complete = request.holds(keySet(Key::state, Key::databaseName));
  std::string_view text;
  std::string_view name;
  if (complete) {
    text = request.requiredText(Key::state);
    name = request.requiredText(Key::databaseName);
  }
  std::shared_ptr<const std::string> dropped;
  context.registry.with([&](RegistryState& state) { dropped.swap(state.*keptList); });
  if (!complete) {
    return context.result("failed");
  }
  if (const auto record = context.registry.port(name)) {
    (*record.*set)(text);
  }
  Outcome outcome = context.result("success");
  context.registry.setWatchToDirty();
  return outcome;
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
  MessageWriter reply = context.sender.replyWriter();
  reply.text("result", *summary.states);
  reply.text("alerts", *summary.alerts);
  return Outcome::dictionary();
}

bool databaseStatesMayWait(const CommandContext& context) {
  return StateSummary::mustBuildFromMoreThan(kPortsBuiltWithoutWaiting, kSlotsWalkedWithoutWaiting,
                                             context.registry);
}

}  // namespace sorvane
