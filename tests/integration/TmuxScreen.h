// A real terminal for programs that need one: a screen of tmux, with a server of its own.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "support/Program.h"
#include "support/TestFiles.h"

namespace sorvane::test {

/// Everything ends with the object, and with the test program.
class TmuxScreen {
 public:
  /// Runs the lines of a script by sh on a terminal of that size. When the script has ended, what
  /// it has left on the screen stays. An exception when tmux does not start.
  TmuxScreen(const std::string& script, int columns, int rows);

  /// The lines on the screen, without blanks at their ends.
  [[nodiscard]] std::string text() const;
  /// The same with escape sequences for attributes and colours.
  [[nodiscard]] std::string attributedText() const;
  /// Waits until the screen holds that text, or does not; false when neither comes within
  /// `kPatience`.
  [[nodiscard]] bool shows(const std::string& text) const;
  [[nodiscard]] bool comesToLack(const std::string& text) const;

  /// Presses keys by the names that tmux has for them: "Enter", "Down", "C-z", "a".
  void press(const std::vector<std::string>& keys) const;
  /// Types a text as it is.
  void type(const std::string& text) const;
  void resize(int columns, int rows) const;

  /// True when the terminal is as shells want it: its usual screen, a visible cursor, and the keys
  /// in their usual mode.
  [[nodiscard]] bool isAsShellsWantIt() const;
  /// Files that the script shares with the test: they lie in its working folder.
  [[nodiscard]] std::filesystem::path file(const std::string& name) const { return folder_ / name; }

 private:
  std::string tmux(std::vector<std::string> arguments) const;

  TemporaryFolder folder_;
  Program server_;
};

}  // namespace sorvane::test
