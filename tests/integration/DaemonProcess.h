// What the system tells of a running name server's process.
#pragma once

#include <signal.h>
#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <utility>

namespace sorvane::test {

/// Asks about the process when it is asked; an exception when that is gone.
class DaemonProcess {
 public:
  explicit DaemonProcess(pid_t process) : process_(process) {}

  [[nodiscard]] bool ignores(int signal) const {
    const std::uint64_t ignored = std::stoull(statusField("SigIgn"), nullptr, 16);
    return (ignored >> (signal - 1) & 1U) != 0;
  }
  /// True when it has a handler of its own for the signal.
  [[nodiscard]] bool catches(int signal) const {
    const std::uint64_t caught = std::stoull(statusField("SigCgt"), nullptr, 16);
    return (caught >> (signal - 1) & 1U) != 0;
  }
  /// True after SIGSTOP has reached it, until SIGCONT does.
  [[nodiscard]] bool isStopped() const { return statusField("State").starts_with("T"); }
  [[nodiscard]] bool isZombie() const { return statusField("State").starts_with("Z"); }
  /// True if each of its threads sleeps.
  [[nodiscard]] bool sleeps() const;
  [[nodiscard]] long residentKibibytes() const { return std::stol(statusField("VmRSS")); }
  [[nodiscard]] pid_t parent() const { return std::stoi(statusField("PPid")); }
  [[nodiscard]] int openSockets() const;
  [[nodiscard]] int openDescriptors() const;
  /// Processor time used so far, in seconds.
  [[nodiscard]] double seconds() const;
  /// The soft and the hard limit, as the row of that name in /proc/PID/limits tells them.
  [[nodiscard]] std::pair<std::string, std::string> limit(const std::string& name) const;
  [[nodiscard]] std::filesystem::path workingFolder() const {
    return std::filesystem::read_symlink(folder() / "cwd");
  }

 private:
  [[nodiscard]] std::filesystem::path folder() const {
    return std::filesystem::path("/proc") / std::to_string(process_);
  }
  [[nodiscard]] std::string statusField(const std::string& name) const;

  pid_t process_;
};

}  // namespace sorvane::test
