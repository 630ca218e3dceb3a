// A program that a test runs: started, watched through its output, ended.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "support/TestFiles.h"

namespace sorvane::test {

/// The longest that a test waits for something that should happen; passing it fails the test.
inline constexpr std::chrono::seconds kPatience{30};

/// Asks every few milliseconds until the answer is yes; false when it never was within the limit.
[[nodiscard]] bool waitUntil(const std::function<bool()>& condition,
                             std::chrono::milliseconds limit = kPatience);

/// One run of a program. Its standard output and error go into files of the run's own; it is killed
/// at the end of the object's life, and when the test program dies.
class Program {
 public:
  struct Options {
    std::string input;                  ///< what it reads from its standard input
    std::function<void()> beforeStart;  ///< runs in the new process, just before the program
  };

  Program(const std::filesystem::path& file, std::vector<std::string> arguments);
  Program(const std::filesystem::path& file, std::vector<std::string> arguments, Options options);
  ~Program();
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  [[nodiscard]] pid_t process() const { return process_; }
  void signal(int number) const;
  [[nodiscard]] bool isRunning();

  /// Waits for the end: the exit status, or 128 and the number of the signal that ended it. Nothing
  /// when it goes on beyond the limit.
  std::optional<int> wait(std::chrono::milliseconds limit = kPatience);

  [[nodiscard]] std::string output() const { return readFile(folder_ / "output"); }
  [[nodiscard]] std::string errors() const { return readFile(folder_ / "errors"); }
  /// Waits until the standard output, or error, holds that text.
  [[nodiscard]] bool prints(const std::string& text) const;
  [[nodiscard]] bool complains(const std::string& text) const;

 private:
  TemporaryFolder folder_;
  pid_t process_ = -1;
  std::optional<int> status_;
};

/// What a program that was run to its end left.
struct Outcome {
  int status = -1;
  std::string output;
  std::string errors;
};

/// Runs a program to its end.
[[nodiscard]] Outcome run(const std::filesystem::path& file, std::vector<std::string> arguments,
                          std::string input = {});

/// A program of this build, such as "sorvctl".
[[nodiscard]] std::filesystem::path builtProgram(const std::string& name);

}  // namespace sorvane::test
