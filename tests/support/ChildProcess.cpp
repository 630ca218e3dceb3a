#include "support/ChildProcess.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sched.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>

namespace sorvane::test {
namespace {

bool enterOwnNetwork() {
  return unshare(CLONE_NEWNET | CLONE_NEWNS) == 0 &&
         mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

void readBoth(int output, int errors, ChildEnd& end) {
  std::array<pollfd, 2> sources{{{output, POLLIN, 0}, {errors, POLLIN, 0}}};
  const std::array<std::string*, 2> texts{&end.output, &end.errors};
  int open = 2;
  while (open > 0) {
    poll(sources.data(), sources.size(), -1);
    for (std::size_t i = 0; i < sources.size(); ++i) {
      if (sources[i].fd < 0 || sources[i].revents == 0) {
        continue;
      }
      std::array<char, 4096> buffer;
      const ssize_t length = read(sources[i].fd, buffer.data(), buffer.size());
      if (length > 0) {
        texts[i]->append(buffer.data(), static_cast<std::size_t>(length));
      } else {
        close(sources[i].fd);
        sources[i].fd = -1;
        --open;
      }
    }
  }
}

}  // namespace

ChildEnd runInChild(const std::function<void()>& body) {
  int output[2];
  int errors[2];
  EXPECT_EQ(pipe(output), 0);
  EXPECT_EQ(pipe(errors), 0);
  fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    alarm(20);
    dup2(output[1], STDOUT_FILENO);
    dup2(errors[1], STDERR_FILENO);
    for (const int descriptor : {output[0], output[1], errors[0], errors[1]}) {
      close(descriptor);
    }
    body();
    fflush(stdout);
    _exit(testing::Test::HasFailure() ? 1 : 0);
  }
  close(output[1]);
  close(errors[1]);
  ChildEnd end;
  readBoth(output[0], errors[0], end);
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  if (WIFEXITED(status)) {
    end.status = WEXITSTATUS(status);
  } else {
    end.signal = WTERMSIG(status);
  }
  return end;
}

ChildEnd runInOwnNetwork(const std::function<void()>& body) {
  return runInChild([&] {
    ASSERT_TRUE(enterOwnNetwork()) << strerror(errno);
    shell("ip link set lo up");
    body();
  });
}

std::string whyNoOwnNetwork() {
  const ChildEnd attempt = runInChild([] { _exit(enterOwnNetwork() ? 0 : 1); });
  return attempt.status == 0 ? ""
                             : "a network namespace cannot be made here (it takes CAP_SYS_ADMIN)";
}

void shell(const std::string& command) { ASSERT_EQ(system(command.c_str()), 0) << command; }

}  // namespace sorvane::test
