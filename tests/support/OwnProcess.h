// Tests that change their process (its folder, limits, signals) run in a child of their own.
#pragma once

#include <sys/types.h>

#include <functional>

namespace sorvane::test {

/// Runs `test` in a child process and waits for it. Its failures are failures of the running test.
void inOwnProcess(const std::function<void()>& test);

/// Starts such a child without waiting for it. It ends with status 0 when no expectation failed in
/// it.
[[nodiscard]] pid_t startOwnProcess(const std::function<void()>& test);

/// Waits for a child's end: its exit status, or minus the number of the signal that ended it.
int endOfProcess(pid_t child);

}  // namespace sorvane::test
