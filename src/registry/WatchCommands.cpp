#include "registry/WatchCommands.h"

#include <cstdio>
#include <string>

namespace sorvane {

Outcome watchPortChanges(CommandContext& context) {
  context.registry.watchingPortsList().append(context.record());
  return context.result("succeed");
}

Outcome didPortsChange(CommandContext& context) {
  PortDescriptor& record = context.record();
  if (!WatchList::contains(record)) {
    context.registry.watchingPortsList().append(record);
  }
  return context.result(record.takeDirty() ? "YES" : "NO");
}

Outcome needsRefresh(CommandContext& context) {
  const RequestKeys& request = context.request;
  if (request.holds(Key::force) &&
      equalIgnoringCase(textOfValue(request.bytes(Key::force)).value_or(""), "YES")) {
    context.registry.setForceRefreshToDirty();
  }
  Outcome outcome = context.result("success");
  context.registry.setWatchToDirty();
  return outcome;
}

Outcome changeTimestamp(CommandContext& context) {
  const Registry::ChangeStamp stamp = context.registry.changeStamp();
  char time[400];  // the longest number of "%f" has 317 characters
  const int length = std::snprintf(time, sizeof time, "%f", stamp.timestampFlag);
  Outcome outcome = context.result({time, static_cast<std::size_t>(length)});
  if (stamp.forceRefreshNumber >= 1) {
    context.sender.replyWriter().text("force_refresh", std::to_string(stamp.forceRefreshNumber));
  }
  return outcome;
}

}  // namespace sorvane
