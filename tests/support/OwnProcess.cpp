#include "support/OwnProcess.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <exception>
#include <system_error>

namespace sorvane::test {

void inOwnProcess(const std::function<void()>& test) {
  EXPECT_EQ(endOfProcess(startOwnProcess(test)), 0)
      << "the part in a process of its own failed, see above";
}

pid_t startOwnProcess(const std::function<void()>& test) {
  fflush(nullptr);
  const pid_t child = fork();
  if (child < 0) {
    throw std::system_error(errno, std::generic_category(), "fork");
  }
  if (child == 0) {
    try {
      test();
    } catch (const std::exception& error) {
      ADD_FAILURE() << "raised: " << error.what();
    }
    fflush(nullptr);
    _exit(testing::Test::HasFailure() ? 1 : 0);
  }
  return child;
}

int endOfProcess(pid_t child) {
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) {
      throw std::system_error(errno, std::generic_category(), "waitpid");
    }
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

}  // namespace sorvane::test
