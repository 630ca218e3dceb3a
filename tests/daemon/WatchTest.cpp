// Real processes and real signals.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <functional>
#include <utility>

#include "daemon/Watch.h"
#include "platform/Console.h"
#include "platform/Descriptor.h"
#include "platform/EndProcess.h"
#include "platform/HandOver.h"
#include "platform/SharedDescriptors.h"
#include "platform/SharedMemory.h"
#include "support/ForkedPart.h"
#include "support/OwnNamespaces.h"
#include "support/TestFiles.h"
#include "support/ThreadSanitizer.h"

namespace sorvane::test {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;

/// What a serving process says when it starts, and what it may be made to say later.
struct Report {
  pid_t process = 0;
  int deaths = 0;
  bool goesOn = false;
  int number = 0;  ///< what the test wants to know
};

/// What the watching process does between two serving ones.
struct Between {
  std::function<void()> afterDeath = {};
  std::function<void()> beforeNewStart = {};
};

/// A process that keeps watch, in a part of the test.
class Watched {
 public:
  using Say = std::function<void(int number)>;
  using Serve = std::function<void(const ServingStart& start, const Say& say)>;

  /// Each serving process says that it starts, does what `serve` does, and waits then.
  explicit Watched(const Serve& serve = {}, const std::function<void()>& before = {},
                   const std::function<std::string(int)>& handOver = {}, int handedOver = -1,
                   const Between& between = {}) {
    int ends[2];
    EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    told_ = Descriptor(ends[0]);
    Descriptor telling(ends[1]);
    part_ = std::make_unique<ForkedPart>([&] {
      told_.close();
      const int console = open((folder_ / "console").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
      dup2(console, STDERR_FILENO);
      close(console);
      signal(SIGSEGV, SIG_DFL);  // a sanitizer takes it
      signal(SIGHUP, SIG_DFL);   // whoever runs the test may ignore these two
      signal(SIGINT, SIG_DFL);
      if (before) {
        before();
      }
      watchOver({.serve =
                     [&](const ServingStart& start) {
                       const Say say = [&](int number) {
                         const Report report{getpid(), start.deaths, start.goesOn, number};
                         EXPECT_EQ(write(telling.number(), &report, sizeof report),
                                   static_cast<ssize_t>(sizeof report));
                       };
                       say(0);
                       if (serve) {
                         serve(start, say);
                       }
                       for (;;) {
                         pause();
                       }
                     },
                 .handOver = handOver,
                 .afterDeath = between.afterDeath,
                 .beforeNewStart = between.beforeNewStart,
                 .handedOver = handedOver});
    });
  }

  /// The next report; none when none comes within the limit, or when nobody is there.
  std::optional<Report> next(std::chrono::milliseconds limit = kPatience) const {
    pollfd question{told_.number(), POLLIN, 0};
    Report report;
    const bool came =
        poll(&question, 1, static_cast<int>(limit.count())) == 1 &&
        read(told_.number(), &report, sizeof report) == static_cast<ssize_t>(sizeof report);
    return came ? std::optional(report) : std::nullopt;
  }
  /// Nobody has the other end of the reports open any more: both processes are gone.
  [[nodiscard]] bool isGone() const {
    pollfd question{told_.number(), 0, 0};
    return poll(&question, 1, static_cast<int>(std::chrono::milliseconds(kPatience).count())) == 1;
  }

  [[nodiscard]] ForkedPart& part() const { return *part_; }
  [[nodiscard]] bool says(const std::string& text) const {
    return comesToHold(folder_ / "console", text);
  }
  [[nodiscard]] std::string console() const { return readFile(folder_ / "console"); }

 private:
  TemporaryFolder folder_;
  Descriptor told_;
  std::unique_ptr<ForkedPart> part_;
};

class Watch : public testing::Test {
 protected:
  void SetUp() override {
    if (kHasThreadSanitizer) {
      GTEST_SKIP() << kUnknownToThreadSanitizer;
    }
  }
};

pid_t processOf(const std::optional<Report>& report) {
  EXPECT_TRUE(report) << "nobody serves";
  return report ? report->process : 0;
}

bool isIgnored(int number) {
  struct sigaction action {};
  sigaction(number, nullptr, &action);
  return action.sa_handler == SIG_IGN;
}

bool isBlocked(int number) {
  sigset_t mask;
  pthread_sigmask(SIG_SETMASK, nullptr, &mask);
  return sigismember(&mask, number) == 1;
}

void ignoreAndBlockSome() {
  signal(SIGCHLD, SIG_IGN);
  sigset_t some;
  sigemptyset(&some);
  sigaddset(&some, SIGALRM);
  pthread_sigmask(SIG_BLOCK, &some, nullptr);
}

// ---- How it ends

TEST_F(Watch, ExitOfTheServingProcessEndsBothWithItsStatus) {
  EXPECT_EQ(Watched([](auto&, auto&) { _exit(0); }).part().wait(), 0);
  EXPECT_EQ(Watched([](auto&, auto&) { _exit(7); }).part().wait(), 7);
  inOwnProcess([] { watchOver({.serve = [](const ServingStart&) {}, .handOver = {}}); });
}

TEST_F(Watch, SignalByWhichPeopleEndProgramsEndsBothWhenTheServingProcessDiesOfIt) {
  for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
    const Watched watched;
    kill(processOf(watched.next()), number);
    EXPECT_EQ(watched.part().wait(), -number);
    EXPECT_TRUE(watched.isGone());
    EXPECT_EQ(watched.console(), "");
  }
}

TEST_F(Watch, SignalThatEndsTheWatchingProcessEndsBoth) {
  for (const int number : {SIGTERM, SIGKILL, SIGSEGV, SIGUSR1}) {
    const Watched watched({}, [] {
      const rlimit none{0, 0};
      setrlimit(RLIMIT_CORE, &none);
    });
    ASSERT_TRUE(watched.next());
    watched.part().signal(number);
    EXPECT_EQ(watched.part().wait(), -number);
    EXPECT_TRUE(watched.isGone());
    EXPECT_EQ(watched.console(), "");
  }
}

TEST_F(Watch, ServingProcessIsGoneWhenTheWatchingOneHasEndedOfSigterm) {
  for (const bool isStopped : {false, true}) {
    const Watched watched;
    const pid_t serving = processOf(watched.next());
    if (isStopped) {
      kill(serving, SIGSTOP);
    }
    watched.part().signal(SIGTERM);
    EXPECT_EQ(watched.part().wait(), -SIGTERM);
    EXPECT_EQ(kill(serving, 0), -1) << "it would have the descriptors still";
  }
}

// ---- Deaths

TEST_F(Watch, AnotherOneServesAfterADeathAndAConsoleLineTellsOfIt) {
  for (const int number : {SIGKILL, SIGSEGV, SIGABRT, SIGQUIT, SIGUSR1, SIGRTMIN}) {
    const Watched watched;
    const pid_t first = processOf(watched.next());
    kill(first, number);
    const auto second = watched.next();
    ASSERT_TRUE(second) << number;
    EXPECT_NE(second->process, first);
    EXPECT_EQ(second->deaths, 1);
    EXPECT_TRUE(second->goesOn);
    const std::string watching = "[" + std::to_string(watched.part().process()) + "]: ";
    EXPECT_TRUE(watched.says(watching + "the serving process " + std::to_string(first) +
                             " died of " + signalName(number) + ", with"))
        << watched.console();
    EXPECT_THAT(watched.console(),
                HasSubstr(", 1 death in the last minute: another one takes its place\n"));
  }
}

TEST_F(Watch, ProcessThatAbortsDiesOfThatSignal) {
  const Watched watched([](const ServingStart& start, auto&) {
    if (!start.goesOn) {
      abort();
    }
  });
  ASSERT_TRUE(watched.next());
  EXPECT_TRUE(watched.next());
  EXPECT_TRUE(watched.says("died of SIGABRT"));
}

TEST_F(Watch, ThreeDeathsWithinAMinuteLeadToANewStartWithNothingOfTheDeadOne) {
  const Watched watched([](const ServingStart& start, const auto& say) {
    for (int i = 0; i < 5; ++i) {
      static_cast<void>(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 100));
    }
    say(static_cast<int>(openDescriptors().size() - start.ownDescriptors.size()));
  });
  struct {
    int deaths;
    bool goesOn;
    int opened;
  } const starts[] = {{0, false, 5}, {1, true, 10}, {2, true, 15}, {3, false, 5}, {1, true, 10}};
  auto killed = std::chrono::steady_clock::now();
  for (const auto& expected : starts) {
    ASSERT_TRUE(watched.next());
    const auto report = watched.next();
    ASSERT_TRUE(report);
    EXPECT_EQ(report->deaths, expected.deaths);
    EXPECT_EQ(report->goesOn, expected.goesOn) << expected.deaths;
    EXPECT_EQ(report->number, expected.opened) << expected.deaths;
    const auto now = std::chrono::steady_clock::now();
    EXPECT_EQ(expected.deaths == 3, now - killed >= kPauseBeforeNewStart) << expected.deaths;
    killed = now;
    kill(report->process, SIGKILL);
  }
  EXPECT_TRUE(watched.says("3 deaths in the last minute: another one starts anew in 1 s"));
}

TEST(DeathCount, CountsThoseOfTheLastMinute) {
  const DeathCount::Clock::time_point start{1h};
  DeathCount deaths;
  EXPECT_EQ(deaths.add(start), 1);
  EXPECT_EQ(deaths.add(start + 30s), 2);
  EXPECT_EQ(deaths.add(start + 60s - 1ns), 3);
  EXPECT_EQ(deaths.add(start + 60s), 3) << "the first one is a minute ago";
  EXPECT_EQ(deaths.add(start + 10min), 1);
  deaths.forgetAll();
  EXPECT_EQ(deaths.add(start + 10min), 1);
}

TEST_F(Watch, ProcessThatCannotBeReplacedEndsBothWithStatusZero) {
  const Watched watched(
      [](const ServingStart&, auto&) {
        const rlimit none{0, 0};
        EXPECT_EQ(prlimit(getppid(), RLIMIT_NPROC, &none, nullptr), 0);
        raise(SIGKILL);
      },
      [] {
        if (geteuid() == 0) {
          ASSERT_EQ(setgid(65534), 0);
          ASSERT_EQ(setuid(65534), 0);  // the limit does not hold for root
        }
      });
  EXPECT_EQ(watched.part().wait(), 0);
  EXPECT_THAT(watched.console(), HasSubstr("no other serving process can be started: "));
}

/// How a child ended that dies of SIGSEGV where a core file may be written.
int statusOfACrash() {
  const pid_t child = fork();
  if (child == 0) {
    raise(SIGSEGV);
    _exit(0);
  }
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  return status;
}

TEST_F(Watch, CoreOfTheServingProcessIsWrittenAndToldOf) {
  const TemporaryFolder folder;
  const auto allowCores = [&folder] {
    const rlimit all{RLIM_INFINITY, RLIM_INFINITY};
    return setrlimit(RLIMIT_CORE, &all) == 0 && chdir(folder.path().c_str()) == 0;
  };
  ForkedPart usual([&](const ForkedPart& self) {
    self.tell(allowCores() && WCOREDUMP(statusOfACrash()) ? 1 : 0);
  });
  if (usual.hear() != 1) {
    GTEST_SKIP() << "no process of this host gets a core file here: see core(5)";
  }
  const Watched watched({}, [&] { EXPECT_TRUE(allowCores()); });
  kill(processOf(watched.next()), SIGSEGV);
  EXPECT_TRUE(watched.next());
  EXPECT_TRUE(watched.says("died of SIGSEGV, with a core, ")) << watched.console();
}

TEST_F(Watch, DeathWithoutACoreIsToldOfAsSuch) {
  const Watched watched({}, [] {
    const rlimit none{0, 0};
    setrlimit(RLIMIT_CORE, &none);
  });
  kill(processOf(watched.next()), SIGSEGV);
  EXPECT_TRUE(watched.next());
  EXPECT_TRUE(watched.says("died of SIGSEGV, without a core, "));
}

// ---- Last wishes

/// Counts in memory that all processes of a test share.
class SharedCount {
 public:
  /// Returns how often it was called before.
  int next() const { return reinterpret_cast<std::atomic<int>*>(memory_.bytes())->fetch_add(1); }

 private:
  SharedMemory memory_{sizeof(std::atomic<int>)};
};

TEST_F(Watch, ServingProcessMayWishThatAnotherOneStartsAnew) {
  const SharedCount starts;
  const Watched watched([&](const ServingStart& start, const auto& say) {
    for (int i = 0; i < 3; ++i) {
      static_cast<void>(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 100));
    }
    say(static_cast<int>(openDescriptors().size() - start.ownDescriptors.size()));
    if (starts.next() == 0) {
      setLastAct([] { _exit(9); });  // nobody is told of an end
      start.lastWish->startAnew();
    }
    _exit(7);
  });
  pid_t before = 0;
  for (int generation = 0; generation < 2; ++generation) {
    ASSERT_TRUE(watched.next());
    const auto report = watched.next();
    ASSERT_TRUE(report);
    EXPECT_NE(std::exchange(before, report->process), report->process);
    EXPECT_EQ(report->deaths, 0);
    EXPECT_FALSE(report->goesOn);
    EXPECT_EQ(report->number, 3) << "those of the one before are closed";
  }
  EXPECT_EQ(watched.part().wait(), 7) << "the next one wishes nothing";
  EXPECT_EQ(watched.console(), "");
}

TEST_F(Watch, CallerIsToldOfDeathsAndOfNewStartsBeforeTheNextProcess) {
  const SharedCount deaths;
  const SharedCount newStarts;
  const SharedCount starts;
  pid_t telling = 0;
  const Watched watched(
      [&](const ServingStart& start, const auto& say) {
        say(deaths.next() * 10 + newStarts.next());
        if (starts.next() == 0) {
          start.lastWish->startAnew();
        }
      },
      [&] { telling = getpid(); }, {}, -1,
      {.afterDeath = [&] { getpid() == telling ? deaths.next() : 0; },
       .beforeNewStart = [&] { getpid() == telling ? newStarts.next() : 0; }});
  // Asking counts, too: once in each process.
  for (const int expected : {0, 12, 33, 54, 76}) {
    ASSERT_TRUE(watched.next());
    const auto report = watched.next();
    ASSERT_TRUE(report);
    EXPECT_EQ(report->number, expected);
    if (expected != 0) {
      kill(report->process, SIGKILL);
    }
  }
}

TEST_F(Watch, WhatAServingProcessHandsOverTakesTheWatchingOneToTheNextProgram) {
  const TemporaryFolder folder;
  const Watched watched(
      [](const ServingStart& start, auto&) {
        Descriptor file = openMemoryFile();
        ASSERT_FALSE(writeAll(file.number(), "kept"));
        leaveOpenInNextProgram({file.number()});
        start.lastWish->handOver(file.release());
      },
      {},
      [&](int file) {
        const std::string script =
            "cat /dev/fd/" + std::to_string(file) + " > " + (folder / "came").string() + "; exit 5";
        execl("/bin/sh", "sh", "-c", script.c_str(), nullptr);
        return std::string("not run");
      });
  ASSERT_TRUE(watched.next());
  EXPECT_EQ(watched.part().wait(), 5) << watched.console();
  EXPECT_EQ(readFile(folder / "came"), "kept");
  EXPECT_EQ(watched.console(), "");
}

TEST_F(Watch, NextProgramBeginsWithTheSignalsOfThisOne) {
  const Watched watched([](const ServingStart& start, auto&) { start.lastWish->handOver(0); }, {},
                        [](int) -> std::string {
                          _exit((isBlocked(SIGUSR2) ? 1 : 0) + (isBlocked(SIGCHLD) ? 2 : 0) +
                                (isBlocked(SIGINT) ? 4 : 0) + (isIgnored(SIGINT) ? 8 : 0) +
                                (isIgnored(SIGHUP) ? 16 : 0) + (isIgnored(SIGTERM) ? 32 : 0));
                        });
  EXPECT_EQ(watched.part().wait(), 1 + 8 + 16);
}

TEST_F(Watch, WhatCannotBeHandedOverIsGivenBackToAnotherServingProcess) {
  const SharedCount starts;
  const Watched watched(
      [&](const ServingStart& start, const auto& say) {
        if (starts.next() == 0) {
          start.lastWish->handOver(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 100));
        }
        say(fcntl(start.handedOver, F_GETFD) < 0 ? -1 : start.handedOver);
        say(start.goesOn || start.whyHandedBack != "no such program" ? 1 : 0);
        if (start.goesOn) {
          start.lastWish->letGoOfHandedOver();
          say(fcntl(start.handedOver, F_GETFD));
        }
      },
      {}, [](int) { return std::string("no such program"); });
  ASSERT_TRUE(watched.next());
  ASSERT_TRUE(watched.next());
  const auto file = watched.next();
  ASSERT_TRUE(file);
  EXPECT_GE(file->number, 100) << "it is open still";
  const auto how = watched.next();
  ASSERT_TRUE(how);
  EXPECT_EQ(how->number, 0);
  // It has not let go of it, so the next one gets it, which does.
  kill(how->process, SIGKILL);
  ASSERT_TRUE(watched.next());
  const auto again = watched.next();
  ASSERT_TRUE(again);
  EXPECT_EQ(again->number, file->number);
  ASSERT_TRUE(watched.next()) << "how";
  const auto closed = watched.next();
  ASSERT_TRUE(closed);
  EXPECT_EQ(closed->number, -1);
  kill(closed->process, SIGKILL);
  ASSERT_TRUE(watched.next());
  const auto after = watched.next();
  ASSERT_TRUE(after);
  EXPECT_EQ(after->number, -1);
}

TEST_F(Watch, WhatTheProgramBeforeHasHandedOverIsNotItsOwn) {
  const int file = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 100);
  const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int local = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const Watched watched(
      [&](const ServingStart& start, const auto& say) {
        const auto& own = start.ownDescriptors;
        const auto has = [&](int each) {
          return std::find(own.begin(), own.end(), each) != own.end();
        };
        say(start.handedOver);
        say((has(file) ? 1 : 0) + (has(socket) ? 2 : 0) + (has(local) ? 4 : 0) +
            (fcntl(socket, F_GETFD) < 0 ? 8 : 0) + (start.goesOn ? 16 : 0));
      },
      {}, {}, file);
  for (const int each : {file, socket, local}) {
    close(each);
  }
  ASSERT_TRUE(watched.next());
  const auto handed = watched.next();
  ASSERT_TRUE(handed);
  EXPECT_EQ(handed->number, file);
  const auto own = watched.next();
  ASSERT_TRUE(own);
  EXPECT_EQ(own->number, 4);
}

// ---- Signals

TEST_F(Watch, SignalsForTheServingProcessArePassedOn) {
  const Watched watched([](const ServingStart&, const auto& say) {
    sigset_t taken;
    sigemptyset(&taken);
    for (const int number : {SIGUSR2, SIGHUP, SIGINT}) {
      sigaddset(&taken, number);
    }
    pthread_sigmask(SIG_BLOCK, &taken, nullptr);
    say(0);
    for (int number = 0; sigwait(&taken, &number) == 0;) {
      say(number);
    }
  });
  ASSERT_TRUE(watched.next());
  for (int generation = 0; generation < 2; ++generation) {
    const auto serving = watched.next();
    ASSERT_TRUE(serving);
    for (const int number : {SIGUSR2, SIGHUP, SIGINT}) {
      watched.part().signal(number);
      const auto report = watched.next();
      ASSERT_TRUE(report);
      EXPECT_EQ(report->number, number);
    }
    kill(serving->process, SIGKILL);
    ASSERT_TRUE(watched.next());
  }
}

TEST_F(Watch, UpgradeSignalThatComesBeforeAnybodyTakesItEndsNothing) {
  const Watched watched([](const ServingStart&, const auto& say) {
    while (access("/proc/self/status", R_OK) == 0) {
      sigset_t waiting;
      sigpending(&waiting);
      if (sigismember(&waiting, SIGUSR2) == 1) {
        say(SIGUSR2);
        return;
      }
      usleep(1000);
    }
  });
  const pid_t serving = processOf(watched.next());
  watched.part().signal(SIGUSR2);
  const auto report = watched.next();
  ASSERT_TRUE(report);
  EXPECT_EQ(report->process, serving);
  EXPECT_EQ(report->number, SIGUSR2);
}

TEST_F(Watch, ServingProcessBeginsWithTheSignalsOfTheWatchingOneFromBefore) {
  const Watched watched(
      [](const ServingStart&, const auto& say) {
        say((isIgnored(SIGCHLD) ? 1 : 0) + (isBlocked(SIGALRM) ? 2 : 0) +
            (isBlocked(SIGUSR2) ? 4 : 0) + (isBlocked(SIGCHLD) ? 8 : 0) +
            (isBlocked(SIGINT) ? 16 : 0) + (isBlocked(SIGTERM) ? 32 : 0));
      },
      ignoreAndBlockSome);
  for (int generation = 0; generation < 2; ++generation) {
    ASSERT_TRUE(watched.next());
    const auto report = watched.next();
    ASSERT_TRUE(report) << "a death is seen although the end of children was ignored before";
    EXPECT_EQ(report->number, 1 + 2 + 4);
    kill(report->process, SIGKILL);
  }
}

/// The letter of a process's state in /proc; '-' when there is no such process.
char stateOf(pid_t process) {
  const std::string status = readFile("/proc/" + std::to_string(process) + "/stat");
  const std::size_t end = status.rfind(')');
  return end == std::string::npos ? '-' : status[end + 2];
}

TEST_F(Watch, StoppedProcessIsNotDeadAndGoesOn) {
  const Watched watched;
  const pid_t serving = processOf(watched.next());
  kill(serving, SIGSTOP);
  ASSERT_TRUE(waitUntil([&] { return stateOf(serving) == 'T'; }));
  EXPECT_EQ(watched.next(50ms), std::nullopt) << "another one serves";
  kill(serving, SIGCONT);
  ASSERT_TRUE(waitUntil([&] { return stateOf(serving) == 'S'; }));
  EXPECT_EQ(watched.console(), "");
}

TEST_F(Watch, WatchingProcessThatWasStoppedSeesTheDeathWhenItGoesOn) {
  const Watched watched;
  const pid_t serving = processOf(watched.next());
  watched.part().signal(SIGSTOP);
  ASSERT_TRUE(waitUntil([&] { return stateOf(watched.part().process()) == 'T'; }));
  kill(serving, SIGKILL);
  EXPECT_EQ(watched.next(50ms), std::nullopt);
  watched.part().signal(SIGCONT);
  EXPECT_TRUE(watched.next());
}

// ---- Descriptors

TEST_F(Watch, DescriptorsOfTheDeadOneAreOpenUntilTheNextOneClosesThem) {
  const Watched watched([](const ServingStart& start, const auto& say) {
    if (!start.goesOn) {
      int ends[2];
      EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
      say(ends[1]);
      return;
    }
    const std::vector<int> left = openDescriptors();
    closeDescriptorsExcept(start.ownDescriptors);
    say(static_cast<int>(left.size() - start.ownDescriptors.size()));
    say(openDescriptors() == start.ownDescriptors ? 1 : 0);
  });
  ASSERT_TRUE(watched.next());
  const auto opened = watched.next();
  ASSERT_TRUE(opened);
  kill(opened->process, SIGKILL);
  ASSERT_TRUE(watched.next());
  const auto left = watched.next();
  ASSERT_TRUE(left);
  EXPECT_EQ(left->number, 2) << "both ends of the pipe";
  const auto closed = watched.next();
  ASSERT_TRUE(closed);
  EXPECT_EQ(closed->number, 1);
}

/// A system log in a /dev that only this process and its children see.
int ownSystemLog() {
  EXPECT_EQ(mount("none", "/dev", "tmpfs", 0, nullptr), 0);
  const int log = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{AF_UNIX, "/dev/log"};
  EXPECT_EQ(bind(log, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  return log;
}

TEST_F(Watch, ConsoleLineOfTheWatchingProcessLeavesNothingOpen) {
  inOwnMounts([] {
    const int log = ownSystemLog();
    const Watched watched(
        [](const ServingStart& start, const auto& say) {
          say(static_cast<int>(openDescriptors().size() - start.ownDescriptors.size()));
        },
        [] { consoleLine("a line before"); });
    ASSERT_TRUE(watched.next());
    const auto first = watched.next();
    kill(processOf(first), SIGKILL);
    ASSERT_TRUE(watched.next());
    const auto second = watched.next();
    ASSERT_TRUE(second);
    EXPECT_EQ(second->number, 0);
    std::string lines;
    std::array<char, 1000> line;
    for (ssize_t length = 0; (length = recv(log, line.data(), line.size(), MSG_DONTWAIT)) > 0;) {
      lines.append(line.data(), static_cast<std::size_t>(length));
    }
    EXPECT_THAT(lines, HasSubstr("a line before"));
    EXPECT_THAT(lines, HasSubstr("the serving process")) << "the system's log gets the line";
  });
}

// ---- Where it is not possible

/// From now on, the system call fails with EPERM in this process.
void refuse(unsigned call) {
  const sock_filter steps[] = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, 0),
                               BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 1),
                               BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
                               BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
  const sock_fprog program{std::size(steps), const_cast<sock_filter*>(steps)};
  ASSERT_EQ(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), 0);
  ASSERT_EQ(prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program), 0);
}

TEST_F(Watch, OnASystemThatCannotTheProcessServesItselfAndSaysSo) {
  for (const unsigned call : {SYS_clone, SYS_close_range}) {
    const Watched watched(
        [](const ServingStart& start, const auto& say) {
          say((start.ownDescriptors.empty() ? 1 : 0) + (isIgnored(SIGCHLD) ? 2 : 0) +
              (isBlocked(SIGALRM) ? 4 : 0) + (isBlocked(SIGUSR2) ? 8 : 0) +
              (isBlocked(SIGCHLD) ? 16 : 0));
          _exit(9);
        },
        [call] {
          ignoreAndBlockSome();
          refuse(call);
        });
    ASSERT_TRUE(watched.next());
    const auto report = watched.next();
    ASSERT_TRUE(report);
    EXPECT_EQ(report->process, watched.part().process());
    EXPECT_EQ(report->number, 1 + 2 + 4);
    EXPECT_EQ(watched.part().wait(), 9);
    EXPECT_THAT(watched.console(), HasSubstr("SurviveCrashes is not available: "));
    EXPECT_THAT(watched.console(), HasSubstr("Operation not permitted\n"));
  }
}

TEST(SignalName, IsThatOfTheManualOrTheNumber) {
  EXPECT_EQ(signalName(SIGSEGV), "SIGSEGV");
  EXPECT_EQ(signalName(SIGKILL), "SIGKILL");
  EXPECT_EQ(signalName(SIGABRT), "SIGABRT");
  EXPECT_EQ(signalName(SIGRTMIN), "signal " + std::to_string(SIGRTMIN));
}

}  // namespace
}  // namespace sorvane::test
