// A program that runs while sorvctl holds a registration for it.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace sorvctl {

/// The program inherits the standard streams. If it still runs when the object is destroyed, it
/// gets SIGTERM, and SIGKILL five seconds later.
class ChildProgram {
 public:
  /// Starts the program, which is looked up along the PATH; `arguments[0]` is its name. If it
  /// cannot be started, an error line is printed and its status is 127.
  explicit ChildProgram(std::vector<std::string> arguments);
  ~ChildProgram();
  ChildProgram(const ChildProgram&) = delete;
  ChildProgram& operator=(const ChildProgram&) = delete;

  /// The exit status, or 128 plus the number of the signal that ended the program. Nothing while
  /// the program runs.
  [[nodiscard]] std::optional<int> status();
  void signal(int number) const;

 private:
  pid_t process_ = -1;
  std::optional<int> status_;
};

}  // namespace sorvctl
