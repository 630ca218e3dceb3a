// The command line of the name server, and what becomes of its process.
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>

#include "integration/Daemon.h"
#include "integration/DaemonProcess.h"
#include "integration/NetworkNamespace.h"

namespace sorvane::test {
namespace {

using Words = std::vector<std::string>;

constexpr const char* kVerboseLine = "isLocalAccessOnly = 0\n";
constexpr const char* kLockTaken = "succeeded. ";

class StartedWith : public testing::TestWithParam<Words> {
 protected:
  Daemon server_;
};

std::string nameOf(const testing::TestParamInfo<Words>& words) {
  std::string name = std::to_string(words.index);
  for (const std::string& word : words.param) {
    for (const char each : word) {
      name += isalnum(each) != 0 ? std::string(1, each) : each == '-' ? "Dash" : "Blank";
    }
  }
  return name;
}

// ---- Verbose

using StartedVerbose = StartedWith;

TEST_P(StartedVerbose, ServesInTheForegroundAndTellsMore) {
  server_.start(GetParam());
  EXPECT_EQ(server_.processes(), std::vector{server_.process()}) << "the process that was started";
  EXPECT_TRUE(server_.logs(kLockTaken));
  EXPECT_TRUE(server_.complains(kLockTaken));
  EXPECT_EQ(server_.standardOutput(), kVerboseLine);
  EXPECT_FALSE(server_.finds("db1"));
  EXPECT_TRUE(server_.logs("FIND PORT = {\n    findPort = db1;\n"));
}

INSTANTIATE_TEST_SUITE_P(Words, StartedVerbose,
                         testing::Values(Words{"-MachLaunch"}, Words{"verbose"}, Words{"-verbose"},
                                         Words{"-verbose", "-noexit"}),
                         nameOf);

// ---- In the foreground

using StartedNoexit = StartedWith;

TEST_P(StartedNoexit, ServesInTheForegroundAndTellsNothing) {
  server_.start(GetParam());
  EXPECT_EQ(server_.processes(), std::vector{server_.process()});
  EXPECT_FALSE(server_.finds("db1"));
  EXPECT_EQ(server_.standardOutput() + server_.console() + server_.log(), "");
}

INSTANTIATE_TEST_SUITE_P(Words, StartedNoexit,
                         testing::Values(Words{"noexit"}, Words{"-noexit"},
                                         Words{"-noexit", "-verbose"}),
                         nameOf);

// ---- Detached

using StartedDetached = StartedWith;

TEST_P(StartedDetached, EndsAtOnceAndAChildServes) {
  server_.launch(GetParam());
  EXPECT_EQ(server_.waitForExit(), 0);
  ASSERT_TRUE(server_.answers());
  ASSERT_EQ(server_.processes().size(), 1U);
  EXPECT_NE(server_.processes().front(), server_.process());
  const DaemonProcess child(server_.processes().front());
  EXPECT_NE(child.parent(), server_.process());
  EXPECT_TRUE(child.ignores(SIGHUP));
  EXPECT_TRUE(child.ignores(SIGCHLD));
  EXPECT_EQ(server_.standardOutput() + server_.console() + server_.log(), "") << "not verbose";
}

INSTANTIATE_TEST_SUITE_P(Words, StartedDetached,
                         testing::Values(Words{}, Words{"-Verbose"}, Words{"VERBOSE"}, Words{""},
                                         Words{"-noexit "}, Words{"--verbose"},
                                         Words{"x", "-noexit"}, Words{"x", "kill"}),
                         nameOf);

TEST(DetachedServer, StaysInItsSessionGroupAndFolderAndKeepsItsConsole) {
  Daemon server;
  std::filesystem::remove(server.tree() / "Logs");
  server.launch({});
  EXPECT_EQ(server.waitForExit(), 0);
  ASSERT_TRUE(server.answers());
  const pid_t child = server.processes().front();
  EXPECT_EQ(getsid(child), getsid(0));
  EXPECT_EQ(getpgid(child), getpgid(0));
  EXPECT_EQ(DaemonProcess(child).workingFolder(), std::filesystem::current_path());
  EXPECT_TRUE(server.complains("sorvinfo[" + std::to_string(child) + "]: "));
}

TEST(DetachedServer, EndsOnTerminationAlone) {
  Daemon server;
  server.launch({});
  EXPECT_EQ(server.waitForExit(), 0);
  ASSERT_TRUE(server.answers());
  const pid_t child = server.processes().front();
  ASSERT_TRUE(waitUntil([&] { return DaemonProcess(child).ignores(SIGINT); }));
  for (const int signal : {SIGHUP, SIGINT, SIGCHLD}) {
    ASSERT_EQ(kill(child, signal), 0);
    EXPECT_TRUE(server.ask({{"ping", ""}})) << signal;
  }
  ASSERT_EQ(kill(child, SIGTERM), 0);
  EXPECT_TRUE(waitUntil([&] { return server.processes().empty(); }));
}

TEST(FilesOfTheServer, AreForItsUserAndItsGroupAloneWhateverTheMaskOfTheStart) {
  Daemon server;
  server.launch({"-noexit"}, [] { umask(0); });
  ASSERT_TRUE(server.answers()) << server.console();
  ASSERT_TRUE(server.ask({{"action", "set_userpreferences"}, {"key", "u"}, {"databases", "d"}}));
  for (const char* const folder : {"Logs", "Users"}) {
    int files = 0;
    for (const auto& each : std::filesystem::recursive_directory_iterator(server.tree() / folder)) {
      struct stat status {};
      ASSERT_EQ(stat(each.path().c_str(), &status), 0);
      EXPECT_EQ(status.st_mode & 027U, 0U) << each.path();
      ++files;
    }
    EXPECT_GE(files, 1) << folder;
  }
}

TEST(DetachedServer, ServesInTheStartedProcessWhereForkingFails) {
  Daemon server;
  std::filesystem::permissions(server.tree(), std::filesystem::perms::all);
  for (const auto& each : std::filesystem::directory_iterator(server.tree())) {
    std::filesystem::permissions(each, std::filesystem::perms::all);
  }
  server.launch({}, [] {
    rlimit limit{};
    getrlimit(RLIMIT_NPROC, &limit);
    limit.rlim_cur = 0;  // the server raises it again, and then it can start its threads
    if ((geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0)) ||  // does not hold for root
        setrlimit(RLIMIT_NPROC, &limit) != 0) {
      _exit(125);
    }
  });
  ASSERT_TRUE(server.answers()) << server.console();
  EXPECT_EQ(server.processes(), std::vector{server.process()});
  EXPECT_EQ(server.console(), "") << "nothing is reported";
  EXPECT_TRUE(DaemonProcess(server.process()).ignores(SIGCHLD));
}

// ---- Signals and limits

TEST(ForegroundServer, EndsOnTerminationAtOnceAndIgnoresHangupAndInterrupt) {
  Daemon server;
  server.start();
  const DaemonProcess process(server.process());
  ASSERT_TRUE(waitUntil([&] { return process.ignores(SIGINT); }));
  EXPECT_TRUE(process.ignores(SIGHUP));
  EXPECT_FALSE(process.ignores(SIGCHLD));
  EXPECT_FALSE(process.ignores(SIGTERM));
  EXPECT_FALSE(process.catches(SIGTERM)) << "no handler delays the end";
  for (const int signal : {SIGHUP, SIGINT}) {
    ASSERT_EQ(kill(server.process(), signal), 0);
    EXPECT_TRUE(server.ask({{"ping", ""}})) << signal;
  }
  ASSERT_EQ(kill(server.process(), SIGTERM), 0);
  EXPECT_EQ(server.waitForExit(), 128 + SIGTERM);
}

TEST(ForegroundServer, CanBeInterruptedAsLongAsItDoesNotServe) {
  if (const std::string why = whyNoOwnNetwork(); !why.empty()) {
    GTEST_SKIP() << why;
  }
  const NetworkNamespace host;
  connectToNothing(host, "192.0.2.2/24");
  Daemon server;
  writeFile(server.tree() / "Config/SorvNameServerHost", "192.0.2.77\n");  // asked for seconds
  server.launch({"-verbose"}, [&] { host.enter(); });
  ASSERT_TRUE(waitUntil([&] { return server.standardOutput() == kVerboseLine; }));
  ASSERT_EQ(kill(server.process(), SIGINT), 0);
  EXPECT_EQ(server.waitForExit(), 128 + SIGINT);
}

TEST(ForegroundServer, RaisesItsLimitsOfFilesAndProcessesToTheHardOnes) {
  Daemon server;
  server.launch({"-noexit"}, [] {
    const rlimit files{64, 700};
    setrlimit(RLIMIT_NOFILE, &files);
    rlimit processes{};
    getrlimit(RLIMIT_NPROC, &processes);
    processes.rlim_cur = 200;
    setrlimit(RLIMIT_NPROC, &processes);
    const rlimit core{0, 0};
    setrlimit(RLIMIT_CORE, &core);
  });
  ASSERT_TRUE(server.answers());
  const DaemonProcess process(server.process());
  EXPECT_EQ(process.limit("Max open files"), std::pair(std::string("700"), std::string("700")));
  const auto processes = process.limit("Max processes");
  EXPECT_NE(processes.second, "200");
  EXPECT_EQ(processes.first, processes.second);
}

TEST(ForegroundServer, NeedsNoEnvironment) {
  Daemon server;
  server.launch({"-noexit"}, [] { clearenv(); });
  ASSERT_TRUE(server.answers());
  EXPECT_TRUE(server.registers("db1"));
}

}  // namespace
}  // namespace sorvane::test
