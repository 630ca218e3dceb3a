// The system console: standard error, and the system's log where one runs.
#pragma once

#include <chrono>
#include <mutex>
#include <string_view>

namespace sorvane {

/// Writes `text` to the console, `NAME[PID]: ` and the text a line (NAME is the program's name). A
/// text with line feeds becomes several such lines; one line feed at its end adds none. The text is
/// never used as a format. Never waits for a console that is not read: lines that it cannot take
/// are left out, and the next line that it takes is preceded by one that tells how many. Any
/// thread.
void consoleLine(std::string_view text);

/// Limits the console lines of one cause, such as malformed frames: at most `kBurst` lines within
/// `kSeconds`. The first line after that is preceded by one with the count of those left out. Any
/// thread.
class ConsoleRateLimit {
 public:
  using Clock = std::chrono::steady_clock;
  static constexpr int kBurst = 20;
  static constexpr int kSeconds = 10;

  /// Writes the line, or counts it as left out. `now` is the present moment; tests give their own.
  void line(std::string_view text, Clock::time_point now = Clock::now());

 private:
  // Guarded by mutex_, which is not held while a line is written.
  std::mutex mutex_;
  Clock::time_point periodStart_{};
  int written_ = 0;
  long long leftOut_ = 0;
};

/// Receives each line, without the name, the process number and the line feed, instead of standard
/// error and the system's log. May be called by several threads at once.
using ConsoleSink = void (*)(std::string_view line);
/// Null puts the real console back. For tests. Any thread.
void setConsoleSink(ConsoleSink sink);

}  // namespace sorvane
