// A part of a test that runs in a process of its own, forked from the test's.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include "support/WaitUntil.h"

namespace sorvane::test {

/// A child process that runs `body`. It ends with status 0 when no expectation failed in it, with 1
/// otherwise; an exception counts as a failed expectation. What it prints goes where the test's own
/// output goes. It is killed at the end of the object's life, and when the test program dies.
class ForkedPart {
 public:
  explicit ForkedPart(const std::function<void()>& body);
  /// The same for a body that tells the test something while it runs.
  explicit ForkedPart(const std::function<void(const ForkedPart& self)>& body);
  ~ForkedPart();
  ForkedPart(const ForkedPart&) = delete;
  ForkedPart& operator=(const ForkedPart&) = delete;

  [[nodiscard]] pid_t process() const { return process_; }

  /// In the child: sends a number from 0 to 255 to the test.
  void tell(int number) const;
  /// In the test: waits for the next number. Nothing when the child ended without telling one.
  [[nodiscard]] std::optional<int> hear() const;

  /// Sends a signal, unless the end has been waited for.
  void signal(int number) const;
  /// Waits for the end: the exit status, or minus the number of the signal that ended it. Nothing
  /// when it goes on beyond the limit. May be asked again.
  std::optional<int> wait(std::chrono::milliseconds limit = kPatience);
  /// Kills it, unless it has ended.
  void end();

 private:
  pid_t process_ = -1;
  int told_ = -1;
  int telling_ = -1;
  std::optional<int> status_;
};

/// Runs `body` in a child process and waits for it. Its failures are failures of the running test;
/// a child that does not end within 50 s is killed, which is one, too.
void inOwnProcess(const std::function<void()>& body);

/// What became of a child whose output was read.
struct PartEnd {
  int status = -1;     ///< as ForkedPart::wait tells it
  std::string output;  ///< what it wrote to standard output
  std::string errors;  ///< what it wrote to standard error
};

/// Runs `body` in a child process, reads what it prints, and waits for its end as `inOwnProcess`
/// does. Its failures are no failures of the running test: they show in the status and the output.
[[nodiscard]] PartEnd outputOfPart(const std::function<void()>& body);

/// Runs a shell command; fails the test when its status is not 0.
void shell(const std::string& command);

}  // namespace sorvane::test
