// The start mode that the first word of the command line selects.
#pragma once

#include <span>
#include <string_view>

namespace sorvane {

enum class StartMode {
  detached,    ///< serve in the background
  foreground,  ///< serve in the process that was started
  verbose,     ///< as `foreground`, with more entries in the log
  stopAll,     ///< stop every name server of this host, and serve nothing
  answers,     ///< tell whether this program can take the place of a running one
};

struct StartWord {
  std::string_view word;
  StartMode mode;
};

/// Returns the words that select a mode.
[[nodiscard]] std::span<const StartWord> startWords();

/// Returns the mode for the first word after the program's path; null means that there is no word.
/// Words are compared exactly. No word, or a word that is not in the table, gives `detached`. Later
/// words never count.
[[nodiscard]] StartMode startMode(const char* firstWord);

}  // namespace sorvane
