#include "registry/WatchCommands.h"

#include <cstdio>
#include <string>

#include "platform/Ascii.h"

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
  if (equalIgnoringCase(context.request.text("force").value_or(""), "YES")) {
    context.registry.setForceRefreshToDirty();
  }
  const Reply reply = context.result("success");
  context.registry.setWatchToDirty();
  return reply;
}

Outcome changeTimestamp(CommandContext& context) {
  const Registry::ChangeStamp stamp = context.registry.changeStamp();
  char time[400];  // the longest number of "%f" has 317 characters
  const int length = std::snprintf(time, sizeof time, "%f", stamp.timestampFlag);
  const Reply reply = context.result({time, static_cast<std::size_t>(length)});
  if (stamp.forceRefreshNumber >= 1) {
    context.reply.text("force_refresh", std::to_string(stamp.forceRefreshNumber));
  }
  return reply;
}

}  // namespace sorvane
