// Processes that the measurement starts, each kept to chosen cores.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace sorvane::bench {

/// The cores of this machine that the process may use, lowest first.
[[nodiscard]] std::vector<int> availableCores();
/// Keeps the calling process to these cores.
void stayOn(const std::vector<int>& cores);

/// A child process. It is killed at the end of the object's life, and when the driver dies.
class Child {
 public:
  /// Runs a program; its output goes nowhere, its errors to the file.
  Child(const std::vector<int>& cores, const std::vector<std::string>& words,
        const std::filesystem::path& errors);
  /// Runs a function of the driver, which does not return.
  Child(const std::vector<int>& cores, const std::function<void()>& work);
  ~Child();
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  [[nodiscard]] pid_t process() const { return process_; }
  [[nodiscard]] bool isRunning() const;
  void waitForItsEnd() const;

 private:
  pid_t process_ = -1;
};

/// Where a program of that name is found on the search path; empty when nowhere.
[[nodiscard]] std::filesystem::path installedProgram(const std::string& name);

}  // namespace sorvane::bench
