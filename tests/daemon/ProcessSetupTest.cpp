#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdio.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <utility>

#include "daemon/ProcessSetup.h"
#include "support/OwnNamespaces.h"
#include "support/TestFiles.h"

namespace sorvane {
namespace {

using test::ForkedPart;
using test::inOwnPids;
using test::inOwnProcess;

bool isIgnored(int signal) {
  struct sigaction action {};
  sigaction(signal, nullptr, &action);
  return action.sa_handler == SIG_IGN;
}

/// Both processes of a detached start hold the writing end of a pipe: what the serving one writes
/// comes out of the other end, and the end of the pipe comes when both are gone.
class Detach : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(pipe2(pipe_, O_CLOEXEC), 0); }
  void TearDown() override {
    close(pipe_[0]);
    close(pipe_[1]);
  }

  void tell(const std::string& text) const {
    EXPECT_EQ(write(pipe_[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }

  std::string heard() {
    close(pipe_[1]);
    pipe_[1] = -1;
    std::string text;
    char byte = 0;
    while (read(pipe_[0], &byte, 1) == 1) text += byte;
    return text;
  }

  int pipe_[2] = {-1, -1};
};

TEST_F(Detach, EndsTheStartingProcessWithStatus0WhileAChildGoesOn) {
  int gate[2];
  ASSERT_EQ(pipe2(gate, O_CLOEXEC), 0);
  ForkedPart starting([&] {
    const pid_t before = getpid();
    detach();
    char go = 0;
    EXPECT_EQ(read(gate[0], &go, 1), 1);
    tell(getpid() != before ? "child" : "itself");
  });
  EXPECT_EQ(starting.wait(), 0) << "the parent does not wait for its child";
  EXPECT_EQ(write(gate[1], "!", 1), 1);
  EXPECT_EQ(heard(), "child");
  close(gate[0]);
  close(gate[1]);
}

TEST_F(Detach, IgnoresHangupAndTheEndOfChildrenAndKeepsSessionAndFolder) {
  ForkedPart starting([this] {
    const pid_t session = getsid(0);
    const pid_t group = getpgid(0);
    const auto folder = std::filesystem::current_path();
    detach();
    const bool kept = getsid(0) == session && getpgid(0) == group &&
                      std::filesystem::current_path() == folder && fcntl(1, F_GETFD) >= 0;
    tell(std::string(isIgnored(SIGHUP) ? "HUP " : "") + (isIgnored(SIGCHLD) ? "CHLD " : "") +
         (isIgnored(SIGINT) ? "INT " : "") + (isIgnored(SIGTERM) ? "TERM " : "") +
         (kept ? "kept" : "changed"));
  });
  EXPECT_EQ(starting.wait(), 0);
  EXPECT_EQ(heard(), "HUP CHLD kept");
}

TEST_F(Detach, WritesWaitingOutputOnce) {
  const test::TemporaryFolder folder;
  const std::string output = (folder / "output").string();
  ForkedPart starting([&] {
    ASSERT_NE(freopen(output.c_str(), "w", stdout), nullptr);
    printf("once");
    detach();
    fflush(stdout);
  });
  EXPECT_EQ(starting.wait(), 0);
  EXPECT_EQ(heard(), "");
  EXPECT_EQ(test::readFile(output), "once");
}

TEST_F(Detach, GoesOnInTheSameProcessWhereForkingFails) {
  ForkedPart starting([this] {
    if (geteuid() == 0) {
      ASSERT_EQ(setgid(65534), 0);
      ASSERT_EQ(setuid(65534), 0);  // the limit does not hold for root
    }
    const rlimit none{0, 0};
    ASSERT_EQ(setrlimit(RLIMIT_NPROC, &none), 0);
    ASSERT_EQ(fork(), -1);
    const pid_t before = getpid();
    detach();
    tell(getpid() == before && isIgnored(SIGHUP) && isIgnored(SIGCHLD) ? "itself" : "other");
  });
  EXPECT_EQ(starting.wait(), 0);
  EXPECT_EQ(heard(), "itself");
}

/// Lowers a soft limit below the hard one, and returns what raiseResourceLimits made of it.
rlimit raisedFrom(decltype(RLIMIT_NOFILE) resource, rlim_t soft) {
  rlimit limit{};
  EXPECT_EQ(getrlimit(resource, &limit), 0);
  EXPECT_GT(limit.rlim_max, soft);
  limit.rlim_cur = soft;
  EXPECT_EQ(setrlimit(resource, &limit), 0);
  raiseResourceLimits();
  EXPECT_EQ(getrlimit(resource, &limit), 0);
  return limit;
}

TEST(ResourceLimits, OfFilesAndProcessesAreRaisedToTheHardOnes) {
  inOwnProcess([] {
    for (auto resource : {RLIMIT_NOFILE, RLIMIT_NPROC}) {
      const rlimit raised = raisedFrom(resource, 64);
      EXPECT_EQ(raised.rlim_cur, raised.rlim_max) << resource;
    }
  });
}

TEST(ResourceLimits, OthersStay) {
  inOwnProcess([] {
    const rlimit raised = raisedFrom(RLIMIT_CORE, 0);
    EXPECT_EQ(raised.rlim_cur, 0U);
  });
}

TEST(Serving, IgnoresHangupAndInterruptAlone) {
  inOwnProcess([] {
    for (int signal : {SIGHUP, SIGINT, SIGTERM, SIGCHLD}) ::signal(signal, SIG_DFL);
    ignoreHangupAndInterrupt();
    EXPECT_TRUE(isIgnored(SIGHUP));
    EXPECT_TRUE(isIgnored(SIGINT));
    EXPECT_FALSE(isIgnored(SIGTERM));
    EXPECT_FALSE(isIgnored(SIGCHLD));
  });
}

TEST(FailedWrites, BeyondAFileSizeLimitOrIntoAPipeWithoutReaderEndNothing) {
  inOwnProcess([] {
    for (int signal : {SIGXFSZ, SIGPIPE, SIGTERM}) ::signal(signal, SIG_DFL);
    ignoreSignalsOfFailedWrites();
    const test::TemporaryFolder folder;
    const int file = open((folder / "file").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    const rlimit small{1, 1};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    EXPECT_EQ(write(file, "ab", 2), 1);
    EXPECT_EQ(write(file, "b", 1), -1);
    EXPECT_EQ(errno, EFBIG);
    close(file);
    int unread[2];
    ASSERT_EQ(pipe2(unread, O_CLOEXEC), 0);
    close(unread[0]);
    EXPECT_EQ(write(unread[1], "x", 1), -1);
    EXPECT_EQ(errno, EPIPE);
    close(unread[1]);
    EXPECT_FALSE(isIgnored(SIGTERM));
  });
}

/// A PID namespace of the test's own: the stop command reaches nothing outside.
class StopWord : public testing::Test {
 protected:
  void SetUp() override {
    if (geteuid() != 0) {
      GTEST_SKIP() << "needs root, for a PID namespace that the stop command cannot leave: skipped";
    }
  }
};

/// A process of that name that runs until it is stopped.
class Named {
 public:
  explicit Named(const char* name)
      : process_([name](const ForkedPart& self) {
          signal(SIGTERM, SIG_DFL);
          prctl(PR_SET_NAME, name);
          self.tell(0);
          for (;;) pause();
        }) {
    EXPECT_EQ(process_.hear(), 0) << "it does not have its name";
  }
  ForkedPart* operator->() { return &process_; }

 private:
  ForkedPart process_;
};

TEST_F(StopWord, StopsEveryNameServerAndEndsWithStatus0) {
  inOwnPids([] {
    Named first("sorvinfo");
    Named second("sorvinfo");
    Named other("sorvinfo2");
    ForkedPart stopping([] {
      prctl(PR_SET_NAME, "sorvinfo");
      stopAllNameServers();
    });
    EXPECT_EQ(stopping.wait(), 0) << "it does not stop itself";
    EXPECT_EQ(first->wait(), -SIGTERM);
    EXPECT_EQ(second->wait(), -SIGTERM);
    EXPECT_EQ(other->wait(std::chrono::milliseconds(0)), std::nullopt) << "another program goes on";
  });
}

TEST_F(StopWord, WithNothingToStopEndsWithStatus0) {
  inOwnPids([] {
    ForkedPart stopping([] { stopAllNameServers(); });
    EXPECT_EQ(stopping.wait(), 0);
  });
}

TEST(KeepFilesFromOthers, TakesAwayWhatOthersCouldDoAndGivesNothing) {
  for (const auto& [before, after] :
       {std::pair<mode_t, mode_t>{0, 027}, {022, 027}, {0177, 0177}}) {
    umask(before);
    keepFilesFromOthers();
    EXPECT_EQ(umask(0), after);
  }
}

}  // namespace
}  // namespace sorvane
