// The lines of a console: those of this process, and those that a program wrote.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace sorvane::test {

/// Collects the lines that this process writes to its console, from its making to its end, in place
/// of the real console. One at a time. Any thread.
class ConsoleLines {
 public:
  ConsoleLines();
  ~ConsoleLines();
  ConsoleLines(const ConsoleLines&) = delete;
  ConsoleLines& operator=(const ConsoleLines&) = delete;

  /// All of them so far, without the program's name and number.
  [[nodiscard]] std::vector<std::string> all() const;
  /// How many hold that text.
  [[nodiscard]] int count(std::string_view text) const;
  /// Waits until one holds that text; false when none does within `kPatience`.
  [[nodiscard]] bool hold(std::string_view text) const;
  /// Forgets those so far.
  void clear();
};

/// How often a text, which is not empty, occurs in what a program wrote.
[[nodiscard]] int timesIn(std::string_view written, std::string_view text);

/// What a program wrote to its console, each line without its beginning, "NAME[PID]: ". Fails the
/// running test for a line that begins otherwise.
[[nodiscard]] std::string withoutProgramName(std::string_view written);

}  // namespace sorvane::test
