#include "registry/ContinuityCommand.h"

#include <string>

#include "platform/RunningProgram.h"
#include "registry/SecondsText.h"

namespace sorvane {

Outcome continuity(CommandContext& context) {
  const Continuity::Figures figures = context.continuity.figures();
  context.reply.text("result", "succeed");
  context.reply.text("instance", context.registry.instance());
  context.reply.text("upgrades", std::to_string(figures.upgrades));
  context.reply.text("crashes", std::to_string(figures.crashes));
  context.reply.text("attempts", std::to_string(figures.attempts));
  context.reply.text("refused", figures.refused);
  context.reply.text("begun", SecondsText(programBegun()).view());
  context.reply.text("process", std::to_string(processNumber()));
  return Reply::written();
}

}  // namespace sorvane
