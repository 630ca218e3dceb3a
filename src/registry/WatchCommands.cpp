#include "registry/WatchCommands.h"

#include <charconv>
#include <chrono>
#include <string>
#include <system_error>

#include "platform/Ascii.h"
#include "registry/SecondsText.h"

namespace sorvane {
namespace {

constexpr std::chrono::seconds kUsualHold{30};

std::chrono::seconds holdingTime(std::optional<std::string_view> text) {
  const std::string_view digits = text.value_or("");
  unsigned seconds = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), seconds);
  const bool isNumber = error == std::errc() && end == digits.data() + digits.size();
  const std::chrono::seconds time(seconds);
  return isNumber && time <= Reply::kLongestHold ? time : kUsualHold;
}

}  // namespace

Outcome watchPortChanges(CommandContext& context) {
  PortDescriptor& record = context.record();
  context.registry.watchingPortsList().append(record);
  context.registry.keepWatching(context.sender.descriptor(), record);
  return context.result("succeed");
}

Outcome didPortsChange(CommandContext& context) {
  PortDescriptor& record = context.record();
  if (!WatchList::contains(record)) {
    context.registry.watchingPortsList().append(record);
  }
  const bool wasDirty = record.takeDirty();
  context.registry.keepWatching(context.sender.descriptor(), record);
  return context.result(wasDirty ? "YES" : "NO");
}

Outcome awaitPortChanges(CommandContext& context) {
  PortDescriptor& record = context.record();
  const std::chrono::seconds time = holdingTime(context.request.text("timeout"));
  if (!WatchList::contains(record)) {
    context.registry.watchingPortsList().append(record);
  }
  const Reply reply = answerAwaiting(context.registry, context.sender, context.reply,
                                     time == std::chrono::seconds(0));
  return reply.isHeld() ? Reply::held(time) : reply;
}

Reply answerAwaiting(Registry& registry, const NetConnection& sender, MessageWriter reply,
                     bool isOver) {
  PortDescriptor& record = *sender.context<PortDescriptor>();
  const bool isDirty = record.takeDirty();
  registry.keepWatching(sender.descriptor(), record);
  if (!isDirty && !isOver) {
    return Reply::held(kUsualHold);
  }
  reply.text("result", isDirty ? "YES" : "NO");
  return Reply::written();
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
  const Reply reply = context.result(SecondsText(stamp.timestampFlag).view());
  if (stamp.forceRefreshNumber >= 1) {
    context.reply.text("force_refresh", std::to_string(stamp.forceRefreshNumber));
  }
  return reply;
}

}  // namespace sorvane
