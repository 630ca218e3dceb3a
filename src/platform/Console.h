// The system console: standard error, and the system's log where one runs.
#pragma once

#include <string_view>

namespace sorvane {

/// Writes `text` to the console, `NAME[PID]: ` and the text a line (NAME is the program's name). A
/// text with line feeds becomes several such lines; one line feed at its end adds none. The text is
/// never used as a format. Never waits for a console that is not read: lines that it cannot take
/// are left out, and the next line that it takes is preceded by one that tells how many. Any
/// thread.
void consoleLine(std::string_view text);

/// Limits the console lines of one cause, such as malformed frames: at most `kBurst` lines within
/// `kSeconds`, and one line with the count of those left out when the next period begins.
class ConsoleRateLimit {
 public:
  static constexpr int kBurst = 20;
  static constexpr int kSeconds = 10;

  /// Writes the line, or counts it as left out. Any thread.
  void line(std::string_view text);

 private:
  struct State;
  long long periodStart_ = 0;
  int written_ = 0;
  int leftOut_ = 0;
};

/// Receives the console's lines instead of standard error; null puts that back. For tests.
using ConsoleSink = void (*)(std::string_view line);
void setConsoleSink(ConsoleSink sink);

}  // namespace sorvane
