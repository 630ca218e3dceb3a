// A program that a test runs: started, watched through its output, ended.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "support/ForkedPart.h"
#include "support/TestFiles.h"
#include "support/WaitUntil.h"

namespace sorvane::test {

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
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  [[nodiscard]] pid_t process() const { return process_.process(); }
  void signal(int number) const { process_.signal(number); }
  [[nodiscard]] bool isRunning();

  /// Waits for the end: the exit status, or 128 and the number of the signal that ended it. Nothing
  /// when it goes on beyond the limit.
  std::optional<int> wait(std::chrono::milliseconds limit = kPatience);

  [[nodiscard]] std::string output() const { return readFile(folder_ / "output"); }
  [[nodiscard]] std::string errors() const { return readFile(folder_ / "errors"); }
  /// Waits until the standard output, or error, holds that text so many times; false when it does
  /// not within `kPatience`.
  [[nodiscard]] bool prints(const std::string& text, int times = 1) const;
  [[nodiscard]] bool complains(const std::string& text, int times = 1) const;

 private:
  /// The folder with the files that its standard streams lead to.
  struct Streams : TemporaryFolder {
    explicit Streams(const std::string& input);
  };

  const Streams folder_;  // before the process, which opens what lies there
  ForkedPart process_;
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

/// A program of the tested build, such as "sorvctl".
[[nodiscard]] std::filesystem::path builtProgram(const std::string& name);

}  // namespace sorvane::test
