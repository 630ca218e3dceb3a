// Tells on a terminal what is waited for.
#pragma once

#include <string>

namespace sorvctl {

/// Shows a line on standard error once the object has lived for a second, with the seconds so far,
/// and takes it away at the end of its life. Shows nothing when standard error is no terminal, or
/// when another object shows its line already.
class Progress {
 public:
  explicit Progress(std::string text);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  /// From now on no object shows a line: the command has the whole screen. Any thread.
  static void turnOff();

  /// Takes the line that is shown now off the screen, so that another can be printed in its place.
  /// It comes back within a second. Any thread.
  static void hide();

 private:
  bool shows_;
};

}  // namespace sorvctl
