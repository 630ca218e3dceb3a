// A command of sorvctl: its row in the table of commands, and what carries it out.
#pragma once

#include <functional>
#include <vector>

namespace CLI {
class App;
}

namespace sorvctl {

class Session;

/// Carries out a command whose options have been read. Returns the exit status of the process.
/// Throws a Failure when the command cannot be carried out.
using Handler = std::function<int(Session&)>;
/// Declares the arguments and options of a command. Returns what carries the command out with them.
using Declaration = Handler (*)(CLI::App& command);

/// A row of the table: a command, or a group whose name stands in front of its commands' names.
struct Command {
  const char* name;               ///< the whole name: "find", "prefs get"
  const char* help;               ///< what it does, in a sentence without a full stop
  const char* example = nullptr;  ///< null for a group
  Declaration declare = nullptr;  ///< null for a group
  bool readsSettings = false;     ///< the command reads them itself, whatever is wrong with them
};

/// The functions that return the rows, one for each file in commands/: Ping.cpp defines
/// `commands::ping`. Definitions must be written with that qualified name. A file that is missing
/// in CommandFiles.inc then does not compile.
namespace commands {
#define SORVCTL_COMMAND_FILE(file) std::vector<Command> file();
#include "sorvctl/CommandFiles.inc"
#undef SORVCTL_COMMAND_FILE
}  // namespace commands

/// The rows of all files, in the order of CommandFiles.inc.
[[nodiscard]] std::vector<Command> allCommands();

}  // namespace sorvctl
