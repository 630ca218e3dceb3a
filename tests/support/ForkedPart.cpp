#include "support/ForkedPart.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <exception>
#include <system_error>

namespace sorvane::test {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr std::chrono::seconds kLongestPart{50};  // less than ctest allows a whole test

[[noreturn]] void throwSystemError(const char* call) {
  throw std::system_error(errno, std::generic_category(), call);
}

/// Milliseconds until then, for poll().
int timeUntil(Clock::time_point end) {
  const auto left = std::chrono::ceil<milliseconds>(end - Clock::now());
  return left.count() < 0 ? 0 : static_cast<int>(left.count());
}

[[noreturn]] void runChild(pid_t parent, const std::function<void()>& body) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  const pid_t now = getppid();  // 0: the parent is in another PID namespace
  if (now != parent && now != 0) {
    _exit(1);
  }
  try {
    body();
  } catch (const std::exception& error) {
    ADD_FAILURE() << "raised: " << error.what();
  }
  fflush(nullptr);
  _exit(testing::Test::HasFailure() ? 1 : 0);
}

/// Reads both until they end; false when that takes longer than a part may.
bool readBoth(int output, int errors, PartEnd& end) {
  const Clock::time_point limit = Clock::now() + kLongestPart;
  std::array<pollfd, 2> sources{{{output, POLLIN, 0}, {errors, POLLIN, 0}}};
  const std::array<std::string*, 2> texts{&end.output, &end.errors};
  int open = 2;
  while (open > 0) {
    if (poll(sources.data(), sources.size(), timeUntil(limit)) == 0) {
      return false;
    }
    for (std::size_t i = 0; i < sources.size(); ++i) {
      if (sources[i].fd < 0 || sources[i].revents == 0) {
        continue;
      }
      std::array<char, 4096> buffer;
      const ssize_t length = read(sources[i].fd, buffer.data(), buffer.size());
      if (length > 0) {
        texts[i]->append(buffer.data(), static_cast<std::size_t>(length));
      } else {
        sources[i].fd = -1;
        --open;
      }
    }
  }
  return true;
}

}  // namespace

ForkedPart::ForkedPart(const std::function<void()>& body)
    : ForkedPart([&body](const ForkedPart& /*self*/) { body(); }) {}

ForkedPart::ForkedPart(const std::function<void(const ForkedPart& self)>& body) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) {
    throwSystemError("pipe2");
  }
  fflush(nullptr);
  const pid_t parent = getpid();
  process_ = fork();
  if (process_ < 0) {
    throwSystemError("fork");
  }
  if (process_ == 0) {
    close(ends[0]);
    telling_ = ends[1];
    runChild(parent, [&] { body(*this); });
  }
  close(ends[1]);
  told_ = ends[0];
}

ForkedPart::~ForkedPart() {
  end();
  close(told_);
}

void ForkedPart::tell(int number) const {
  const auto byte = static_cast<unsigned char>(number);
  EXPECT_EQ(write(telling_, &byte, 1), 1);
}

std::optional<int> ForkedPart::hear() const {
  unsigned char byte = 0;
  return read(told_, &byte, 1) == 1 ? std::optional<int>(byte) : std::nullopt;
}

void ForkedPart::signal(int number) const {
  if (!status_) {
    kill(process_, number);
  }
}

std::optional<int> ForkedPart::wait(milliseconds limit) {
  if (!status_) {
    const int descriptor = static_cast<int>(syscall(SYS_pidfd_open, process_, 0));
    if (descriptor < 0) {
      throwSystemError("pidfd_open");
    }
    const Clock::time_point end = Clock::now() + limit;
    pollfd ended{descriptor, POLLIN, 0};
    int ready = 0;
    while ((ready = poll(&ended, 1, timeUntil(end))) < 0 && errno == EINTR) {
    }
    close(descriptor);
    int status = 0;
    if (ready > 0 && waitpid(process_, &status, 0) == process_) {
      status_ = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }
  }
  return status_;
}

void ForkedPart::end() {
  signal(SIGKILL);
  wait();
}

void inOwnProcess(const std::function<void()>& body) {
  ForkedPart part(body);
  EXPECT_EQ(part.wait(kLongestPart), 0)
      << "the part in a process of its own failed, see above; nothing: it did not end";
}

PartEnd outputOfPart(const std::function<void()>& body) {
  int output[2];
  int errors[2];
  if (pipe2(output, O_CLOEXEC) != 0 || pipe2(errors, O_CLOEXEC) != 0) {
    throwSystemError("pipe2");
  }
  ForkedPart part([&] {
    dup2(output[1], STDOUT_FILENO);
    dup2(errors[1], STDERR_FILENO);
    for (const int descriptor : {output[0], output[1], errors[0], errors[1]}) {
      close(descriptor);
    }
    body();
  });
  close(output[1]);
  close(errors[1]);
  PartEnd end;
  EXPECT_TRUE(readBoth(output[0], errors[0], end)) << "a part does not end";
  close(output[0]);
  close(errors[0]);
  end.status = part.wait().value_or(-1);
  return end;
}

void shell(const std::string& command) { ASSERT_EQ(system(command.c_str()), 0) << command; }

}  // namespace sorvane::test
