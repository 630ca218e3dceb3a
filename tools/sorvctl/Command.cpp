#include "sorvctl/Command.h"

namespace sorvctl {

std::vector<Command> allCommands() {
  std::vector<Command> all;
  const auto add = [&all](const std::vector<Command>& rows) {
    all.insert(all.end(), rows.begin(), rows.end());
  };
#define SORVCTL_COMMAND_FILE(file) add(commands::file());
#include "sorvctl/CommandFiles.inc"
#undef SORVCTL_COMMAND_FILE
  return all;
}

}  // namespace sorvctl
