#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <mutex>

#include "platform/SharedDescriptors.h"
#include "support/ForkedPart.h"
#include "support/ThreadSanitizer.h"

namespace sorvane::test {
namespace {

bool isOpen(int descriptor) { return fcntl(descriptor, F_GETFD) >= 0; }

int openSomething() { return open("/dev/null", O_RDONLY | O_CLOEXEC); }

/// Waits for the end of a child: its exit status, or minus the number of the signal.
int endOf(std::optional<int> child) {
  int status = 0;
  EXPECT_EQ(waitpid(child.value_or(-1), &status, 0), child);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

class SharedDescriptors : public testing::Test {
 protected:
  void SetUp() override {
    if (kHasThreadSanitizer) {
      GTEST_SKIP() << kUnknownToThreadSanitizer;
    }
  }
};

TEST_F(SharedDescriptors, AreOpenAndClosedInBothAndOutliveTheOneThatOpenedThem) {
  inOwnProcess([] {
    const int closed = openSomething();
    const int next = openSomething();
    close(next);
    int opened = -1;
    const auto child = cloneSharingDescriptors([&] {
      opened = openSomething();
      close(closed);
      _exit(opened == next ? 0 : 1);
    });
    EXPECT_EQ(endOf(child), 0);
    EXPECT_FALSE(isOpen(closed));
    EXPECT_TRUE(isOpen(next));
    EXPECT_EQ(opened, -1) << "memory is not shared";
  });
}

TEST_F(SharedDescriptors, ChildThatReturnsEndsWithStatusZeroAndOneThatRaisesByAbort) {
  inOwnProcess([] {
    EXPECT_EQ(endOf(cloneSharingDescriptors([] {})), 0);
    ASSERT_EQ(dup2(openSomething(), STDERR_FILENO), STDERR_FILENO);  // for what is said of the end
    EXPECT_EQ(endOf(cloneSharingDescriptors([] { throw 1; })), -SIGABRT);
  });
}

// Each of these asks the C library for the number of its thread.
TEST_F(SharedDescriptors, ChildIsAProcessAsAnyOther) {
  inOwnProcess([] {
    EXPECT_EQ(endOf(cloneSharingDescriptors([] { raise(SIGUSR1); })), -SIGUSR1);
    EXPECT_EQ(endOf(cloneSharingDescriptors([] {
                std::recursive_mutex mutex;
                mutex.lock();
                mutex.lock();
                sigset_t mask;
                pthread_sigmask(SIG_SETMASK, nullptr, &mask);
                _exit(sigismember(&mask, SIGTERM) == 0 ? 5 : 6);
              })),
              5);
  });
}

TEST_F(SharedDescriptors, ChildGetsTheSignalsThatItHoldsBackAndWaitsFor) {
  inOwnProcess([] {
    EXPECT_EQ(endOf(cloneSharingDescriptors([] {
                sigset_t taken;
                sigemptyset(&taken);
                sigaddset(&taken, SIGUSR1);
                pthread_sigmask(SIG_BLOCK, &taken, nullptr);
                kill(getpid(), SIGUSR1);
                int number = 0;
                sigwait(&taken, &number);
                _exit(number == SIGUSR1 ? 5 : 6);
              })),
              5);
  });
}

TEST_F(SharedDescriptors, WhatIsBufferedIsWrittenOnce) {
  const PartEnd part = outputOfPart([] {
    printf("once");
    EXPECT_EQ(endOf(cloneSharingDescriptors([] {})), 0);
  });
  EXPECT_EQ(part.output, "once");
  EXPECT_EQ(part.status, 0);
}

TEST_F(SharedDescriptors, ChildIsKilledWhenItsParentEnds) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  ForkedPart parent([](const ForkedPart& self) {
    static_cast<void>(cloneSharingDescriptors([&] {
      self.tell(1);
      pause();
    }));
    pause();
  });
  close(ends[1]);
  ASSERT_EQ(parent.hear(), 1);
  parent.end();
  pollfd ended{ends[0], 0, 0};
  constexpr int kMilliseconds = 5000;
  EXPECT_EQ(poll(&ended, 1, kMilliseconds), 1) << "a process has the other end open";
  close(ends[0]);
}

TEST_F(SharedDescriptors, ProcessThatTheSystemRefusesIsNoneWithTheReason) {
  inOwnProcess([] {
    if (geteuid() == 0) {
      ASSERT_EQ(setgid(65534), 0);
      ASSERT_EQ(setuid(65534), 0);  // the limit does not hold for root
    }
    const rlimit none{0, 0};
    ASSERT_EQ(setrlimit(RLIMIT_NPROC, &none), 0);
    EXPECT_EQ(cloneSharingDescriptors([] {}), std::nullopt);
    EXPECT_EQ(errno, EAGAIN);
  });
}

TEST(OpenDescriptors, AreThoseThatAreOpenAndNoOthers) {
  inOwnProcess([] {
    const int first = openSomething();
    const int last = fcntl(first, F_DUPFD_CLOEXEC, 200);
    close(first);
    const std::vector<int> open = openDescriptors();
    EXPECT_TRUE(std::is_sorted(open.begin(), open.end()));
    EXPECT_EQ(std::count(open.begin(), open.end(), last), 1);
    EXPECT_TRUE(std::all_of(open.begin(), open.end(), isOpen));
    EXPECT_EQ(std::count(open.begin(), open.end(), first), 0);
    EXPECT_EQ(std::count(open.begin(), open.end(), STDERR_FILENO), 1);
  });
}

TEST(OpenDescriptors, AreClosedButForTheStandardOnesAndThoseThatAreKept) {
  inOwnProcess([] {
    const int kept = openSomething();
    const int closed = openSomething();
    const int high = fcntl(kept, F_DUPFD_CLOEXEC, 500);
    const int highest = fcntl(kept, F_DUPFD_CLOEXEC, 900);
    closeDescriptorsExcept({high, STDOUT_FILENO, kept, 700});
    EXPECT_EQ(openDescriptors(),
              (std::vector{STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO, kept, high}));
    EXPECT_FALSE(isOpen(closed) || isOpen(highest));
    closeDescriptorsExcept({});
    EXPECT_FALSE(isOpen(kept) || isOpen(high));
  });
}

}  // namespace
}  // namespace sorvane::test
