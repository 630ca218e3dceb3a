// The system console: standard error and, where one runs, the system's log.
#pragma once

#include <chrono>
#include <cstddef>
#include <mutex>
#include <string_view>

namespace sorvane {

/// The most lines of one text that go to the console.
inline constexpr std::size_t kMostConsoleLines = 100;

/// Writes `text` to the console. Each line of the text becomes one console line: `NAME[PID]: `,
/// where NAME is the program's name, and then the line. One line feed at the end of the text adds
/// no line. A text of more than `kMostConsoleLines` lines is cut, and one more line says how many
/// were left out. The text is never used as a format.
///
/// Never waits for a reader of the console. A line that the console cannot take at once is left
/// out. The next line that it takes comes after one that says how many were left out. Any thread.
void consoleLine(std::string_view text);

/// Limits the console texts of one cause, for instance malformed frames, to `kBurst` texts within
/// `kSeconds`. The first text after that time comes after a line that says how many were left out.
/// Any thread. Every console line that a peer can cause goes through one.
class ConsoleRateLimit {
 public:
  using Clock = std::chrono::steady_clock;
  static constexpr int kBurst = 20;
  static constexpr int kSeconds = 10;

  /// Writes the text, or counts it as left out. `now` is the present moment; tests pass their own.
  void line(std::string_view text, Clock::time_point now = Clock::now());

 private:
  // Guarded by mutex_. It is not held while a line is written.
  std::mutex mutex_;
  Clock::time_point periodStart_{};
  int written_ = 0;
  long long leftOut_ = 0;
};

/// Receives each line in place of standard error and the system's log. The line has no name, no
/// process number and no line feed. Several threads may call the sink at once.
using ConsoleSink = void (*)(std::string_view line);
/// Sends all further lines to `sink`; null restores the real console. For tests. Any thread.
void setConsoleSink(ConsoleSink sink);

}  // namespace sorvane
