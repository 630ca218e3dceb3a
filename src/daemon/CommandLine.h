// What the first word of the command line asks for.
#pragma once

namespace sorvane {

enum class StartMode {
  detached,    ///< serve in the background
  foreground,  ///< serve in the process that was started
  verbose,     ///< the same, with more entries in the log
  stopAll,     ///< stop every name server of this host, and serve nothing
};

/// The mode for the first word after the program's path; null stands for no word. The words are
/// compared exactly, and what no row of the table names detaches. Later words never count.
[[nodiscard]] StartMode startMode(const char* firstWord);

}  // namespace sorvane
