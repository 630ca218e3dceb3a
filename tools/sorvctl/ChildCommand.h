// A command that runs while sorvctl holds a registration for it.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace sorvctl {

/// Inherits the standard streams. One that still runs at the end of the object's life is asked to
/// end by SIGTERM, given five seconds, and then killed.
class ChildCommand {
 public:
  /// Starts it, found along the PATH. A command that cannot be started has the status 127.
  explicit ChildCommand(std::vector<std::string> words);
  ~ChildCommand();
  ChildCommand(const ChildCommand&) = delete;
  ChildCommand& operator=(const ChildCommand&) = delete;

  /// Its status, 128 and the number of the signal that ended it, or nothing while it runs.
  [[nodiscard]] std::optional<int> status();
  void signal(int number) const;

 private:
  pid_t process_ = -1;
  std::optional<int> status_;
};

}  // namespace sorvctl
