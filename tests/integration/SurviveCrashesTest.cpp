// A name server over which a second process keeps watch: what ends it, and what does not.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>

#include "integration/WatchedDaemon.h"
#include "support/NotifySocket.h"
#include "support/OwnNamespaces.h"

namespace sorvane::test {
namespace {

using namespace std::chrono_literals;

// ---- Deaths

TEST_F(SurviveCrashes, NameServerAnswersAgainAtOnceInTheSameProcess) {
  server_.start();
  ASSERT_TRUE(server_.registers("db1"));
  const pid_t watching = server_.process();
  auto shortest = std::chrono::steady_clock::duration::max();
  for (const int signal : {SIGKILL, signalOfAFault()}) {
    shortest = std::min(shortest, diesOf(signal));
    EXPECT_EQ(processesOf(server_).watching, watching);
    EXPECT_TRUE(server_.complains(signal == SIGKILL   ? "died of SIGKILL"
                                  : signal == SIGABRT ? "died of SIGABRT"
                                                      : "died of SIGSEGV"));
  }
  EXPECT_TRUE(server_.registers("db2"));
  EXPECT_TRUE(server_.finds("db2"));
  EXPECT_TRUE(server_.finds("db1"));
  if (areTestedWithoutSanitizers()) {
    EXPECT_LT(shortest, 200ms) << "the better of two times on a busy machine";
  }
}

TEST_F(SurviveCrashes, ThreeDeathsWithinAMinuteLeadToANewStart) {
  server_.start();
  EXPECT_LT(diesOf(SIGKILL), 1s);
  diesOf(SIGKILL);
  EXPECT_GE(diesOf(SIGKILL), 1s);
  EXPECT_TRUE(server_.complains("3 deaths in the last minute: another one starts anew in 1 s"));
  diesOf(SIGKILL);
  EXPECT_EQ(timesIn(server_.console(), "1 death in the last minute"), 2);
}

TEST_F(SurviveCrashes, ProcessLockIsHeldWhileNobodyServes) {
  server_.start();
  const pid_t dying = serving();
  kill(server_.process(), SIGSTOP);
  kill(dying, SIGKILL);
  Daemon second;
  second.setting("LockDirectory", "\"" + (server_.tree() / "lock").string() + "\"");
  for (const char* const watched : {"NO", "YES"}) {
    second.setting("SurviveCrashes", watched);
    second.launch();
    EXPECT_EQ(second.waitForExit(), 0);
    EXPECT_TRUE(second.complains("another infoserver is running on this host")) << watched;
  }
  EXPECT_TRUE(second.complains("SurviveCrashes is not available: the process lock cannot be had"));
  kill(server_.process(), SIGCONT);
  EXPECT_TRUE(server_.answers());
  EXPECT_TRUE(server_.hasTakenLock()) << "with the number of the process that was started";
  second.launch();
  EXPECT_EQ(second.waitForExit(), 0) << "it is held on";
}

TEST_F(SurviveCrashes, CoreFileOfTheServingProcessIsWritten) {
  if (!areTestedWithoutSanitizers()) {
    GTEST_SKIP() << "sanitizers keep the system from writing core files";
  }
  const auto allowCores = [this] {
    const rlimit all{RLIM_INFINITY, RLIM_INFINITY};
    return setrlimit(RLIMIT_CORE, &all) == 0 && chdir(server_.tree().c_str()) == 0;
  };
  ForkedPart usual([&](const ForkedPart& self) {
    const bool allowed = allowCores();
    const pid_t child = fork();
    if (child == 0) {
      raise(SIGSEGV);
    }
    int status = 0;
    waitpid(child, &status, 0);
    self.tell(allowed && WCOREDUMP(status) ? 1 : 0);
  });
  if (usual.hear() != 1) {
    GTEST_SKIP() << "no process of this host gets a core file here: see core(5)";
  }
  server_.launch({"-noexit"}, [&] { EXPECT_TRUE(allowCores()); });
  ASSERT_TRUE(server_.answers());
  diesOf(SIGSEGV);
  EXPECT_TRUE(server_.complains("died of SIGSEGV, with a core, ")) << server_.console();
}

// ---- Ends

TEST_F(SurviveCrashes, EndThatAClientAsksForEndsBothWithStatusZero) {
  for (const Message& request : {Message({{"terminate", ""}}), Message({{"action", "restart"}})}) {
    server_.start();
    ASSERT_TRUE(server_.connection()->sendRequest(request));
    EXPECT_EQ(server_.waitForExit(), 0);
    EXPECT_TRUE(isGone());
    EXPECT_EQ(server_.console(), "");
  }
}

TEST_F(SurviveCrashes, SigtermToEitherEndsBoth) {
  for (const bool toServing : {false, true}) {
    server_.start();
    kill(toServing ? serving() : server_.process(), SIGTERM);
    EXPECT_EQ(server_.waitForExit(), 128 + SIGTERM);
    EXPECT_TRUE(isGone());
    EXPECT_EQ(server_.console(), "");
  }
}

TEST_F(SurviveCrashes, HangupAndInterruptAreIgnoredByBoth) {
  server_.start();
  const Pair pair = processesOf(server_);
  for (const pid_t each : {pair.watching, pair.serving}) {
    kill(each, SIGHUP);
    kill(each, SIGINT);
  }
  EXPECT_TRUE(server_.answers());
  EXPECT_EQ(processesOf(server_).serving, pair.serving);
  EXPECT_EQ(server_.console(), "");
}

TEST_F(SurviveCrashes, HangupAndInterruptAreIgnoredWhileAnotherOneTakesThePlace) {
  server_.start();
  const Pair pair = processesOf(server_);
  kill(pair.serving, SIGKILL);
  const auto end = std::chrono::steady_clock::now() + 100ms;
  while (std::chrono::steady_clock::now() < end) {
    kill(pair.watching, SIGHUP);
    kill(pair.watching, SIGINT);
    usleep(300);  // otherwise it hears of nothing else
  }
  EXPECT_TRUE(server_.answers()) << server_.console();
  EXPECT_EQ(processesOf(server_).watching, pair.watching);
}

TEST_F(SurviveCrashes, ListeningSocketOfAnotherProgramIsNotTakenForItsOwn) {
  server_.launch({"-noexit"}, [] {
    const int other = socket(AF_INET, SOCK_STREAM, 0);
    EXPECT_EQ(listen(other, 1), 0);  // at a port that the system chooses
  });
  ASSERT_TRUE(server_.answers());
  diesOf(SIGKILL);
  EXPECT_EQ(timesIn(server_.console(), "anew"), 0) << server_.console();
}

TEST_F(SurviveCrashes, KilledWatchingProcessTakesTheServingOneAlong) {
  server_.start();
  server_.kill();
  EXPECT_TRUE(isGone());
}

TEST_F(SurviveCrashes, KillWordEndsBoth) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "needs root, for a PID namespace that the word cannot leave";
  }
  inOwnPids([] {
    Daemon server;
    server.setting("SurviveCrashes", "YES").start();
    Daemon caller;
    caller.launch({"kill"});
    EXPECT_EQ(caller.waitForExit(), 0);
    EXPECT_EQ(server.waitForExit(), 128 + SIGTERM);
    EXPECT_TRUE(waitUntil([&] { return server.processes().empty(); }));
    EXPECT_EQ(server.console(), "");
  });
}

// ---- Starts

TEST(NameServerWithoutSurviveCrashes, IsOneProcess) {
  Daemon server;
  server.start();
  EXPECT_EQ(server.processes(), std::vector{server.process()});
}

TEST_F(SurviveCrashes, ToolsTakeBothForOneNameServer) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "needs root, for a PID namespace whose numbers it chooses";
  }
  if (SORVANE_PORTABLE_HOST_NETWORK) {
    GTEST_SKIP() << "this build does not tell who listens and who holds a lock";
  }
  inOwnPids([] {
    Daemon server;
    server.setting("SurviveCrashes", "YES");
    const auto tool = server.tree() / "bin/sorvctl";
    std::filesystem::copy_file(builtProgram("sorvctl"), tool);
    for (const bool childHasLowerNumber : {false, true}) {
      if (childHasLowerNumber) {
        const int highest = std::stoi(readFile("/proc/sys/kernel/pid_max")) - 1;
        std::ofstream("/proc/sys/kernel/ns_last_pid") << highest - 1;
      }
      server.start();
      const Pair pair = processesOf(server);
      EXPECT_EQ(pair.serving < pair.watching, childHasLowerNumber);
      const std::string process = "sorvinfo (process " + std::to_string(pair.watching) + ")";
      const std::string told = run(tool, {"doctor", "--verbose"}).output;
      const Outcome upgrade = run(tool, {"upgrade"});
      EXPECT_EQ(upgrade.status, 0) << upgrade.errors;
      EXPECT_EQ(processesOf(server, pair.serving).watching, pair.watching);
      EXPECT_NE(told.find("sorvinfo.lock is held by " + process), std::string::npos) << told;
      EXPECT_NE(told.find(": " + process + " listens and answers"), std::string::npos) << told;
      server.kill();
      EXPECT_TRUE(waitUntil([&] { return server.processes().empty(); }));
    }
  });
}

TEST_F(SurviveCrashes, DetachedNameServerIsWatchedOver) {
  server_.launch({});
  ASSERT_EQ(server_.waitForExit(), 0);
  ASSERT_TRUE(server_.answers());
  const pid_t watching = processesOf(server_).watching;
  diesOf(SIGKILL);
  EXPECT_EQ(processesOf(server_).watching, watching);
  kill(watching, SIGTERM);
  EXPECT_TRUE(isGone());
}

TEST_F(SurviveCrashes, NameServerOfLaunchdIsWatchedOverAndLogsInDetail) {
  server_.start({"-MachLaunch"});
  diesOf(SIGKILL);
  EXPECT_TRUE(server_.logs("succeeded. "));
}

TEST_F(SurviveCrashes, ServiceManagerHearsTheServingProcess) {
  NotifySocket manager;
  server_.launch({"noexit"}, manager.environment("300000"));
  ASSERT_TRUE(manager.hears("READY=1")) << server_.console();
  EXPECT_TRUE(manager.hears("WATCHDOG=1"));
  diesOf(SIGKILL);
  EXPECT_TRUE(manager.hears("READY=1")) << "the next one serves";
  EXPECT_TRUE(manager.hears("WATCHDOG=1"));
  const pid_t hanging = serving();
  kill(hanging, SIGSTOP);
  ASSERT_TRUE(waitUntil([&] { return DaemonProcess(hanging).isStopped(); }));
  manager.forgetWhatCame();
  EXPECT_EQ(manager.receive(500ms), std::nullopt) << "nobody speaks for a process that hangs";
  kill(hanging, SIGCONT);
  ASSERT_TRUE(server_.connection()->sendRequest({{"terminate", ""}}));
  EXPECT_TRUE(manager.hears("STOPPING=1"));
  EXPECT_EQ(server_.waitForExit(), 0);
}

/// The memory that a process has for itself alone, in KiB.
long ownKibibytes(pid_t process) {
  std::ifstream file("/proc/" + std::to_string(process) + "/smaps_rollup");
  long sum = 0;
  for (std::string word; file >> word;) {
    long number = 0;
    if (word.starts_with("Private_Dirty") && file >> number) {
      sum += number;
    }
  }
  return sum;
}

TEST_F(SurviveCrashes, WatchingProcessNeedsNoProcessorAndLittleMemory) {
  server_.start();
  const DaemonProcess watching(server_.process());
  const double before = watching.seconds();
  const auto client = server_.connection();
  for (int i = 0; i < 1000; ++i) {
    ASSERT_TRUE(client->sendDictionary({{"ping", ""}}));
  }
  EXPECT_EQ(watching.seconds(), before);
  if (areTestedWithoutSanitizers()) {
    EXPECT_LT(ownKibibytes(server_.process()), 1024);
  }
}

}  // namespace
}  // namespace sorvane::test
