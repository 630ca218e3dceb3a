// A part of a test that runs in a process of its own.
#pragma once

#include <functional>
#include <string>

namespace sorvane::test {

/// What became of a child.
struct ChildEnd {
  int status = -1;     ///< exit status, or -1 when a signal ended it
  int signal = 0;      ///< the signal that ended it, or 0
  std::string output;  ///< what it wrote to standard output
  std::string errors;  ///< what it wrote to standard error
};

/// Runs `body` in a forked child, ended by SIGALRM after 20 s, and waits for its end. The status is
/// 0 when the body returned without a failed expectation.
[[nodiscard]] ChildEnd runInChild(const std::function<void()>& body);

/// The same in a network and mount namespace of the child's own, in which nothing outside can be
/// reached.
[[nodiscard]] ChildEnd runInOwnNetwork(const std::function<void()>& body);

/// Why `runInOwnNetwork` cannot work here, or "".
[[nodiscard]] std::string whyNoOwnNetwork();

/// Runs a shell command; fails the test when its status is not 0.
void shell(const std::string& command);

}  // namespace sorvane::test
